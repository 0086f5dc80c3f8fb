// System-log messages and exception reports of the logging front end.
#include <syslog.h>

#include "base/kxLog.h"

namespace {

int SyslogPriority(kxLogSev sev) {
    if (sev <= kxLogSevProgress) return LOG_INFO;
    if (sev == kxLogSevWarning) return LOG_WARNING;
    return LOG_ERR;
}

}  // namespace

void kxLogEventStringA(const char* text, long /*code*/, kxLogSev sev, const char* ident) {
    if (text == nullptr) text = "";
    if (ident == nullptr) ident = "kxLog";
    openlog(ident, LOG_PID, LOG_DAEMON);
    // The text is the format on purpose; see the declaration.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
    syslog(SyslogPriority(sev), text);
#pragma GCC diagnostic pop
    closelog();
}

long kxLogPrintUnhandledExceptionMessage(const char* where, unsigned long code) {
    kxLogPrintfA(KX_E_UNHANDLED_EXCEPTION, kxLogSevError, "%s: unhandled exception (%d)",
                 where ? where : "???", static_cast<int>(code));
    return KX_E_UNHANDLED_EXCEPTION;
}

long kxLogPrintMemoryExceptionMessage(const char* where, unsigned long code) {
    kxLogPrintfA(KX_E_UNHANDLED_EXCEPTION, kxLogSevError, "%s: memory exception (%d)",
                 where ? where : "???", static_cast<int>(code));
    return KX_E_UNHANDLED_EXCEPTION;
}

long kxLogPrintStructuredExceptionMessage(const char* where, unsigned long exceptionCode,
                                          unsigned long code) {
    kxLogPrintfA(KX_E_UNHANDLED_EXCEPTION, kxLogSevError, "%s: structured exception 0x%X (%d)",
                 where ? where : "???", static_cast<unsigned>(exceptionCode),
                 static_cast<int>(code));
    return KX_E_UNHANDLED_EXCEPTION;
}
