// KMutex: a mutex shared between processes by name, recursive for its owner, with a timed wait
// and the create/wait/release model of a Win32 mutex.
//
// The state lives in a small block (KMutexShared): inside the object for an unnamed mutex, or a
// POSIX shared-memory object mapped into every process that opens the name. Ownership is by
// (thread, process) pair.
//
// Convention: every operation returns a status (base/kxStatus.h); nothing throws. Failures are
// logged with severity 4 while the object's logging switch is on; time-outs never are.
//
// Abandoned mutex: when the process that owns the mutex no longer exists (it died without
// Unlock), the next Lock takes the mutex over, as a Win32 wait on an abandoned mutex does. The
// takeover succeeds (0) and is reported through Lock's optional out-argument and, while logging
// is on, one system-log line (not the log files, whose writers may hold this very mutex). The
// pthread mutex inside the block is robust as well, so a process killed inside Lock or Unlock
// does not wedge the others.
//
// Thread safety: any thread of any process that maps the block may call Lock and Unlock at the
// same time. Create and destruction must not race with other calls on the same object.
#pragma once

#include <pthread.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "base/kxEnv.h"
#include "base/kxStatus.h"

constexpr long KX_E_WAIT_FAILED = kxStatus(0xE0FF0102);     // waiting on the mutex failed
constexpr long KX_E_MUTEX_CREATE = kxStatus(0xE0020201);    // creating the mutex failed
constexpr long KX_E_MUTEX_RELEASE = kxStatus(0xE0020202);   // releasing the mutex failed

class KMutex {
public:
    static constexpr uint32_t kSignatureReady = 0xA449534E;
    static constexpr uint32_t kSignatureNotReady = 0x6D68A59A;
    // Lock time-out that waits for ever.
    static constexpr unsigned long kInfinite = 0xFFFFFFFFul;

    // The shared block. When named it is the whole shared-memory object, so its layout is the
    // same in every process that maps it. Its fields are read and written only under `mutex`,
    // except the signature, which openers poll while the creator builds the block.
    struct KMutexShared {
        uint32_t signature;      // kSignatureReady when usable
        pthread_mutex_t mutex;   // process-shared, robust; guards the fields below
        pthread_cond_t cond;     // signalled on release
        pthread_t ownerThread;   // (pthread_t)-1 when free
        pid_t ownerProcess;      // -1 when free
        bool locked;
        int32_t lockCount;       // incremented by each Lock of the owner; 0 when free

        // Destroys the pthread objects if the signature is valid, then marks the block not
        // ready and free. Never call it on a block another process still uses. env: whose
        // pthread calls destroy them (null: kxEnv::Default()).
        void Close(kxEnv* env = nullptr);
    };

    // logErrors: whether failures are logged (see the file comment). env: the system calls of
    // this mutex (base/kxEnv.h); null means kxEnv::Default() as it is now.
    explicit KMutex(bool logErrors = true, kxEnv* env = nullptr);
    // Unmaps a named block (the shared-memory object itself lives on while others map it);
    // closes the embedded block.
    virtual ~KMutex();

    KMutex(const KMutex&) = delete;
    KMutex& operator=(const KMutex&) = delete;

    // Unnamed mutex for the threads of this process, in the embedded block.
    // 0, or KX_E_MUTEX_CREATE (logged).
    long Create();

    // Named mutex in the shared-memory object "/" + name, created or opened.
    // - Created here: built, then, if initialOwner, locked by the caller (the result of Lock).
    // - Already there and ready: 0, AlreadyExisted() true; initialOwner is then ignored. The
    //   last error (errno, see platform/kxPlatformErrors.h) is also set to ERROR_ALREADY_EXISTS
    //   (183), as callers written against the Win32 model expect; new code asks AlreadyExisted().
    //   Still being built by its creator: tested four times about a second apart, then
    //   KX_E_MUTEX_CREATE.
    // - Any failure: KX_E_MUTEX_CREATE (logged).
    // The name is removed from the system as soon as the block is mapped, on purpose: only
    // processes that opened it before then, or inherit the mapping across fork, share the
    // mutex; a later Create with the same name makes a new one.
    // Both Create forms first drop whatever block the object held.
    long Create(const char* name, bool initialOwner);

    // Waits up to timeoutMs (kInfinite: for ever) for the mutex and takes it; the owner may
    // lock again (one more level).
    // 0 taken; KX_S_WAIT_TIMEOUT timed out (not logged); KX_E_NOT_INITIALISED no usable block;
    // KX_E_WAIT_FAILED a pthread call failed (logged).
    // *abandoned (when given) is set to true when the mutex was taken over from an owner
    // process that had died, else false.
    long Lock(unsigned long timeoutMs) const;
    long Lock(unsigned long timeoutMs, bool* abandoned) const;

    // Releases the mutex if the caller owns it. One Unlock releases it completely however many
    // times the owner locked it: deliberate, callers pair one Unlock with any number of Locks.
    // A caller that is not the owner gets 0 and nothing changes.
    // 0; KX_E_NOT_INITIALISED; KX_E_MUTEX_RELEASE (logged).
    long Unlock() const;

    // Resets the block in use as Close does, then initialises its pthread mutex (robust) and
    // condition with the given process-shared setting. 0 or the first failing call's error
    // number; the signature stays kSignatureNotReady either way (the caller sets it).
    int UnixInit(int pshared);

    // The full shared-memory name ("/" + name), empty for an unnamed mutex.
    const std::string& Name() const { return m_strName; }
    // True when the last Create(name, ...) succeeded by opening a mutex another process made.
    bool AlreadyExisted() const { return m_bExisted; }
    bool IsValid() const;

private:
    void DropBlock();

    bool m_bLogErrors;
    KMutexShared* m_pShared;  // block in use, null when none
    int m_hShm;               // shared-memory descriptor, -1 when none
    KMutexShared m_Embedded;  // block of an unnamed mutex
    pthread_mutexattr_t m_MutexAttr;
    pthread_condattr_t m_CondAttr;
    std::string m_strName;
    bool m_bExisted = false;
    kxEnv* const m_pEnv;
};

#if KX_TARGET_32BIT
static_assert(sizeof(KMutex::KMutexShared) == 92, "shared mutex block is 92 bytes");
static_assert(offsetof(KMutex::KMutexShared, mutex) == 4, "shared mutex block layout");
static_assert(offsetof(KMutex::KMutexShared, cond) == 28, "shared mutex block layout");
static_assert(offsetof(KMutex::KMutexShared, ownerThread) == 76, "shared mutex block layout");
static_assert(offsetof(KMutex::KMutexShared, ownerProcess) == 80, "shared mutex block layout");
static_assert(offsetof(KMutex::KMutexShared, locked) == 84, "shared mutex block layout");
static_assert(offsetof(KMutex::KMutexShared, lockCount) == 88, "shared mutex block layout");
#endif
