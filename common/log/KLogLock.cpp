#include "log/KLogLock.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>

#include "log/kxLogErrno.h"
#include "platform/KFileABC.h"
#include "platform/KMutex.h"

static_assert(offsetof(KLogLockShared, fileLockMode) == 64 &&
                  offsetof(KLogLockShared, journal) == 68,
              "flag and journal at the start of the second cache line");
static_assert(offsetof(KLogLockShared, mutex) == KLogLockShared::kMutexOffset,
              "mutex at a fixed offset on both targets");
static_assert(sizeof(KLogLockShared) <= KLogLockShared::kFileSize, "the lock file holds it all");
static_assert(KLogLockShared::kMutexOffset + sizeof(pthread_mutex_t) <= 128,
              "the mutex ends within the second cache line");
// The other target's processes read the holder's thread id from the futex word, which glibc
// keeps first in the mutex on both targets.
static_assert(offsetof(pthread_mutex_t, __data.__lock) == 0, "futex word first");

namespace {

uint32_t g_dwAbiForTest = 0;

uint32_t ThisAbi() {
    return g_dwAbiForTest != 0 ? g_dwAbiForTest : kxLogLockAbi();
}

// Bits of a robust futex word (the kernel's robust-futex ABI).
constexpr uint32_t kFutexTidMask = 0x3FFFFFFF;
// The owner the C library records in a robust mutex that can no longer be taken.
constexpr int kOwnerNotRecoverable = 0x7FFFFFFE;

uint64_t NowNs(kxEnv* env) {
    struct timespec ts;
    if (env->ClockGetTime(CLOCK_MONOTONIC, &ts) != 0) return 0;
    return static_cast<uint64_t>(ts.tv_sec) * 1000000000ull + static_cast<uint64_t>(ts.tv_nsec);
}

void PauseNs(kxEnv* env, long ns) {
    struct timespec ts {
        0, ns
    };
    env->NanoSleep(&ts, nullptr);
}

void CpuRelax() {
#if defined(__i386__) || defined(__x86_64__)
    __builtin_ia32_pause();
#endif
}

// One open-file-description lock call on [start, start + length) of fd.
int RangeLock(kxEnv* env, int fd, int cmd, short type, int64_t start, int64_t length,
              struct flock* out = nullptr) {
    struct flock lock;
    memset(&lock, 0, sizeof lock);
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = static_cast<off_t>(start);
    lock.l_len = static_cast<off_t>(length);
    const int r = env->FcntlLock(fd, cmd, &lock);
    if (out != nullptr) *out = lock;
    return r;
}

}  // namespace

uint32_t kxLogLockAbi() {
    return static_cast<uint32_t>(sizeof(void*) << 16 | sizeof(pthread_mutex_t));
}

void kxLogLockSetAbiForTest(uint32_t abi) {
    g_dwAbiForTest = abi;
}

// ---- opening -------------------------------------------------------------------------------

long KLogLock::Open(const char* logPath, bool writer, unsigned long timeoutMs, KMutex* local) {
    Close();
    m_bWriter = writer;
    m_pLocal = local;
    m_sLockPath = std::string(logPath) + ".lock";
    m_fdLog = m_pEnv->Open(logPath, (writer ? O_RDWR : O_RDONLY) | O_CLOEXEC, 0);
    if (m_fdLog < 0) return KX_E_FILE_OPEN;
    Found found = Attach(false);
    if (found != Found::kUsable && writer) {
        // A writer announces itself as a possible file-lock user before it looks for the lock
        // file a last time (and makes it if there is none): a process that creates the lock
        // file afterwards then sees it. Dropped again if the mutex serves after all.
        Unmap();
        RangeLock(m_pEnv, m_fdLog, F_OFD_SETLK, F_RDLCK, kxLogFileLockEnd, 1);
        found = Attach(true);
        if (found == Found::kUsable) RangeLock(m_pEnv, m_fdLog, F_OFD_SETLK, F_UNLCK, kxLogFileLockEnd, 1);
    }
    switch (found) {
        case Found::kUsable: {
            m_pJournal = &m_pShared->journal;
            m_mode.store(Mode::kMutex, std::memory_order_relaxed);
            const long status = SettleFileLockFlag(timeoutMs);
            if (status != KX_E_LOG_LOCK_FILE) return status;
            // A mutex that can never be taken again: the file lock for everyone.
            if (writer) RangeLock(m_pEnv, m_fdLog, F_OFD_SETLK, F_RDLCK, kxLogFileLockEnd, 1);
            __atomic_store_n(&m_pShared->fileLockMode, 1, __ATOMIC_SEQ_CST);
            m_mode.store(Mode::kFileLock, std::memory_order_relaxed);
            return KX_OK;
        }
        case Found::kForeign:
            if (writer) return StartFileLockMode(timeoutMs);
            break;
        case Found::kReadOnly:
            // Mutex users take the file lock only while the flag is set: a writer that cannot
            // set it must not write beside them.
            if (writer && __atomic_load_n(&m_pShared->fileLockMode, __ATOMIC_SEQ_CST) == 0) {
                Close();
                return KX_E_LOG_LOCK_FILE;
            }
            break;
        case Found::kMissing:
        case Found::kUnusable:
            break;
    }
    // The file lock alone. A writer keeps its presence lock for as long as it is open.
    m_pJournal = nullptr;
    m_mode.store(Mode::kFileLock, std::memory_order_relaxed);
    return KX_OK;
}

void KLogLock::Unmap() {
    if (m_pShared != nullptr) m_pEnv->Munmap(m_pShared, KLogLockShared::kFileSize);
    m_pShared = nullptr;
    m_pJournal = nullptr;
}

void KLogLock::Close() {
    Unmap();
    if (m_fdLog >= 0) m_pEnv->Close(m_fdLog);  // drops every file lock this object held
    m_fdLog = -1;
    m_dwDepth = 0;
    m_bFileLockHeld = false;
    m_mode.store(Mode::kNone, std::memory_order_relaxed);
}

// Opens the lock file (creating it when there is none, if mayCreate), makes sure it is
// initialised (writers initialise it, readers only wait for that) and maps it. Initialisation
// happens under an open-file-description write lock on the lock file itself, and the signature is
// written last: whoever finds the signature missing takes that lock and looks again, so exactly one
// process initialises the file, and one killed half way is simply followed by the next (the kernel
// drops its lock; nobody used the half-made mutex, since nobody attaches before the signature is
// there).
KLogLock::Found KLogLock::Attach(bool mayCreate) {
    bool writable = true;
    bool created = false;
    int fd = -1;
    if (mayCreate) {
        fd = m_pEnv->Open(m_sLockPath.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        created = fd >= 0;
    }
    if (fd < 0) fd = m_pEnv->Open(m_sLockPath.c_str(), O_RDWR | O_CLOEXEC, 0);
    if (fd < 0 && (errno == EACCES || errno == EPERM || errno == EROFS)) {
        writable = false;
        fd = m_pEnv->Open(m_sLockPath.c_str(), O_RDONLY | O_CLOEXEC, 0);
    }
    if (fd < 0) return errno == ENOENT ? Found::kMissing : Found::kUnusable;
    // Whoever may write the log may write its lock.
    struct stat st;
    if (created && m_pEnv->Fstat(m_fdLog, &st) == 0) m_pEnv->Fchmod(fd, st.st_mode & 0666);
    const bool ready = Prepare(fd, m_bWriter && writable);
    void* map = MAP_FAILED;
    if (ready && m_pEnv->Fstat(fd, &st) == 0 && S_ISREG(st.st_mode) &&
        st.st_size >= KLogLockShared::kFileSize)
        map = m_pEnv->Mmap(nullptr, KLogLockShared::kFileSize,
                           writable ? PROT_READ | PROT_WRITE : PROT_READ, MAP_SHARED, fd, 0);
    m_pEnv->Close(fd);
    if (map == MAP_FAILED) return Found::kUnusable;
    KLogLockShared* shared = static_cast<KLogLockShared*>(map);
    if (__atomic_load_n(&shared->signature, __ATOMIC_ACQUIRE) != KLogLockShared::kSignature ||
        shared->version != KLogLockShared::kVersion) {
        m_pEnv->Munmap(map, KLogLockShared::kFileSize);
        return Found::kUnusable;
    }
    m_pShared = shared;
    if (!writable) return Found::kReadOnly;
    return shared->abi == ThisAbi() ? Found::kUsable : Found::kForeign;
}

namespace {

bool HasSignature(kxEnv* env, int fd) {
    uint32_t signature = 0;
    return env->Pread(fd, &signature, sizeof signature, 0) == sizeof signature &&
           signature == KLogLockShared::kSignature;
}

// Waits up to about five seconds for a whole-file lock on fd (a lock file is initialised in
// well under a millisecond).
bool LockWholeFile(kxEnv* env, int fd, short type) {
    for (int attempt = 0; attempt < 5000; ++attempt) {
        if (RangeLock(env, fd, F_OFD_SETLK, type, 0, 0) == 0) return true;
        if (kxLogStatusFromErrno(errno) != KX_S_WAIT_TIMEOUT) return false;
        PauseNs(env, 1000000);
    }
    return false;
}

bool Initialise(kxEnv* env, int fd) {
    if (env->Ftruncate(fd, KLogLockShared::kFileSize) != 0) return false;
    void* map = env->Mmap(nullptr, KLogLockShared::kFileSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (map == MAP_FAILED) return false;
    KLogLockShared* shared = static_cast<KLogLockShared*>(map);
    memset(map, 0, KLogLockShared::kFileSize);
    shared->version = KLogLockShared::kVersion;
    shared->abi = ThisAbi();
    pthread_mutexattr_t attr;
    bool ok = env->MutexAttrInit(&attr) == 0;
    if (ok) {
        ok = env->MutexAttrSetPshared(&attr, PTHREAD_PROCESS_SHARED) == 0 &&
             env->MutexAttrSetRobust(&attr, PTHREAD_MUTEX_ROBUST) == 0 &&
             env->MutexAttrSetType(&attr, PTHREAD_MUTEX_RECURSIVE) == 0 &&
             env->MutexInit(&shared->mutex, &attr) == 0;
        env->MutexAttrDestroy(&attr);
    }
    if (ok) __atomic_store_n(&shared->signature, KLogLockShared::kSignature, __ATOMIC_RELEASE);
    env->Munmap(map, KLogLockShared::kFileSize);
    return ok;
}

}  // namespace

bool KLogLock::Prepare(int fd, bool mayInitialise) {
    if (HasSignature(m_pEnv, fd)) return true;
    // Being initialised (wait for it), abandoned half way, or new.
    if (!LockWholeFile(m_pEnv, fd, mayInitialise ? F_WRLCK : F_RDLCK)) return false;
    bool ready = HasSignature(m_pEnv, fd);
    if (!ready && mayInitialise) ready = Initialise(m_pEnv, fd);
    RangeLock(m_pEnv, fd, F_OFD_SETLK, F_UNLCK, 0, 0);
    return ready;
}

bool KLogLock::FileLockUserPresent() const {
    struct flock probe;
    if (RangeLock(m_pEnv, m_fdLog, F_OFD_GETLK, F_WRLCK, kxLogFileLockEnd, 1, &probe) != 0) return false;
    return probe.l_type != F_UNLCK;
}

// Under the mutex, so that no other mutex user appends while the flag is briefly clear: set
// the flag when a file-lock user is present, clear it when none is. A user that announces
// itself after the probe sets the flag itself, later than the clearing.
long KLogLock::SettleFileLockFlag(unsigned long timeoutMs) {
    if (!m_bWriter) return KX_OK;
    const long status = LockMutex(timeoutMs);
    if (status != KX_OK) return status;
    uint32_t* flag = &m_pShared->fileLockMode;
    if (FileLockUserPresent()) {
        __atomic_store_n(flag, 1, __ATOMIC_SEQ_CST);
    } else if (__atomic_load_n(flag, __ATOMIC_SEQ_CST) != 0) {
        __atomic_store_n(flag, 0, __ATOMIC_SEQ_CST);
        if (FileLockUserPresent()) __atomic_store_n(flag, 1, __ATOMIC_SEQ_CST);
    }
    kxEnvMutexUnlock(m_pEnv, &m_pShared->mutex);
    return KX_OK;
}

// A process that cannot take this mutex (another target's layout): raise the flag, then wait
// until whoever holds the mutex now, and may have read the flag clear, has let it go. Any
// later holder reads the flag after taking the mutex and takes the file lock too.
long KLogLock::StartFileLockMode(unsigned long timeoutMs) {
    __atomic_store_n(&m_pShared->fileLockMode, 1, __ATOMIC_SEQ_CST);
    const uint32_t* futex = reinterpret_cast<const uint32_t*>(&m_pShared->mutex);
    const uint32_t holder = __atomic_load_n(futex, __ATOMIC_SEQ_CST) & kFutexTidMask;
    const uint64_t deadline = NowNs(m_pEnv) + static_cast<uint64_t>(timeoutMs) * 1000000ull;
    // A dead holder's thread id is cleared by the kernel, so this ends for it too.
    while (holder != 0 && (__atomic_load_n(futex, __ATOMIC_SEQ_CST) & kFutexTidMask) == holder) {
        if (NowNs(m_pEnv) >= deadline) {
            Close();
            return KX_S_WAIT_TIMEOUT;
        }
        PauseNs(m_pEnv, 100000);
    }
    m_pJournal = &m_pShared->journal;
    m_mode.store(Mode::kFileLock, std::memory_order_relaxed);
    return KX_OK;
}

// ---- locking -------------------------------------------------------------------------------

long KLogLock::LockMutex(unsigned long timeoutMs) {
    pthread_mutex_t* m = &m_pShared->mutex;
    // A mutex left unrecoverable (a holder died and the next let it go without marking it
    // consistent, which this library never does) is recognised before trying it: the C library's
    // try-lock would report it but keep the futex word taken, blocking everyone for good.
    if (__atomic_load_n(&m->__data.__owner, __ATOMIC_RELAXED) == kOwnerNotRecoverable)
        return KX_E_LOG_LOCK_FILE;
    int r = kxEnvMutexTryLock(m_pEnv, m);
    // Holders keep it for a fraction of a microsecond: a short spin usually beats sleeping.
    for (int spin = 0; r == EBUSY && spin < 10; ++spin) {
        for (int i = 0; i < 16; ++i) CpuRelax();
        r = kxEnvMutexTryLock(m_pEnv, m);
    }
    if (r == EBUSY) {
        const uint64_t deadlineNs = NowNs(m_pEnv) + static_cast<uint64_t>(timeoutMs) * 1000000ull;
        struct timespec ts;
        ts.tv_sec = static_cast<time_t>(deadlineNs / 1000000000ull);
        ts.tv_nsec = static_cast<long>(deadlineNs % 1000000000ull);
        r = m_pEnv->MutexClockLock(m, CLOCK_MONOTONIC, &ts);
    }
    if (r == EOWNERDEAD) {
        // The dead holder's append, if any, is still in the journal: the first holder with the
        // ring mapped repairs it.
        m_pEnv->MutexConsistent(m);
        return KX_OK;
    }
    return kxLogStatusFromErrno(r);
}

long KLogLock::LockFileRange(unsigned long timeoutMs) const {
    const uint64_t deadlineNs = NowNs(m_pEnv) + static_cast<uint64_t>(timeoutMs) * 1000000ull;
    const short type = m_bWriter ? F_WRLCK : F_RDLCK;
    long pauseNs = 20000;
    for (unsigned attempt = 0;; ++attempt) {
        if (RangeLock(m_pEnv, m_fdLog, F_OFD_SETLK, type, 0, kxLogFileLockEnd) == 0) return KX_OK;
        const long status = kxLogStatusFromErrno(errno);
        if (status != KX_S_WAIT_TIMEOUT) return status;
        if (NowNs(m_pEnv) >= deadlineNs) return KX_S_WAIT_TIMEOUT;
        // The holder usually lets go within microseconds: yield first, then sleep in growing
        // steps.
        if (attempt < 32) {
            sched_yield();
        } else {
            PauseNs(m_pEnv, pauseNs);
            pauseNs = std::min(pauseNs * 2, 1000000L);
        }
    }
}

void KLogLock::UnlockFileRange() const {
    RangeLock(m_pEnv, m_fdLog, F_OFD_SETLK, F_UNLCK, 0, kxLogFileLockEnd);
}

// The whole wait is allowed to each lock taken in turn: the mutex is normally had at once, and
// a file lock held beside it is a slow path anyway.
long KLogLock::Lock(unsigned long timeoutMs, KLogFile* image) {
    Mode mode = m_mode.load(std::memory_order_relaxed);
    if (mode == Mode::kMutex) {
        long status = LockMutex(timeoutMs);
        if (status == KX_E_LOG_LOCK_FILE) {
            // The mutex can never be taken again: every process moves to the file lock.
            if (m_bWriter) RangeLock(m_pEnv, m_fdLog, F_OFD_SETLK, F_RDLCK, kxLogFileLockEnd, 1);
            __atomic_store_n(&m_pShared->fileLockMode, 1, __ATOMIC_SEQ_CST);
            m_mode.store(Mode::kFileLock, std::memory_order_relaxed);
            mode = Mode::kFileLock;
        } else if (status != KX_OK) {
            return status;
        } else {
            if (m_dwDepth++ == 0) {
                if (__atomic_load_n(&m_pShared->fileLockMode, __ATOMIC_SEQ_CST) != 0) {
                    status = LockFileRange(timeoutMs);
                    if (status != KX_OK) {
                        m_dwDepth = 0;
                        kxEnvMutexUnlock(m_pEnv, &m_pShared->mutex);
                        return status;
                    }
                    m_bFileLockHeld = true;
                }
                Repair(image);
            }
            return KX_OK;
        }
    }
    if (mode != Mode::kFileLock || m_pLocal == nullptr) return KX_E_NOT_INITIALISED;
    // The file lock belongs to the open file, which threads and forked children share: the
    // named mutex keeps them apart.
    long status = m_pLocal->Lock(timeoutMs);
    if (status != KX_OK) return status;
    if (m_dwDepth++ == 0) {
        status = LockFileRange(timeoutMs);
        if (status != KX_OK) {
            m_dwDepth = 0;
            m_pLocal->Unlock();
            return status;
        }
        m_bFileLockHeld = true;
        Repair(image);
    }
    return KX_OK;
}

void KLogLock::Unlock() {
    if (m_dwDepth == 0) return;
    const bool outermost = --m_dwDepth == 0;
    if (outermost && m_bFileLockHeld) {
        UnlockFileRange();
        m_bFileLockHeld = false;
    }
    if (m_mode.load(std::memory_order_relaxed) == Mode::kMutex)
        kxEnvMutexUnlock(m_pEnv, &m_pShared->mutex);
    else if (outermost && m_pLocal != nullptr)
        m_pLocal->Unlock();
}

void KLogLock::Repair(KLogFile* image) {
    if (image != nullptr && m_bWriter && m_pJournal != nullptr && m_pJournal->active != 0)
        image->RecoverAppend(*m_pJournal);
}

void KLogLock::ClearJournal() {
    if (m_pJournal != nullptr && m_bWriter) m_pJournal->active = 0;
}
