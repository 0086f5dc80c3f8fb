#include "platform/KMutex.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "base/kxLog.h"
#include "platform/kxPlatformErrors.h"

namespace {

constexpr size_t kBlockSize = sizeof(KMutex::KMutexShared);
// Creator that has not finished building the block: tests of its signature, a second apart.
constexpr int kReadyTests = 4;
// A waiter wakes at least this often to see whether the owner process still exists; it also
// bounds the delay of a wake-up lost by the condition variable to a waiter that died.
constexpr long kOwnerCheckNs = 100L * 1000 * 1000;

const pthread_t kNoThread = static_cast<pthread_t>(-1);

uint32_t LoadSignature(const KMutex::KMutexShared* block) {
    return __atomic_load_n(&block->signature, __ATOMIC_ACQUIRE);
}

void StoreSignature(KMutex::KMutexShared* block, uint32_t value) {
    __atomic_store_n(&block->signature, value, __ATOMIC_RELEASE);
}

void MarkFree(KMutex::KMutexShared* block) {
    block->locked = false;
    block->ownerThread = kNoThread;
    block->ownerProcess = -1;
    block->lockCount = 0;
}

bool IsOwner(const KMutex::KMutexShared* block, pthread_t self, pid_t process) {
    return block->ownerProcess == process && pthread_equal(block->ownerThread, self);
}

// After a process died holding the block's pthread mutex the fields may be half updated: the
// taking path sets count, owner and locked; the release path clears them. A block that is not
// locked, or locked without an owner process, is made free; a locked block with an owner is left
// for the owner check of Lock, which takes it over if that owner is gone.
void Repair(KMutex::KMutexShared* block) {
    if (!block->locked || block->ownerProcess <= 0 || block->lockCount <= 0) MarkFree(block);
}

// pthread_mutex_lock on the block, recovering the mutex from an owner that died holding it.
int LockBlock(kxEnv* env, KMutex::KMutexShared* block) {
    int rc = kxEnvMutexLock(env, &block->mutex);
    if (rc == EOWNERDEAD) {
        rc = env->MutexConsistent(&block->mutex);
        if (rc == 0) Repair(block);
    }
    return rc;
}

// getpid() is a system call; Lock and Unlock need it on every call, so it is cached and
// refreshed in the child after fork.
pid_t g_cachedPid = 0;

void RefreshPid() { __atomic_store_n(&g_cachedPid, getpid(), __ATOMIC_RELAXED); }

pid_t CurrentPid() {
    pid_t pid = __atomic_load_n(&g_cachedPid, __ATOMIC_RELAXED);
    if (pid == 0) {
        static const int registered = pthread_atfork(nullptr, nullptr, RefreshPid);
        (void)registered;
        RefreshPid();
        pid = __atomic_load_n(&g_cachedPid, __ATOMIC_RELAXED);
    }
    return pid;
}

// A process that exited but was not yet reaped still answers kill(); its /proc state tells.
bool IsZombie(kxEnv* env, pid_t pid) {
    char path[40];
    snprintf(path, sizeof(path), "/proc/%d/stat", static_cast<int>(pid));
    const int fd = env->Open(path, O_RDONLY | O_CLOEXEC, 0);
    if (fd == -1) return false;
    char text[512];
    const ssize_t n = env->Read(fd, text, sizeof(text) - 1);
    env->Close(fd);
    if (n <= 0) return false;
    text[n] = '\0';
    // "pid (name) S ...": the name may itself hold parentheses, so take the last ')'.
    const char* end = strrchr(text, ')');
    if (end == nullptr || end[1] != ' ') return false;
    return end[2] == 'Z' || end[2] == 'X';
}

// True when the owner process no longer exists. The thorough form also counts an unreaped
// (zombie) process as gone; it reads /proc and is used only after a wait slice ran out.
bool OwnerGone(kxEnv* env, pid_t pid, bool thorough) {
    if (pid <= 0) return true;  // never pass 0 or -1 to kill: they address process groups
    if (pid == CurrentPid()) return false;
    const int saved = errno;
    bool gone;
    if (env->Kill(pid, 0) == 0 || errno == EPERM)
        gone = thorough && IsZombie(env, pid);
    else
        gone = errno == ESRCH;
    errno = saved;
    return gone;
}

timespec Now(kxEnv* env) {
    struct timeval tv;
    if (env->GetTimeOfDay(&tv) != 0) tv = timeval{};
    timespec ts;
    ts.tv_sec = tv.tv_sec;
    ts.tv_nsec = static_cast<long>(tv.tv_usec) * 1000;
    return ts;
}

bool Before(const timespec& a, const timespec& b) {
    return a.tv_sec < b.tv_sec || (a.tv_sec == b.tv_sec && a.tv_nsec < b.tv_nsec);
}

timespec AddNs(timespec ts, long long ns) {
    ts.tv_sec += static_cast<time_t>(ns / 1000000000LL);
    ts.tv_nsec += static_cast<long>(ns % 1000000000LL);
    // Carried into the seconds so that the deadline is always a valid timespec (a nanosecond
    // field of a second or more would make the timed wait fail instead of waiting).
    if (ts.tv_nsec >= 1000000000L) {
        ts.tv_nsec -= 1000000000L;
        ++ts.tv_sec;
    }
    return ts;
}

// Waits ms milliseconds, resuming after signals.
void SleepMs(kxEnv* env, long ms) {
    struct timespec request {
        ms / 1000, (ms % 1000) * 1000000L
    };
    struct timespec remaining;
    while (env->NanoSleep(&request, &remaining) == -1 && errno == EINTR) request = remaining;
}

void ReportAbandoned(const std::string& name, pid_t deadOwner) {
    char text[200];
    snprintf(text, sizeof(text), "KMutex::Lock: mutex '%s' abandoned by process %d, taken over by process %d",
             name.empty() ? "(no name)" : name.c_str(), static_cast<int>(deadOwner), static_cast<int>(getpid()));
    // The text is used as a format by the system-log call.
    for (char* p = text; *p != '\0'; ++p)
        if (*p == '%') *p = '?';
    kxLogEventStringA(text, 0, kxLogSevWarning, nullptr);
}

}  // namespace

void KMutex::KMutexShared::Close(kxEnv* env) {
    if (LoadSignature(this) == kSignatureReady) {
        env = kxEnv::Or(env);
        env->CondDestroy(&cond);
        env->MutexDestroy(&mutex);
    }
    StoreSignature(this, kSignatureNotReady);
    MarkFree(this);
}

KMutex::KMutex(bool logErrors, kxEnv* env)
    : m_bLogErrors(logErrors),
      m_pShared(nullptr),
      m_hShm(-1),
      m_Embedded(),
      m_MutexAttr(),
      m_CondAttr(),
      m_pEnv(kxEnv::Or(env)) {
    m_Embedded.signature = kSignatureNotReady;
    MarkFree(&m_Embedded);
}

KMutex::~KMutex() { DropBlock(); }

void KMutex::DropBlock() {
    if (m_pShared != nullptr && m_pShared != &m_Embedded) m_pEnv->Munmap(m_pShared, kBlockSize);
    m_Embedded.Close(m_pEnv);
    m_pShared = nullptr;
    if (m_hShm != -1) {
        m_pEnv->Close(m_hShm);
        m_hShm = -1;
    }
}

bool KMutex::IsValid() const { return m_pShared != nullptr && LoadSignature(m_pShared) == kSignatureReady; }

int KMutex::UnixInit(int pshared) {
    m_pShared->Close(m_pEnv);
    kxEnv* env = m_pEnv;
    int rc = env->MutexAttrInit(&m_MutexAttr);
    if (rc != 0) return rc;
    if ((rc = env->MutexAttrSetPshared(&m_MutexAttr, pshared)) == 0 &&
        (rc = env->MutexAttrSetRobust(&m_MutexAttr, PTHREAD_MUTEX_ROBUST)) == 0)
        rc = env->MutexInit(&m_pShared->mutex, &m_MutexAttr);
    env->MutexAttrDestroy(&m_MutexAttr);
    if (rc != 0) return rc;
    if ((rc = env->CondAttrInit(&m_CondAttr)) == 0) {
        if ((rc = env->CondAttrSetPshared(&m_CondAttr, pshared)) == 0)
            rc = env->CondInit(&m_pShared->cond, &m_CondAttr);
        env->CondAttrDestroy(&m_CondAttr);
    }
    if (rc != 0) env->MutexDestroy(&m_pShared->mutex);
    return rc;
}

long KMutex::Create() {
    DropBlock();
    m_strName.clear();
    m_pShared = &m_Embedded;
    const int rc = UnixInit(PTHREAD_PROCESS_PRIVATE);
    if (rc == 0) {
        StoreSignature(m_pShared, kSignatureReady);
        return KX_OK;
    }
    if (m_bLogErrors)
        kxLogPrintfA(KX_E_MUTEX_CREATE, kxLogSevFailure, "%s: error %d creating mutex",
                     "KMutex::Create(no name)", rc);
    SetLastError(static_cast<DWORD>(rc));
    return KX_E_MUTEX_CREATE;
}

long KMutex::Create(const char* name, bool initialOwner) {
    DropBlock();
    m_strName.clear();
    m_bExisted = false;
    bool existed = false;
    bool ready = false;
    int error = EINVAL;  // the failure's error number, for the log
    if (name != nullptr) {
        m_strName = std::string("/") + name;
        const char* shmName = m_strName.c_str();
        // The creator removes the name as soon as it has mapped the block, so an object found
        // existing may be gone a moment later; creating afresh is then the right answer.
        for (int attempt = 0; attempt < 3 && m_hShm == -1; ++attempt) {
            m_hShm = m_pEnv->ShmOpen(shmName, O_RDWR | O_CREAT | O_EXCL, 0666);
            if (m_hShm != -1) break;
            error = errno;
            if (error != EEXIST) break;
            m_hShm = m_pEnv->ShmOpen(shmName, O_RDWR, 0666);
            if (m_hShm != -1) existed = true;
            else if ((error = errno) != ENOENT) break;
        }
        void* view = MAP_FAILED;
        if (m_hShm != -1 && (existed || m_pEnv->Ftruncate(m_hShm, kBlockSize) == 0))
            view = m_pEnv->Mmap(nullptr, kBlockSize, PROT_READ | PROT_WRITE, MAP_SHARED, m_hShm, 0);
        if (m_hShm != -1 && view == MAP_FAILED) error = errno;
        if (view != MAP_FAILED) {
            m_pShared = static_cast<KMutexShared*>(view);
            if (!existed) {
                StoreSignature(m_pShared, kSignatureNotReady);
                const int rc = UnixInit(PTHREAD_PROCESS_SHARED);
                if (rc == 0)
                    StoreSignature(m_pShared, kSignatureReady);
                else
                    error = rc;
                ready = rc == 0;
            } else {
                for (int test = 0; test < kReadyTests && !ready; ++test) {
                    if (test > 0) SleepMs(m_pEnv, 1000);
                    // A creator that has not yet sized the object leaves it empty; touching the
                    // mapping then would fault.
                    struct stat st;
                    ready = m_pEnv->Fstat(m_hShm, &st) == 0 &&
                            st.st_size >= static_cast<off_t>(kBlockSize) &&
                            LoadSignature(m_pShared) == kSignatureReady;
                }
                if (!ready) error = ETIMEDOUT;
            }
            if (!ready) {
                m_pEnv->Munmap(m_pShared, kBlockSize);
                m_pShared = nullptr;
            }
        }
        if (m_hShm != -1) {
            m_pEnv->ShmUnlink(shmName);
            m_pEnv->Close(m_hShm);  // the mapping keeps the object alive
            m_hShm = -1;
        }
    }
    if (!ready) {
        if (m_bLogErrors)
            kxLogPrintfA(KX_E_MUTEX_CREATE, kxLogSevFailure,
                         "%s: error %d creating mutex (name='%s')", "KMutex::Create(ASCII)", error,
                         name != nullptr ? name : "");
        SetLastError(static_cast<DWORD>(error));
        return KX_E_MUTEX_CREATE;
    }
    if (existed) {
        m_bExisted = true;
        SetLastError(ERROR_ALREADY_EXISTS);
        return KX_OK;
    }
    SetLastError(ERROR_SUCCESS);
    return initialOwner ? Lock(kInfinite) : KX_OK;
}

long KMutex::Lock(unsigned long timeoutMs) const { return Lock(timeoutMs, nullptr); }

long KMutex::Lock(unsigned long timeoutMs, bool* abandoned) const {
    if (abandoned != nullptr) *abandoned = false;
    KMutexShared* block = m_pShared;
    if (block == nullptr || LoadSignature(block) != kSignatureReady) return KX_E_NOT_INITIALISED;

    int rc = LockBlock(m_pEnv, block);
    if (rc != 0) {
        if (m_bLogErrors)
            kxLogPrintfA(KX_E_WAIT_FAILED, kxLogSevFailure, "%s: error %d waiting on mutex",
                         "KMutex::Lock", rc);
        return KX_E_WAIT_FAILED;
    }

    const bool forever = timeoutMs == kInfinite;
    // The clock is read only once a wait is needed: the free mutex is the common case.
    timespec deadline{};
    bool haveDeadline = forever;
    const pthread_t self = pthread_self();
    const pid_t process = CurrentPid();
    enum { kNoCheck, kQuickCheck, kThoroughCheck } check = kQuickCheck;
    bool expired = false;
    bool holdsBlock = true;
    pid_t deadOwner = -1;
    long result = KX_OK;
    for (;;) {
        if (block->locked && !IsOwner(block, self, process)) {
            if (check != kNoCheck &&
                OwnerGone(m_pEnv, block->ownerProcess, check == kThoroughCheck)) {
                deadOwner = block->ownerProcess;
                MarkFree(block);
            } else if (expired) {
                result = KX_S_WAIT_TIMEOUT;
                break;
            } else {
                check = kNoCheck;
                const timespec now = Now(m_pEnv);
                if (!haveDeadline) {
                    deadline = AddNs(now, static_cast<long long>(timeoutMs) * 1000000LL);
                    haveDeadline = true;
                }
                timespec until = AddNs(now, kOwnerCheckNs);
                if (!forever && Before(deadline, until)) until = deadline;
                rc = m_pEnv->CondTimedWait(&block->cond, &block->mutex, &until);
                if (rc == 0) continue;
                if (rc == EOWNERDEAD) {
                    rc = m_pEnv->MutexConsistent(&block->mutex);
                    if (rc == 0) {
                        Repair(block);
                        check = kQuickCheck;
                        continue;
                    }
                } else if (rc == ETIMEDOUT) {
                    check = kThoroughCheck;
                    expired = !forever && !Before(Now(m_pEnv), deadline);
                    continue;
                }
                holdsBlock = rc != ENOTRECOVERABLE;
                result = kxPlatformStatus(rc, KX_E_WAIT_FAILED);
                break;
            }
        }
        ++block->lockCount;
        block->ownerThread = self;
        block->ownerProcess = process;
        block->locked = true;
        break;
    }
    if (holdsBlock) kxEnvMutexUnlock(m_pEnv, &block->mutex);

    if (deadOwner != -1) {
        if (abandoned != nullptr) *abandoned = true;
        if (m_bLogErrors) ReportAbandoned(m_strName, deadOwner);
    }
    if (result != KX_OK && result != KX_S_WAIT_TIMEOUT && m_bLogErrors)
        kxLogPrintfA(result, kxLogSevFailure, "%s: error %d waiting on mutex", "KMutex::Lock", rc);
    return result;
}

long KMutex::Unlock() const {
    KMutexShared* block = m_pShared;
    if (block == nullptr || LoadSignature(block) != kSignatureReady) return KX_E_NOT_INITIALISED;
    long result = KX_OK;
    int rc = LockBlock(m_pEnv, block);
    int error = rc;
    if (rc != 0) {
        result = KX_E_MUTEX_RELEASE;
    } else {
        if (IsOwner(block, pthread_self(), CurrentPid())) {
            // The count only records that the mutex is held: one Unlock releases every level.
            if (--block->lockCount >= 0) {
                MarkFree(block);
                rc = kxEnvCondSignal(m_pEnv, &block->cond);
                if (rc != 0) {
                    error = rc;
                    result = KX_E_MUTEX_RELEASE;
                }
            }
        }
        rc = kxEnvMutexUnlock(m_pEnv, &block->mutex);
        if (rc != 0) {
            error = rc;
            result = KX_E_MUTEX_RELEASE;
        }
    }
    if (result != KX_OK && m_bLogErrors)
        kxLogPrintfA(KX_E_MUTEX_RELEASE, kxLogSevFailure, "%s: error %d releasing mutex",
                     "KMutex::Unlock", error);
    return result;
}
