// KLogSink: where the logging front end (base/kxLog.h) hands its records. The front end knows
// only this interface; the ring-file stream of log/ is one sink, and the logging start-up
// installs the default stream as the default sink. Tests install sinks of their own.
//
// A record is a status code, a severity, a flags word and a text. The front end filters
// nothing: the sink decides what to keep (the ring-file stream drops severity 0 while
// informational messages are off, see g_LogInfoMessages, and cuts texts to the kxLogMax sizes).
//
// Convention: every call returns a status (base/kxStatus.h), as the front end passes it on to
// its caller unchanged. A sink may throw; the front end catches everything.
//
// Thread safety: the front end calls the default sink from any thread at any time, so a sink
// installed as the default must accept concurrent calls.
#pragma once

#include <cstdarg>

#include "base/kxLog.h"

class KLogSink {
public:
    virtual ~KLogSink() = default;

    // False while the sink cannot take records (not yet opened, failed to open, being torn
    // down); the front end then returns KX_E_LOG_NO_STREAM without calling anything else.
    virtual bool IsLive() const { return true; }

    // A narrow text formatted from format and args (args is not consumed: the caller owns it).
    virtual long vPrintf(long code, kxLogSev sev, unsigned long flags, const char* format,
                         va_list args) = 0;
    // A wide text formatted from format and args.
    virtual long vPrintf(long code, kxLogSev sev, unsigned long flags, const wchar_t* format,
                         va_list args) = 0;
    // As the narrow vPrintf, with room for a longer text (kxLogMaxBigText).
    virtual long vBigMsgPrintf(long code, kxLogSev sev, unsigned long flags, const char* format,
                               va_list args) = 0;
    // The text as it is (a null text counts as empty).
    virtual long PrintString(const char* text, long code, kxLogSev sev, unsigned long flags) = 0;

protected:
    KLogSink() = default;
    KLogSink(const KLogSink&) = default;
    KLogSink& operator=(const KLogSink&) = default;
};

// The sink every kxLog... call writes to; null (the initial value) drops every record with
// KX_E_LOG_NO_STREAM. Set by the logging start-up to the default stream and back to null before
// that stream is destroyed; whoever sets it keeps the sink alive until it is replaced. Read
// without a lock, like the rest of the front end's state: set it while no other thread logs.
extern KLogSink* g_pKLogSinkDefault;
