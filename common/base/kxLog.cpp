// The printf and string families of the logging front end.
#include "base/kxLog.h"

#include <cstdio>

#include "log/KLogStream.h"

KLogStream* g_pKLogStreamDefault = nullptr;
bool g_LogInfoMessages = false;

namespace {

// Runs one stream operation on the default stream. Nothing escapes: an exception is reported
// to the system log as "unhandled exception in <caller>" and turned into a status.
template <typename Op>
long WithDefaultStream(const char* caller, Op op) noexcept {
    KLogStream* stream = g_pKLogStreamDefault;
    if (!KLogStream::IsLive(stream)) return KX_E_LOG_NO_STREAM;
    try {
        return op(*stream);
    } catch (...) {
        static const char kPrefix[] = "unhandled exception in ";
        char text[sizeof(kPrefix) + 32];
        // Callers are the fixed function names below, all far shorter than the buffer.
        snprintf(text, sizeof text, "%s%s", kPrefix, caller);
        kxLogEventStringA(text, KX_E_UNHANDLED_EXCEPTION, kxLogSevError, nullptr);
        return KX_E_UNHANDLED_EXCEPTION;
    }
}

long NarrowV(const char* caller, long code, kxLogSev sev, unsigned long flags, const char* format,
             va_list args) {
    return WithDefaultStream(
        caller, [&](KLogStream& s) { return s.vPrintf(code, sev, flags, format, args); });
}

}  // namespace

long kxLogPrintfA(long code, kxLogSev sev, const char* format, ...) {
    va_list args;
    va_start(args, format);
    long r = NarrowV("kxLogPrintfA", code, sev, 0, format, args);
    va_end(args);
    return r;
}

long kxLogPrintfW(long code, kxLogSev sev, const char* format, ...) {
    va_list args;
    va_start(args, format);
    long r = NarrowV("kxLogPrintfW", code, sev, 0, format, args);
    va_end(args);
    return r;
}

long kxLogvPrintfA(long code, kxLogSev sev, const char* format, va_list args) {
    return NarrowV("kxLogvPrintfA", code, sev, 0, format, args);
}

long kxLogvPrintfW(long code, kxLogSev sev, const wchar_t* format, va_list args) {
    return WithDefaultStream(
        "kxLogvPrintfW", [&](KLogStream& s) { return s.vPrintf(code, sev, 0, format, args); });
}

long kxLogPrintfEx(long code, kxLogSev sev, unsigned long flags, const char* format, ...) {
    va_list args;
    va_start(args, format);
    long r = NarrowV("kxLogPrintfEx", code, sev, flags, format, args);
    va_end(args);
    return r;
}

long kxLogBigMsgPrintfA(long code, kxLogSev sev, const char* format, ...) {
    va_list args;
    va_start(args, format);
    long r = WithDefaultStream("kxLogBigMsgPrintfA", [&](KLogStream& s) {
        return s.vBigMsgPrintf(code, sev, 0, format, args);
    });
    va_end(args);
    return r;
}

long kxLogPrintStringA(const char* text, long code, kxLogSev sev, unsigned long flags) {
    return WithDefaultStream("kxLogPrintStringA",
                             [&](KLogStream& s) { return s.PrintString(text, code, sev, flags); });
}

long kxLogPrintStringW(const char* text, long code, kxLogSev sev, unsigned long flags) {
    return WithDefaultStream("kxLogPrintStringW",
                             [&](KLogStream& s) { return s.PrintString(text, code, sev, flags); });
}

void kxLogInfoMessages(bool on) { g_LogInfoMessages = on; }
