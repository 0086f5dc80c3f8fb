// KCriticalSection: the library's in-process lock, a recursive mutex with a validity signature.
//
// Convention: failures are exceptions of type std::logic_error (nothing returns a status).
// Callers do not catch them: a broken lock ends the operation that needed it.
//
// Thread safety: any thread may lock; the same thread may lock again and must unlock as often.
// The lock is private to the process (see KMutex for a lock shared between processes).
//
// System calls: the pthread calls go through the process Env at each call (base/kxEnv.h); the
// object's fixed layout leaves no room to hold one, so tests reach it with a kxScopedEnv.
#pragma once

#include <pthread.h>

#include <cstdint>

class KCriticalSection {
public:
    // "KCrS", first character in the lowest byte.
    static constexpr uint32_t kSignature = 0x53724B43;

    // Builds a recursive mutex. Never reports anything: when one of the pthread calls fails,
    // the signature stays 0 and every later Lock/Unlock throws "...: invalid".
    KCriticalSection();

    // No destructor on purpose: instances are process-wide statics that live until exit, so
    // the mutex and its attributes are never destroyed.

    KCriticalSection(const KCriticalSection&) = delete;
    KCriticalSection& operator=(const KCriticalSection&) = delete;

    // Returns once the calling thread holds the lock (one more level when it already does).
    // Throws std::logic_error("KCriticalSection::Lock: invalid") on an object whose
    // construction failed or that never was constructed (nothing logged), and
    // std::logic_error("KCriticalSection::Lock: failed %d.") when pthread_mutex_lock fails,
    // after logging that text with errno, status KX_E_NOT_INITIALISED, severity 3.
    // The exception text keeps its "%d" unexpanded and the log shows errno rather than the
    // call's result; both are kept as they are for compatibility.
    void Lock() const;

    // Releases one level of holding. Same failures as Lock, with "KCriticalSection::Unlock"
    // texts; unlocking a lock the thread does not hold fails (EPERM) and throws.
    void Unlock() const;

    // True when construction succeeded and the signature is intact.
    bool IsValid() const { return m_dwSignature == kSignature; }

private:
    mutable pthread_mutex_t m_mutex;
    pthread_mutexattr_t m_attr;
    uint32_t m_dwSignature;
};

#if KX_TARGET_32BIT
static_assert(sizeof(pthread_mutex_t) == 24 && sizeof(pthread_mutexattr_t) == 4);
static_assert(sizeof(KCriticalSection) == 32, "mutex, attributes, signature");
#endif
