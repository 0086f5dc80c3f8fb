// kxEnv: the operating system as the library's file, mapping, lock, clock and heap code sees it.
//
// Every system call those paths make goes through one kxEnv object: kxEnv::Posix() is the real
// system; a test derives from kxEnvWrapper, overrides only the calls it wants to fail (a failed
// open, an ENOSPC from ftruncate, a refused lock, a failed mmap or msync, a short write, a dead
// lock owner) and forwards everything else to the real system.
//
// How a unit gets its Env:
//   - Objects hold one. Their constructors take an optional `kxEnv*`; null (the default) means
//     kxEnv::Default() as it is at construction, kept for the object's whole life (KFile,
//     KFileUnix, KMutex, KLogLock, KDirectory). An object never switches Env midway, so a fault
//     injected into one object cannot reach another that was built before the wrapper existed.
//   - The log stream's constructor has no room for one: its file, named mutex and lock capture
//     kxEnv::Default() when the stream is built, so a test builds the stream inside a
//     kxScopedEnv (the stream's own few calls read Default() as they go).
//   - KCriticalSection (whose layout is fixed) and the free functions (the Win32-shaped
//     functions, kxHeap, the file-tree utilities) use kxEnv::Default() at each call; tests
//     reach them with a kxScopedEnv, which installs a wrapper as the process Env for a scope.
//
// What a call must look like: each method stands for the system call or C-library function it
// is named after and has its exact contract: the same arguments, the same return value, and on
// failure the same errno (for the calls that report through errno) or the same returned error
// number (the pthread calls, which leave errno alone). A wrapper that fails a call must do the
// same, e.g. `errno = ENOSPC; return -1;` for Ftruncate, `errno = ENOMEM; return MAP_FAILED;` for
// Mmap, `return EAGAIN;` for MutexTryLock. A short write returns fewer bytes than asked and sets
// no errno. Callers then turn errno into their own status in one place per layer.
//
// Thread safety: Posix() is stateless and may be used from any thread. kxEnvWrapper itself only
// forwards; a subclass that keeps counters or switches must make them safe for the threads of
// its test. Default() may be read from any thread; kxScopedEnv changes it and must be used only
// while no other thread is constructing objects or calling the per-call users listed above.
//
// Lifetime: Posix() lives until the process ends (it is never destroyed, so exit handlers may
// still log through it). A wrapper must outlive every object that captured it and every
// kxScopedEnv that installed it.
//
// Left out on purpose: getpid, uname, sysconf, gethostname, times and sched_yield, queries of
// identity and scheduling that cannot fail in a way any of these paths could handle.
#pragma once

#include <glob.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/types.h>
#include <time.h>
#include <utime.h>

#include <atomic>
#include <cstddef>

struct flock;

class kxEnv {
public:
    kxEnv() = default;
    virtual ~kxEnv() = default;
    kxEnv(const kxEnv&) = delete;
    kxEnv& operator=(const kxEnv&) = delete;

    // The real operating system. Never null, never destroyed.
    static kxEnv* Posix();
    // The process Env: Posix() unless a kxScopedEnv is alive. Never null.
    static kxEnv* Default() {
        kxEnv* env = s_pInstalled.load(std::memory_order_acquire);
        return env != nullptr ? env : Posix();
    }
    // The Env a kxScopedEnv installed, or null while the process uses the real system. For the
    // per-call users on hot paths (see kxEnvMutexLock below), which skip Posix()'s guard.
    static kxEnv* Installed() { return s_pInstalled.load(std::memory_order_acquire); }
    // True for Posix() only. Hot paths test it to make the system call directly instead of the
    // virtual call, which is measurable where a lock is taken per allocation or per append.
    bool IsPosix() const { return m_bPosix; }
    // `env` if given, else Default(): what an object stores when its constructor was given env.
    static kxEnv* Or(kxEnv* env) { return env != nullptr ? env : Default(); }

    // ---- descriptors and files (-1 and errno on failure unless stated) ----------------------
    virtual int Open(const char* path, int flags, mode_t mode) = 0;
    virtual int Close(int fd) = 0;
    virtual ssize_t Read(int fd, void* buffer, size_t count) = 0;
    virtual ssize_t Write(int fd, const void* buffer, size_t count) = 0;
    virtual ssize_t Pread(int fd, void* buffer, size_t count, off_t offset) = 0;
    virtual ssize_t Pwrite(int fd, const void* buffer, size_t count, off_t offset) = 0;
    virtual off_t Lseek(int fd, off_t offset, int whence) = 0;
    virtual int Fstat(int fd, struct stat* st) = 0;
    virtual int Stat(const char* path, struct stat* st) = 0;
    virtual int Ftruncate(int fd, off_t length) = 0;
    // posix_fallocate: returns 0 or the error number; errno is not set.
    virtual int Fallocate(int fd, off_t offset, off_t length) = 0;
    virtual int Fsync(int fd) = 0;
    virtual int Fchmod(int fd, mode_t mode) = 0;
    // fcntl with a record-lock command (F_OFD_SETLK, F_OFD_GETLK, F_SETLK, ...).
    virtual int FcntlLock(int fd, int cmd, struct flock* lock) = 0;
    // fcntl(fd, F_DUPFD_CLOEXEC, 0), and dup2.
    virtual int DupCloexec(int fd) = 0;
    virtual int Dup2(int fd, int target) = 0;
    virtual int Utime(const char* path, const struct utimbuf* times) = 0;

    // ---- names in the file system -----------------------------------------------------------
    virtual int Mkdir(const char* path, mode_t mode) = 0;
    virtual int Rmdir(const char* path) = 0;
    virtual int Rename(const char* from, const char* to) = 0;
    virtual int Unlink(const char* path) = 0;
    // glob(3): 0 or GLOB_NOMATCH / GLOB_NOSPACE / GLOB_ABORTED; every result, even a failed
    // one, is released with Globfree.
    virtual int Glob(const char* pattern, int flags, int (*errfunc)(const char*, int),
                     glob_t* result) = 0;
    virtual void Globfree(glob_t* result) = 0;

    // ---- mappings and shared memory (Mmap: MAP_FAILED and errno) ----------------------------
    virtual void* Mmap(void* address, size_t length, int prot, int flags, int fd, off_t offset) = 0;
    virtual int Munmap(void* address, size_t length) = 0;
    virtual int Msync(void* address, size_t length, int flags) = 0;
    virtual int ShmOpen(const char* name, int flags, mode_t mode) = 0;
    virtual int ShmUnlink(const char* name) = 0;

    // ---- pthread mutexes and conditions (0 or the error number; errno untouched) -------------
    virtual int MutexAttrInit(pthread_mutexattr_t* attr) = 0;
    virtual int MutexAttrDestroy(pthread_mutexattr_t* attr) = 0;
    virtual int MutexAttrSetType(pthread_mutexattr_t* attr, int type) = 0;
    virtual int MutexAttrSetPshared(pthread_mutexattr_t* attr, int pshared) = 0;
    virtual int MutexAttrSetRobust(pthread_mutexattr_t* attr, int robust) = 0;
    virtual int MutexInit(pthread_mutex_t* mutex, const pthread_mutexattr_t* attr) = 0;
    virtual int MutexDestroy(pthread_mutex_t* mutex) = 0;
    virtual int MutexLock(pthread_mutex_t* mutex) = 0;
    virtual int MutexTryLock(pthread_mutex_t* mutex) = 0;
    virtual int MutexClockLock(pthread_mutex_t* mutex, clockid_t clock,
                               const struct timespec* deadline) = 0;
    virtual int MutexUnlock(pthread_mutex_t* mutex) = 0;
    virtual int MutexConsistent(pthread_mutex_t* mutex) = 0;
    virtual int CondAttrInit(pthread_condattr_t* attr) = 0;
    virtual int CondAttrDestroy(pthread_condattr_t* attr) = 0;
    virtual int CondAttrSetPshared(pthread_condattr_t* attr, int pshared) = 0;
    virtual int CondInit(pthread_cond_t* cond, const pthread_condattr_t* attr) = 0;
    virtual int CondDestroy(pthread_cond_t* cond) = 0;
    virtual int CondTimedWait(pthread_cond_t* cond, pthread_mutex_t* mutex,
                              const struct timespec* deadline) = 0;
    virtual int CondSignal(pthread_cond_t* cond) = 0;

    // ---- processes, clocks and sleeping ------------------------------------------------------
    // kill(pid, 0) is how lock owners are probed: ESRCH tells a dead owner.
    virtual int Kill(pid_t pid, int signal) = 0;
    virtual int GetTimeOfDay(struct timeval* tv) = 0;
    virtual int ClockGetTime(clockid_t clock, struct timespec* ts) = 0;
    virtual int NanoSleep(const struct timespec* request, struct timespec* remaining) = 0;

    // ---- heap (null on failure, errno ENOMEM) -------------------------------------------------
    virtual void* Malloc(size_t bytes) = 0;
    virtual void* Realloc(void* p, size_t bytes) = 0;
    virtual void Free(void* p) = 0;
    // posix_memalign: 0 or the error number; errno is not set.
    virtual int PosixMemalign(void** p, size_t alignment, size_t bytes) = 0;

protected:
    // For the real system only.
    explicit kxEnv(bool posix) : m_bPosix(posix) {}

private:
    friend class kxScopedEnv;
    static std::atomic<kxEnv*> s_pInstalled;  // null: Posix()
    const bool m_bPosix = false;
};

// Forwards every call to a target Env (the real system by default). Derive from it and override
// the calls a test wants to change; call the base method to reach the target.
class kxEnvWrapper : public kxEnv {
public:
    // target: not owned, must outlive the wrapper; null means kxEnv::Posix().
    explicit kxEnvWrapper(kxEnv* target = nullptr)
        : m_pTarget(target != nullptr ? target : Posix()) {}
    kxEnv* Target() const { return m_pTarget; }

    int Open(const char* path, int flags, mode_t mode) override;
    int Close(int fd) override;
    ssize_t Read(int fd, void* buffer, size_t count) override;
    ssize_t Write(int fd, const void* buffer, size_t count) override;
    ssize_t Pread(int fd, void* buffer, size_t count, off_t offset) override;
    ssize_t Pwrite(int fd, const void* buffer, size_t count, off_t offset) override;
    off_t Lseek(int fd, off_t offset, int whence) override;
    int Fstat(int fd, struct stat* st) override;
    int Stat(const char* path, struct stat* st) override;
    int Ftruncate(int fd, off_t length) override;
    int Fallocate(int fd, off_t offset, off_t length) override;
    int Fsync(int fd) override;
    int Fchmod(int fd, mode_t mode) override;
    int FcntlLock(int fd, int cmd, struct flock* lock) override;
    int DupCloexec(int fd) override;
    int Dup2(int fd, int target) override;
    int Utime(const char* path, const struct utimbuf* times) override;
    int Mkdir(const char* path, mode_t mode) override;
    int Rmdir(const char* path) override;
    int Rename(const char* from, const char* to) override;
    int Unlink(const char* path) override;
    int Glob(const char* pattern, int flags, int (*errfunc)(const char*, int),
             glob_t* result) override;
    void Globfree(glob_t* result) override;
    void* Mmap(void* address, size_t length, int prot, int flags, int fd, off_t offset) override;
    int Munmap(void* address, size_t length) override;
    int Msync(void* address, size_t length, int flags) override;
    int ShmOpen(const char* name, int flags, mode_t mode) override;
    int ShmUnlink(const char* name) override;
    int MutexAttrInit(pthread_mutexattr_t* attr) override;
    int MutexAttrDestroy(pthread_mutexattr_t* attr) override;
    int MutexAttrSetType(pthread_mutexattr_t* attr, int type) override;
    int MutexAttrSetPshared(pthread_mutexattr_t* attr, int pshared) override;
    int MutexAttrSetRobust(pthread_mutexattr_t* attr, int robust) override;
    int MutexInit(pthread_mutex_t* mutex, const pthread_mutexattr_t* attr) override;
    int MutexDestroy(pthread_mutex_t* mutex) override;
    int MutexLock(pthread_mutex_t* mutex) override;
    int MutexTryLock(pthread_mutex_t* mutex) override;
    int MutexClockLock(pthread_mutex_t* mutex, clockid_t clock,
                       const struct timespec* deadline) override;
    int MutexUnlock(pthread_mutex_t* mutex) override;
    int MutexConsistent(pthread_mutex_t* mutex) override;
    int CondAttrInit(pthread_condattr_t* attr) override;
    int CondAttrDestroy(pthread_condattr_t* attr) override;
    int CondAttrSetPshared(pthread_condattr_t* attr, int pshared) override;
    int CondInit(pthread_cond_t* cond, const pthread_condattr_t* attr) override;
    int CondDestroy(pthread_cond_t* cond) override;
    int CondTimedWait(pthread_cond_t* cond, pthread_mutex_t* mutex,
                      const struct timespec* deadline) override;
    int CondSignal(pthread_cond_t* cond) override;
    int Kill(pid_t pid, int signal) override;
    int GetTimeOfDay(struct timeval* tv) override;
    int ClockGetTime(clockid_t clock, struct timespec* ts) override;
    int NanoSleep(const struct timespec* request, struct timespec* remaining) override;
    void* Malloc(size_t bytes) override;
    void* Realloc(void* p, size_t bytes) override;
    void Free(void* p) override;
    int PosixMemalign(void** p, size_t alignment, size_t bytes) override;

private:
    kxEnv* m_pTarget;
};

// Installs `env` as the process Env (kxEnv::Default()) until the end of the scope, then puts
// back the one that was there. Scopes nest. For tests: see the thread-safety note above.
class kxScopedEnv {
public:
    explicit kxScopedEnv(kxEnv* env);
    ~kxScopedEnv();
    kxScopedEnv(const kxScopedEnv&) = delete;
    kxScopedEnv& operator=(const kxScopedEnv&) = delete;

private:
    kxEnv* m_pSaved;
};

// The pthread calls of the hot paths (the critical section, the named mutex, the log lock):
// the system call itself when env is null (nothing installed) or the real system, else env's
// method. The same contract as the methods.
inline int kxEnvMutexLock(kxEnv* env, pthread_mutex_t* mutex) {
    return env == nullptr || env->IsPosix() ? pthread_mutex_lock(mutex) : env->MutexLock(mutex);
}
inline int kxEnvMutexTryLock(kxEnv* env, pthread_mutex_t* mutex) {
    return env == nullptr || env->IsPosix() ? pthread_mutex_trylock(mutex)
                                            : env->MutexTryLock(mutex);
}
inline int kxEnvMutexUnlock(kxEnv* env, pthread_mutex_t* mutex) {
    return env == nullptr || env->IsPosix() ? pthread_mutex_unlock(mutex)
                                            : env->MutexUnlock(mutex);
}
inline int kxEnvCondSignal(kxEnv* env, pthread_cond_t* cond) {
    return env == nullptr || env->IsPosix() ? pthread_cond_signal(cond) : env->CondSignal(cond);
}
