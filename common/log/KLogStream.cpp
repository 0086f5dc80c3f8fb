#include "log/KLogStream.h"

KLogStream::~KLogStream() { m_dwSignature = kSignatureReset; }

// Until the file-backed stream exists, a stream has nowhere to put a record and refuses it.
long KLogStream::vPrintf(long, kxLogSev, unsigned long, const char*, va_list) {
    return KX_E_LOG_NO_STREAM;
}

long KLogStream::vPrintf(long, kxLogSev, unsigned long, const wchar_t*, va_list) {
    return KX_E_LOG_NO_STREAM;
}

long KLogStream::vBigMsgPrintf(long, kxLogSev, unsigned long, const char*, va_list) {
    return KX_E_LOG_NO_STREAM;
}

long KLogStream::PrintString(const char*, long, kxLogSev, unsigned long) {
    return KX_E_LOG_NO_STREAM;
}
