// KLogStream: one log file opened for appending and reading by any number of processes.
//
// This header holds the part of the stream that the logging front end (kxLog.h) talks to: the
// liveness signature and the four text-record operations. The front end calls them through
// the default stream pointer and catches anything they throw.
//
// Convention: every operation returns a status (base/kxStatus.h); none throws on its own.
#pragma once

#include <cstdarg>
#include <cstdint>

#include "log/kxLog.h"

class KLogStream {
public:
    static constexpr uint32_t kSignatureLive = 0x7469A48C;
    static constexpr uint32_t kSignatureConstructing = 0x67A47A69;
    static constexpr uint32_t kSignatureReset = 0x6E69A59A;

    virtual ~KLogStream();
    KLogStream(const KLogStream&) = delete;
    KLogStream& operator=(const KLogStream&) = delete;

    // True only while the stream is fully constructed and not yet released. Safe to call on a
    // null pointer's behalf through IsLive(p).
    bool IsLive() const { return m_dwSignature == kSignatureLive; }
    static bool IsLive(const KLogStream* s) { return s != nullptr && s->IsLive(); }

    // Text records. Severity 0 while informational messages are off gives
    // KX_S_LOG_INFO_DROPPED; a stream that is not live gives KX_E_LOG_NO_STREAM.
    // Narrow texts are cut to kxLogMaxText bytes (kxLogMaxBigText for vBigMsgPrintf), wide ones
    // to kxLogMaxWideText characters.
    virtual long vPrintf(long code, kxLogSev sev, unsigned long flags, const char* format,
                         va_list args);
    virtual long vPrintf(long code, kxLogSev sev, unsigned long flags, const wchar_t* format,
                         va_list args);
    virtual long vBigMsgPrintf(long code, kxLogSev sev, unsigned long flags, const char* format,
                               va_list args);
    virtual long PrintString(const char* text, long code, kxLogSev sev, unsigned long flags);

protected:
    // A stream that is not live (signature "reset"); subclasses set the signature when ready.
    KLogStream() = default;

    // Liveness marker. The first data member, so that a stale or foreign pointer is refused
    // before anything else of the object is touched.
    uint32_t m_dwSignature = kSignatureReset;
};
