#include "base/KCriticalSection.h"

#include <cerrno>
#include <stdexcept>

#include "base/kxEnv.h"
#include "base/kxLog.h"

// The layout is fixed (mutex, attributes, signature), so the object holds no Env: it uses the
// process Env at each call (base/kxEnv.h), which is ready before any static instance is built.
KCriticalSection::KCriticalSection() : m_mutex(), m_attr(), m_dwSignature(0) {
    kxEnv* env = kxEnv::Default();
    if (env->MutexAttrInit(&m_attr) == 0 &&
        env->MutexAttrSetType(&m_attr, PTHREAD_MUTEX_RECURSIVE) == 0 &&
        env->MutexInit(&m_mutex, &m_attr) == 0) {
        m_dwSignature = kSignature;
    }
}

void KCriticalSection::Lock() const {
    if (m_dwSignature != kSignature) throw std::logic_error("KCriticalSection::Lock: invalid");
    if (kxEnvMutexLock(kxEnv::Installed(), &m_mutex) == 0) return;
    static const char kFailed[] = "KCriticalSection::Lock: failed %d.";
    kxLogPrintfA(KX_E_NOT_INITIALISED, kxLogSevError, kFailed, errno);
    throw std::logic_error(kFailed);
}

void KCriticalSection::Unlock() const {
    if (m_dwSignature != kSignature) throw std::logic_error("KCriticalSection::Unlock: invalid");
    if (kxEnvMutexUnlock(kxEnv::Installed(), &m_mutex) == 0) return;
    static const char kFailed[] = "KCriticalSection::Unlock: failed %d.";
    kxLogPrintfA(KX_E_NOT_INITIALISED, kxLogSevError, kFailed, errno);
    throw std::logic_error(kFailed);
}
