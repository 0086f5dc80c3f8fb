// LogCapture: installs itself as the process's default log stream for the lifetime of a test
// and keeps every narrow record in memory, so tests can check the exact lines a failure writes.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "log/KLogStream.h"
#include "log/kxLog.h"

namespace kxtest {

struct LoggedLine {
    long code;
    kxLogSev sev;
    std::string text;
};

class LogCapture : public KLogStream {
public:
    LogCapture() : m_previous(g_pKLogStreamDefault) {
        m_dwSignature = kSignatureLive;
        g_pKLogStreamDefault = this;
    }
    ~LogCapture() override { g_pKLogStreamDefault = m_previous; }

    long vPrintf(long code, kxLogSev sev, unsigned long, const char* format,
                 va_list args) override {
        char text[4096];
        vsnprintf(text, sizeof text, format, args);
        lines.push_back({code, sev, text});
        return 0;
    }
    long PrintString(const char* text, long code, kxLogSev sev, unsigned long) override {
        lines.push_back({code, sev, text ? text : ""});
        return 0;
    }

    std::vector<LoggedLine> lines;

private:
    KLogStream* m_previous;
};

}  // namespace kxtest
