// A stand-in default log stream that keeps every record in memory, so that tests can check
// which messages a failure path wrote. Installs itself as the default stream for its lifetime.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

#include "log/KLogStream.h"

namespace kxtest {

struct LoggedRecord {
    long code;
    kxLogSev sev;
    std::string text;
};

class LogCapture : public KLogStream {
public:
    LogCapture() : previous_(g_pKLogStreamDefault) {
        m_dwSignature = kSignatureLive;
        g_pKLogStreamDefault = this;
    }
    ~LogCapture() override { g_pKLogStreamDefault = previous_; }

    long vPrintf(long code, kxLogSev sev, unsigned long, const char* format,
                 va_list args) override {
        // Like the real stream: informational messages only when they are switched on.
        if (sev == kxLogSevInfo && !g_LogInfoMessages) return KX_S_LOG_INFO_DROPPED;
        char text[4096];
        vsnprintf(text, sizeof text, format, args);
        std::lock_guard<std::mutex> hold(mutex_);
        records_.push_back({code, sev, text});
        return 0;
    }

    long PrintString(const char* text, long code, kxLogSev sev, unsigned long) override {
        if (sev == kxLogSevInfo && !g_LogInfoMessages) return KX_S_LOG_INFO_DROPPED;
        std::lock_guard<std::mutex> hold(mutex_);
        records_.push_back({code, sev, text ? text : ""});
        return 0;
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
    KLogStream* previous_;
    mutable std::mutex mutex_;
    std::vector<LoggedRecord> records_;
};

}  // namespace kxtest
