// A log sink that keeps every record in memory, so that tests can check which messages a
// failure path wrote. Installs itself as the default sink for its lifetime and puts the previous
// one back when it ends; create it while no other thread logs.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <cwchar>
#include <mutex>
#include <string>
#include <vector>

#include "base/kxLogSink.h"

namespace kxtest {

struct LoggedRecord {
    long code;
    kxLogSev sev;
    std::string text;
};

class LogCapture : public KLogSink {
public:
    LogCapture() : previous_(g_pKLogSinkDefault) { g_pKLogSinkDefault = this; }
    ~LogCapture() override { g_pKLogSinkDefault = previous_; }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    long vPrintf(long code, kxLogSev sev, unsigned long, const char* format,
                 va_list args) override {
        char text[4096];
        vsnprintf(text, sizeof text, format, args);
        return Keep(code, sev, text);
    }
    long vPrintf(long code, kxLogSev sev, unsigned long, const wchar_t* format,
                 va_list args) override {
        wchar_t wide[1024];
        vswprintf(wide, 1024, format, args);
        std::string text;
        for (const wchar_t* p = wide; *p != L'\0'; ++p) text += static_cast<char>(*p);
        return Keep(code, sev, text);
    }
    long vBigMsgPrintf(long code, kxLogSev sev, unsigned long flags, const char* format,
                       va_list args) override {
        return vPrintf(code, sev, flags, format, args);
    }
    long PrintString(const char* text, long code, kxLogSev sev, unsigned long) override {
        return Keep(code, sev, text ? text : "");
    }

    std::vector<LoggedRecord> Records() const {
        std::lock_guard<std::mutex> hold(mutex_);
        return records_;
    }
    // True when some record has this code and its text contains `part`.
    bool Has(long code, const std::string& part) const {
        for (const LoggedRecord& r : Records())
            if (r.code == code && r.text.find(part) != std::string::npos) return true;
        return false;
    }
    void Clear() {
        std::lock_guard<std::mutex> hold(mutex_);
        records_.clear();
    }

private:
    long Keep(long code, kxLogSev sev, std::string text) {
        // Like the stream: informational messages only when they are switched on.
        if (sev == kxLogSevInfo && !g_LogInfoMessages) return KX_S_LOG_INFO_DROPPED;
        std::lock_guard<std::mutex> hold(mutex_);
        records_.push_back({code, sev, std::move(text)});
        return 0;
    }

    KLogSink* previous_;
    mutable std::mutex mutex_;
    std::vector<LoggedRecord> records_;
};

}  // namespace kxtest
