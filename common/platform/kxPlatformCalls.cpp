#include "platform/kxPlatformCalls.h"

#include <sys/mman.h>
#include <unistd.h>

namespace {

// Wrappers rather than the libc symbols themselves: with large-file support the libc names are
// redirected (mmap to mmap64, ...), and the wrappers pin the signature the seam declares.
void* SysMmap(void* address, size_t length, int prot, int flags, int fd, off_t offset) {
    return ::mmap(address, length, prot, flags, fd, offset);
}
int SysMunmap(void* address, size_t length) { return ::munmap(address, length); }
ssize_t SysRead(int fd, void* buffer, size_t count) { return ::read(fd, buffer, count); }
ssize_t SysWrite(int fd, const void* buffer, size_t count) { return ::write(fd, buffer, count); }
int SysShmOpen(const char* name, int flags, mode_t mode) { return ::shm_open(name, flags, mode); }
int SysFtruncate(int fd, off_t length) { return ::ftruncate(fd, length); }

}  // namespace

// Constant-initialised, so that static constructors in other files (the log start-up) can use
// the seam before main.
constexpr KPlatformCalls kDefaultCalls{SysMmap, SysMunmap, SysRead, SysWrite, SysShmOpen, SysFtruncate};

KPlatformCalls kxPlatformDefaultCalls() { return kDefaultCalls; }

KPlatformCalls g_kxPlatformCalls = kDefaultCalls;
