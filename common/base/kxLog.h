// The logging front end: printf-style and plain-string calls that hand a text record to the
// process's default sink (base/kxLogSink.h; normally the default log stream, which appends it
// to its ring file), a one-off message to the system log, and reports of caught exceptions.
//
// Convention: every writing call returns a status (see base/kxStatus.h) and never throws.
//   0                      record written
//   KX_S_LOG_INFO_DROPPED  severity 0 while informational messages are off; nothing written
//   KX_E_LOG_NO_STREAM     no live default sink, or the sink refused the record
//   KX_E_UNHANDLED_EXCEPTION  an exception escaped from the sink; reported to the system log
//   other                  what the sink returned (the stream: the status of its file lock)
// Callers in the library ignore these results: a message that cannot be written is lost, which
// is the intended behaviour during early start-up and late shutdown.
//
// Thread safety: any thread may call any function at any time. The default sink pointer is
// read without a lock; the sink serialises writers (the stream: within and across processes).
#pragma once

#include <cstdarg>
#include <cstdint>

#include "base/kxStatus.h"

// Severity of a message, stored as a 32-bit value in each record.
enum kxLogSev : uint32_t {
    kxLogSevInfo = 0,         // dropped unless kxLogInfoMessages(true)
    kxLogSevProgress = 1,     // normal progress
    kxLogSevWarning = 2,
    kxLogSevError = 3,        // every exception report
    kxLogSevFailure = 4,      // an operation failed and was given up (a system call, a file or
                              // mutex operation, starting the watched process)
    kxLogSevFatal = 5         // the program cannot go on (the Watcher could not daemonize)
};

constexpr long KX_S_LOG_INFO_DROPPED = kxStatus(0xA0010103);
constexpr long KX_E_LOG_NO_STREAM = kxStatus(0xE0010101);

// Longest texts kept: longer formatted texts are cut to these sizes.
constexpr unsigned kxLogMaxText = 1016;        // narrow record, bytes
constexpr unsigned kxLogMaxBigText = 4088;     // kxLogBigMsgPrintfA, bytes
constexpr unsigned kxLogMaxWideText = 1022;    // wide record, wide characters

// While false (the default), severity-0 messages are dropped before formatting.
extern bool g_LogInfoMessages;

// printf family: the status code comes first. Records carry flags 0 unless given.
long kxLogPrintfA(long code, kxLogSev sev, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
// Same as kxLogPrintfA (narrow format, narrow record); kept as a separate name for callers.
long kxLogPrintfW(long code, kxLogSev sev, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
long kxLogvPrintfA(long code, kxLogSev sev, const char* format, va_list args)
    __attribute__((format(printf, 3, 0)));
// Wide text record, at most kxLogMaxWideText wide characters.
long kxLogvPrintfW(long code, kxLogSev sev, const wchar_t* format, va_list args);
long kxLogPrintfEx(long code, kxLogSev sev, unsigned long flags, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
// Like kxLogPrintfA but keeps up to kxLogMaxBigText bytes.
long kxLogBigMsgPrintfA(long code, kxLogSev sev, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// String family: the text comes first and is written as it is, at most kxLogMaxText bytes.
long kxLogPrintStringA(const char* text, long code, kxLogSev sev, unsigned long flags);
// Same as kxLogPrintStringA (narrow argument, narrow record).
long kxLogPrintStringW(const char* text, long code, kxLogSev sev, unsigned long flags);

// Switches informational (severity 0) messages on or off for the whole process.
void kxLogInfoMessages(bool on);

// Sends one message to the system log: openlog(ident, LOG_PID, LOG_DAEMON), syslog, closelog.
// A null text is sent as the empty string, a null ident as "kxLog". Severity 0 and 1 go out as
// LOG_INFO, 2 as LOG_WARNING, anything higher as LOG_ERR. `code` is not used.
// The text is passed to syslog as its format, so a '%' in it is interpreted: callers that log
// arbitrary text must double their '%'. Kept so on purpose for compatibility with existing callers.
void kxLogEventStringA(const char* text, long code, kxLogSev sev, const char* ident);

// Exception reports (the formats are written "%s" where callers may know them as "%hs": the
// compiler flags "h" on "s", and the two mean the same for narrow text): write "<where>: unhandled exception (<code>)" and the like through
// kxLogPrintfA with status KX_E_UNHANDLED_EXCEPTION and severity 3, and return that status
// whatever the write returned. A null `where` is written as "???".
long kxLogPrintUnhandledExceptionMessage(const char* where, unsigned long code);
long kxLogPrintMemoryExceptionMessage(const char* where, unsigned long code);
long kxLogPrintStructuredExceptionMessage(const char* where, unsigned long exceptionCode,
                                          unsigned long code);
