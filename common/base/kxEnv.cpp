#include "base/kxEnv.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <new>

namespace {

// The real system: each method is the call it is named after, nothing more.
class PosixEnv final : public kxEnv {
public:
    PosixEnv() : kxEnv(true) {}
    int Open(const char* path, int flags, mode_t mode) override {
        return ::open(path, flags, mode);
    }
    int Close(int fd) override { return ::close(fd); }
    ssize_t Read(int fd, void* buffer, size_t count) override { return ::read(fd, buffer, count); }
    ssize_t Write(int fd, const void* buffer, size_t count) override {
        return ::write(fd, buffer, count);
    }
    ssize_t Pread(int fd, void* buffer, size_t count, off_t offset) override {
        return ::pread(fd, buffer, count, offset);
    }
    ssize_t Pwrite(int fd, const void* buffer, size_t count, off_t offset) override {
        return ::pwrite(fd, buffer, count, offset);
    }
    off_t Lseek(int fd, off_t offset, int whence) override { return ::lseek(fd, offset, whence); }
    int Fstat(int fd, struct stat* st) override { return ::fstat(fd, st); }
    int Stat(const char* path, struct stat* st) override { return ::stat(path, st); }
    int Ftruncate(int fd, off_t length) override { return ::ftruncate(fd, length); }
    int Fallocate(int fd, off_t offset, off_t length) override {
        return ::posix_fallocate(fd, offset, length);
    }
    int Fsync(int fd) override { return ::fsync(fd); }
    int Fchmod(int fd, mode_t mode) override { return ::fchmod(fd, mode); }
    int FcntlLock(int fd, int cmd, struct flock* lock) override { return ::fcntl(fd, cmd, lock); }
    int DupCloexec(int fd) override { return ::fcntl(fd, F_DUPFD_CLOEXEC, 0); }
    int Dup2(int fd, int target) override { return ::dup2(fd, target); }
    int Utime(const char* path, const struct utimbuf* times) override {
        return ::utime(path, times);
    }

    int Mkdir(const char* path, mode_t mode) override { return ::mkdir(path, mode); }
    int Rmdir(const char* path) override { return ::rmdir(path); }
    int Rename(const char* from, const char* to) override { return ::rename(from, to); }
    int Unlink(const char* path) override { return ::unlink(path); }
    int Glob(const char* pattern, int flags, int (*errfunc)(const char*, int),
             glob_t* result) override {
        return ::glob(pattern, flags, errfunc, result);
    }
    void Globfree(glob_t* result) override { ::globfree(result); }

    void* Mmap(void* address, size_t length, int prot, int flags, int fd, off_t offset) override {
        return ::mmap(address, length, prot, flags, fd, offset);
    }
    int Munmap(void* address, size_t length) override { return ::munmap(address, length); }
    int Msync(void* address, size_t length, int flags) override {
        return ::msync(address, length, flags);
    }
    int ShmOpen(const char* name, int flags, mode_t mode) override {
        return ::shm_open(name, flags, mode);
    }
    int ShmUnlink(const char* name) override { return ::shm_unlink(name); }

    int MutexAttrInit(pthread_mutexattr_t* attr) override { return pthread_mutexattr_init(attr); }
    int MutexAttrDestroy(pthread_mutexattr_t* attr) override {
        return pthread_mutexattr_destroy(attr);
    }
    int MutexAttrSetType(pthread_mutexattr_t* attr, int type) override {
        return pthread_mutexattr_settype(attr, type);
    }
    int MutexAttrSetPshared(pthread_mutexattr_t* attr, int pshared) override {
        return pthread_mutexattr_setpshared(attr, pshared);
    }
    int MutexAttrSetRobust(pthread_mutexattr_t* attr, int robust) override {
        return pthread_mutexattr_setrobust(attr, robust);
    }
    int MutexInit(pthread_mutex_t* mutex, const pthread_mutexattr_t* attr) override {
        return pthread_mutex_init(mutex, attr);
    }
    int MutexDestroy(pthread_mutex_t* mutex) override { return pthread_mutex_destroy(mutex); }
    int MutexLock(pthread_mutex_t* mutex) override { return pthread_mutex_lock(mutex); }
    int MutexTryLock(pthread_mutex_t* mutex) override { return pthread_mutex_trylock(mutex); }
    int MutexClockLock(pthread_mutex_t* mutex, clockid_t clock,
                       const struct timespec* deadline) override {
        return pthread_mutex_clocklock(mutex, clock, deadline);
    }
    int MutexUnlock(pthread_mutex_t* mutex) override { return pthread_mutex_unlock(mutex); }
    int MutexConsistent(pthread_mutex_t* mutex) override { return pthread_mutex_consistent(mutex); }
    int CondAttrInit(pthread_condattr_t* attr) override { return pthread_condattr_init(attr); }
    int CondAttrDestroy(pthread_condattr_t* attr) override {
        return pthread_condattr_destroy(attr);
    }
    int CondAttrSetPshared(pthread_condattr_t* attr, int pshared) override {
        return pthread_condattr_setpshared(attr, pshared);
    }
    int CondInit(pthread_cond_t* cond, const pthread_condattr_t* attr) override {
        return pthread_cond_init(cond, attr);
    }
    int CondDestroy(pthread_cond_t* cond) override { return pthread_cond_destroy(cond); }
    int CondTimedWait(pthread_cond_t* cond, pthread_mutex_t* mutex,
                      const struct timespec* deadline) override {
        return pthread_cond_timedwait(cond, mutex, deadline);
    }
    int CondSignal(pthread_cond_t* cond) override { return pthread_cond_signal(cond); }

    int Kill(pid_t pid, int signal) override { return ::kill(pid, signal); }
    int GetTimeOfDay(struct timeval* tv) override { return ::gettimeofday(tv, nullptr); }
    int ClockGetTime(clockid_t clock, struct timespec* ts) override {
        return ::clock_gettime(clock, ts);
    }
    int NanoSleep(const struct timespec* request, struct timespec* remaining) override {
        return ::nanosleep(request, remaining);
    }

    void* Malloc(size_t bytes) override { return ::malloc(bytes); }
    void* Realloc(void* p, size_t bytes) override { return ::realloc(p, bytes); }
    void Free(void* p) override { ::free(p); }
    int PosixMemalign(void** p, size_t alignment, size_t bytes) override {
        return ::posix_memalign(p, alignment, bytes);
    }
};


}  // namespace

// Null until a kxScopedEnv installs something: constant-initialised, so it is valid before any
// static constructor runs.
std::atomic<kxEnv*> kxEnv::s_pInstalled{nullptr};

kxEnv* kxEnv::Posix() {
    // Built in static storage and never destroyed: exit handlers and the destructors of other
    // static objects may still call into it.
    alignas(PosixEnv) static unsigned char storage[sizeof(PosixEnv)];
    static kxEnv* const env = new (storage) PosixEnv();
    return env;
}


kxScopedEnv::kxScopedEnv(kxEnv* env)
    : m_pSaved(kxEnv::s_pInstalled.exchange(env, std::memory_order_acq_rel)) {}

kxScopedEnv::~kxScopedEnv() {
    kxEnv::s_pInstalled.store(m_pSaved, std::memory_order_release);
}

// ---- kxEnvWrapper: forwarding only -------------------------------------------------------

int kxEnvWrapper::Open(const char* path, int flags, mode_t mode) {
    return m_pTarget->Open(path, flags, mode);
}
int kxEnvWrapper::Close(int fd) {
    return m_pTarget->Close(fd);
}
ssize_t kxEnvWrapper::Read(int fd, void* buffer, size_t count) {
    return m_pTarget->Read(fd, buffer, count);
}
ssize_t kxEnvWrapper::Write(int fd, const void* buffer, size_t count) {
    return m_pTarget->Write(fd, buffer, count);
}
ssize_t kxEnvWrapper::Pread(int fd, void* buffer, size_t count, off_t offset) {
    return m_pTarget->Pread(fd, buffer, count, offset);
}
ssize_t kxEnvWrapper::Pwrite(int fd, const void* buffer, size_t count, off_t offset) {
    return m_pTarget->Pwrite(fd, buffer, count, offset);
}
off_t kxEnvWrapper::Lseek(int fd, off_t offset, int whence) {
    return m_pTarget->Lseek(fd, offset, whence);
}
int kxEnvWrapper::Fstat(int fd, struct stat* st) {
    return m_pTarget->Fstat(fd, st);
}
int kxEnvWrapper::Stat(const char* path, struct stat* st) {
    return m_pTarget->Stat(path, st);
}
int kxEnvWrapper::Ftruncate(int fd, off_t length) {
    return m_pTarget->Ftruncate(fd, length);
}
int kxEnvWrapper::Fallocate(int fd, off_t offset, off_t length) {
    return m_pTarget->Fallocate(fd, offset, length);
}
int kxEnvWrapper::Fsync(int fd) {
    return m_pTarget->Fsync(fd);
}
int kxEnvWrapper::Fchmod(int fd, mode_t mode) {
    return m_pTarget->Fchmod(fd, mode);
}
int kxEnvWrapper::FcntlLock(int fd, int cmd, struct flock* lock) {
    return m_pTarget->FcntlLock(fd, cmd, lock);
}
int kxEnvWrapper::DupCloexec(int fd) {
    return m_pTarget->DupCloexec(fd);
}
int kxEnvWrapper::Dup2(int fd, int target) {
    return m_pTarget->Dup2(fd, target);
}
int kxEnvWrapper::Utime(const char* path, const struct utimbuf* times) {
    return m_pTarget->Utime(path, times);
}
int kxEnvWrapper::Mkdir(const char* path, mode_t mode) {
    return m_pTarget->Mkdir(path, mode);
}
int kxEnvWrapper::Rmdir(const char* path) {
    return m_pTarget->Rmdir(path);
}
int kxEnvWrapper::Rename(const char* from, const char* to) {
    return m_pTarget->Rename(from, to);
}
int kxEnvWrapper::Unlink(const char* path) {
    return m_pTarget->Unlink(path);
}
int kxEnvWrapper::Glob(const char* pattern, int flags, int (*errfunc)(const char*, int),
                       glob_t* result) {
    return m_pTarget->Glob(pattern, flags, errfunc, result);
}
void kxEnvWrapper::Globfree(glob_t* result) {
    m_pTarget->Globfree(result);
}
void* kxEnvWrapper::Mmap(void* address, size_t length, int prot, int flags, int fd, off_t offset) {
    return m_pTarget->Mmap(address, length, prot, flags, fd, offset);
}
int kxEnvWrapper::Munmap(void* address, size_t length) {
    return m_pTarget->Munmap(address, length);
}
int kxEnvWrapper::Msync(void* address, size_t length, int flags) {
    return m_pTarget->Msync(address, length, flags);
}
int kxEnvWrapper::ShmOpen(const char* name, int flags, mode_t mode) {
    return m_pTarget->ShmOpen(name, flags, mode);
}
int kxEnvWrapper::ShmUnlink(const char* name) {
    return m_pTarget->ShmUnlink(name);
}
int kxEnvWrapper::MutexAttrInit(pthread_mutexattr_t* attr) {
    return m_pTarget->MutexAttrInit(attr);
}
int kxEnvWrapper::MutexAttrDestroy(pthread_mutexattr_t* attr) {
    return m_pTarget->MutexAttrDestroy(attr);
}
int kxEnvWrapper::MutexAttrSetType(pthread_mutexattr_t* attr, int type) {
    return m_pTarget->MutexAttrSetType(attr, type);
}
int kxEnvWrapper::MutexAttrSetPshared(pthread_mutexattr_t* attr, int pshared) {
    return m_pTarget->MutexAttrSetPshared(attr, pshared);
}
int kxEnvWrapper::MutexAttrSetRobust(pthread_mutexattr_t* attr, int robust) {
    return m_pTarget->MutexAttrSetRobust(attr, robust);
}
int kxEnvWrapper::MutexInit(pthread_mutex_t* mutex, const pthread_mutexattr_t* attr) {
    return m_pTarget->MutexInit(mutex, attr);
}
int kxEnvWrapper::MutexDestroy(pthread_mutex_t* mutex) {
    return m_pTarget->MutexDestroy(mutex);
}
int kxEnvWrapper::MutexLock(pthread_mutex_t* mutex) {
    return m_pTarget->MutexLock(mutex);
}
int kxEnvWrapper::MutexTryLock(pthread_mutex_t* mutex) {
    return m_pTarget->MutexTryLock(mutex);
}
int kxEnvWrapper::MutexClockLock(pthread_mutex_t* mutex, clockid_t clock,
                                 const struct timespec* deadline) {
    return m_pTarget->MutexClockLock(mutex, clock, deadline);
}
int kxEnvWrapper::MutexUnlock(pthread_mutex_t* mutex) {
    return m_pTarget->MutexUnlock(mutex);
}
int kxEnvWrapper::MutexConsistent(pthread_mutex_t* mutex) {
    return m_pTarget->MutexConsistent(mutex);
}
int kxEnvWrapper::CondAttrInit(pthread_condattr_t* attr) {
    return m_pTarget->CondAttrInit(attr);
}
int kxEnvWrapper::CondAttrDestroy(pthread_condattr_t* attr) {
    return m_pTarget->CondAttrDestroy(attr);
}
int kxEnvWrapper::CondAttrSetPshared(pthread_condattr_t* attr, int pshared) {
    return m_pTarget->CondAttrSetPshared(attr, pshared);
}
int kxEnvWrapper::CondInit(pthread_cond_t* cond, const pthread_condattr_t* attr) {
    return m_pTarget->CondInit(cond, attr);
}
int kxEnvWrapper::CondDestroy(pthread_cond_t* cond) {
    return m_pTarget->CondDestroy(cond);
}
int kxEnvWrapper::CondTimedWait(pthread_cond_t* cond, pthread_mutex_t* mutex,
                                const struct timespec* deadline) {
    return m_pTarget->CondTimedWait(cond, mutex, deadline);
}
int kxEnvWrapper::CondSignal(pthread_cond_t* cond) {
    return m_pTarget->CondSignal(cond);
}
int kxEnvWrapper::Kill(pid_t pid, int signal) {
    return m_pTarget->Kill(pid, signal);
}
int kxEnvWrapper::GetTimeOfDay(struct timeval* tv) {
    return m_pTarget->GetTimeOfDay(tv);
}
int kxEnvWrapper::ClockGetTime(clockid_t clock, struct timespec* ts) {
    return m_pTarget->ClockGetTime(clock, ts);
}
int kxEnvWrapper::NanoSleep(const struct timespec* request, struct timespec* remaining) {
    return m_pTarget->NanoSleep(request, remaining);
}
void* kxEnvWrapper::Malloc(size_t bytes) {
    return m_pTarget->Malloc(bytes);
}
void* kxEnvWrapper::Realloc(void* p, size_t bytes) {
    return m_pTarget->Realloc(p, bytes);
}
void kxEnvWrapper::Free(void* p) {
    m_pTarget->Free(p);
}
int kxEnvWrapper::PosixMemalign(void** p, size_t alignment, size_t bytes) {
    return m_pTarget->PosixMemalign(p, alignment, bytes);
}
