// The printf and string families of the logging front end.
#include "base/kxLog.h"

#include <cstdio>

#include "base/kxLogSink.h"

KLogSink* g_pKLogSinkDefault = nullptr;
bool g_LogInfoMessages = false;

namespace {

// Runs one sink operation on the default sink. Nothing escapes: an exception is reported to
// the system log as "unhandled exception in <caller>" and turned into a status.
template <typename Op>
long WithDefaultSink(const char* caller, Op op) noexcept {
    // One read: the pointer may be replaced meanwhile, the sink it named must stay usable.
    KLogSink* sink = g_pKLogSinkDefault;
    try {
        if (sink == nullptr || !sink->IsLive()) return KX_E_LOG_NO_STREAM;
        return op(*sink);
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
    return WithDefaultSink(
        caller, [&](KLogSink& s) { return s.vPrintf(code, sev, flags, format, args); });
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
    return WithDefaultSink(
        "kxLogvPrintfW", [&](KLogSink& s) { return s.vPrintf(code, sev, 0, format, args); });
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
    long r = WithDefaultSink("kxLogBigMsgPrintfA", [&](KLogSink& s) {
        return s.vBigMsgPrintf(code, sev, 0, format, args);
    });
    va_end(args);
    return r;
}

long kxLogPrintStringA(const char* text, long code, kxLogSev sev, unsigned long flags) {
    return WithDefaultSink("kxLogPrintStringA",
                             [&](KLogSink& s) { return s.PrintString(text, code, sev, flags); });
}

long kxLogPrintStringW(const char* text, long code, kxLogSev sev, unsigned long flags) {
    return WithDefaultSink("kxLogPrintStringW",
                             [&](KLogSink& s) { return s.PrintString(text, code, sev, flags); });
}

void kxLogInfoMessages(bool on) { g_LogInfoMessages = on; }
