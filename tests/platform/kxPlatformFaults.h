// The system calls of the platform layer's file and mapping code, failing or falling short as a
// test asks; every call not asked to fail reaches the system.
#pragma once

#include <sys/mman.h>

#include <cerrno>

#include "base/kxEnv.h"

namespace kxtest {

class PlatformFaults : public kxEnvWrapper {
public:
    int mmapError = 0;             // mmap fails with this error number
    int growError = 0;             // ftruncate fails with this error number
    int readError = 0;             // read fails with this error number
    bool halveFirstWrite = false;  // the first write of more than a byte moves half of it
    bool shortWrites = false;      // every write moves one byte less than asked
    void* lastMapping = nullptr;   // the address of the last view mmap made

    void* Mmap(void* address, size_t length, int prot, int flags, int fd, off_t offset) override {
        if (mmapError != 0) {
            Fail(mmapError);
            return MAP_FAILED;
        }
        void* p = kxEnvWrapper::Mmap(address, length, prot, flags, fd, offset);
        if (p != MAP_FAILED) lastMapping = p;
        return p;
    }
    int Ftruncate(int fd, off_t length) override {
        return growError != 0 ? Fail(growError) : kxEnvWrapper::Ftruncate(fd, length);
    }
    ssize_t Read(int fd, void* buffer, size_t count) override {
        return readError != 0 ? Fail(readError) : kxEnvWrapper::Read(fd, buffer, count);
    }
    ssize_t Write(int fd, const void* buffer, size_t count) override {
        if (halveFirstWrite && count > 1) {
            halveFirstWrite = false;
            count /= 2;
        } else if (shortWrites) {
            return count > 0 ? static_cast<ssize_t>(count - 1) : 0;
        }
        return kxEnvWrapper::Write(fd, buffer, count);
    }

private:
    static int Fail(int error) {
        errno = error;
        return -1;
    }
};

}  // namespace kxtest
