#include "base/KCriticalSection.h"

#include <cerrno>
#include <stdexcept>

#include "base/kxLog.h"

// Constant-initialised, so it is ready before any static KCriticalSection is constructed.
KCriticalSectionCalls g_kxCriticalSectionCalls = {
    pthread_mutexattr_init, pthread_mutexattr_settype, pthread_mutex_init, pthread_mutex_lock,
    pthread_mutex_unlock,
};

KCriticalSection::KCriticalSection() : m_mutex(), m_attr(), m_dwSignature(0) {
    const KCriticalSectionCalls& c = g_kxCriticalSectionCalls;
    if (c.attrInit(&m_attr) == 0 && c.attrSetType(&m_attr, PTHREAD_MUTEX_RECURSIVE) == 0 &&
        c.mutexInit(&m_mutex, &m_attr) == 0) {
        m_dwSignature = kSignature;
    }
}

void KCriticalSection::Lock() const {
    if (m_dwSignature != kSignature) throw std::logic_error("KCriticalSection::Lock: invalid");
    if (g_kxCriticalSectionCalls.mutexLock(&m_mutex) == 0) return;
    static const char kFailed[] = "KCriticalSection::Lock: failed %d.";
    kxLogPrintfA(KX_E_NOT_INITIALISED, kxLogSevError, kFailed, errno);
    throw std::logic_error(kFailed);
}

void KCriticalSection::Unlock() const {
    if (m_dwSignature != kSignature) throw std::logic_error("KCriticalSection::Unlock: invalid");
    if (g_kxCriticalSectionCalls.mutexUnlock(&m_mutex) == 0) return;
    static const char kFailed[] = "KCriticalSection::Unlock: failed %d.";
    kxLogPrintfA(KX_E_NOT_INITIALISED, kxLogSevError, kFailed, errno);
    throw std::logic_error(kFailed);
}
