// Failures of the system on the log write path, injected through the OS seam: opening the file,
// making its named mutex, taking its lock, mapping and flushing it, a full disk while it is
// made or resized, and short or failing writes while it is resized. Each must end in its
// status, leak no descriptor, and lose none of the records written before: the next writer
// finds them all.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <atomic>
#include <cstdarg>
#include <string>
#include <vector>

#include "base/kxEnv.h"
#include "kxLogTestFiles.h"
#include "kxTestProcess.h"
#include "log/KLogStream.h"
#include "log/kxLogRead.h"

namespace {

using kxtest::LogTexts;
using kxtest::Names;
using kxtest::TempDir;

enum class Fault {
    kNone,
    kOpenLog,      // open of the log file: EACCES
    kShmOpen,      // the named mutex's shared memory: EMFILE
    kLockCall,     // the log's lock (the lock file's mutex): EINVAL
    kLockBusy,     // the log's lock, held by someone else for longer than any wait
    kFileLock,     // taking the open-file-description lock on the log: EIO
    kMapLog,       // mmap of the log file: ENOMEM
    kDiskFull,     // growing a file past 4 KB (ftruncate, posix_fallocate, write): ENOSPC
    kMsync,        // msync: EIO
    kShortWrites,  // every write and pwrite moves at most 1000 bytes
    kWriteFails,   // write and pwrite: EIO, after `writesAllowed` calls that succeed
};

// The real system, with one kind of call failing while `fault` is set.
class FaultEnv : public kxEnvWrapper {
public:
    std::atomic<Fault> fault{Fault::kNone};
    std::string logPath;   // kOpenLog: the file whose opens fail
    bool noLockFile = false;  // the lock file cannot be opened: the log falls back to file locks
    size_t mapLength = 0;  // kMapLog: the mapping length that fails
    std::atomic<int> writesAllowed{0};
    std::atomic<int> hits{0};

    int Open(const char* path, int flags, mode_t mode) override {
        if (fault == Fault::kOpenLog && logPath == path) return Errno(EACCES);
        if (noLockFile && logPath + ".lock" == path) return Errno(EACCES);
        return kxEnvWrapper::Open(path, flags, mode);
    }
    int ShmOpen(const char* name, int flags, mode_t mode) override {
        if (fault == Fault::kShmOpen) return Errno(EMFILE);
        return kxEnvWrapper::ShmOpen(name, flags, mode);
    }
    void* Mmap(void* address, size_t length, int prot, int flags, int fd, off_t offset) override {
        if (fault == Fault::kMapLog && length == mapLength) {
            Errno(ENOMEM);
            return MAP_FAILED;
        }
        return kxEnvWrapper::Mmap(address, length, prot, flags, fd, offset);
    }
    // Only the log's lock uses these two.
    int MutexTryLock(pthread_mutex_t* mutex) override {
        if (fault == Fault::kLockCall) return Count(EINVAL);
        if (fault == Fault::kLockBusy) return Count(EBUSY);
        return kxEnvWrapper::MutexTryLock(mutex);
    }
    int MutexClockLock(pthread_mutex_t* mutex, clockid_t clock, const timespec* deadline) override {
        if (fault == Fault::kLockCall) return Count(EINVAL);
        if (fault == Fault::kLockBusy) return Count(ETIMEDOUT);
        return kxEnvWrapper::MutexClockLock(mutex, clock, deadline);
    }
    int FcntlLock(int fd, int cmd, struct flock* lock) override {
        if (fault == Fault::kFileLock && cmd == F_OFD_SETLK && lock->l_type != F_UNLCK)
            return Errno(EIO);
        return kxEnvWrapper::FcntlLock(fd, cmd, lock);
    }
    // The small objects beside the log (the named mutex's 92 bytes, the 4 KB lock file) still
    // fit: the disk is full for the log and its scratch file.
    int Ftruncate(int fd, off_t length) override {
        struct stat st;
        if (fault == Fault::kDiskFull && length > 4096 && Fstat(fd, &st) == 0 && length > st.st_size)
            return Errno(ENOSPC);
        return kxEnvWrapper::Ftruncate(fd, length);
    }
    int Fallocate(int fd, off_t offset, off_t length) override {
        if (fault == Fault::kDiskFull) return Count(ENOSPC);
        return kxEnvWrapper::Fallocate(fd, offset, length);
    }
    int Msync(void* address, size_t length, int flags) override {
        if (fault == Fault::kMsync) return Errno(EIO);
        return kxEnvWrapper::Msync(address, length, flags);
    }
    ssize_t Write(int fd, const void* buffer, size_t count) override {
        return WriteFault(count) ? -1 : kxEnvWrapper::Write(fd, buffer, count);
    }
    ssize_t Pwrite(int fd, const void* buffer, size_t count, off_t offset) override {
        return WriteFault(count) ? -1 : kxEnvWrapper::Pwrite(fd, buffer, count, offset);
    }

private:
    // Write and pwrite fail, or come up short, alike.
    bool WriteFault(size_t& count) {
        if (fault == Fault::kDiskFull || (fault == Fault::kWriteFails && writesAllowed-- <= 0))
            return Errno(fault == Fault::kDiskFull ? ENOSPC : EIO) < 0;
        if (fault == Fault::kShortWrites && count > 1000) count = Count(1000);
        return false;
    }
    int Errno(int error) {
        ++hits;
        errno = error;
        return -1;
    }
    int Count(int result) {
        ++hits;
        return result;
    }
};

long Printf(KLogStream& s, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const long r = s.vPrintf(1, kxLogSevProgress, 0, format, args);
    va_end(args);
    return r;
}

size_t OpenDescriptors() { return Names("/proc/self/fd").size(); }

// When the fault is armed: while the stream creates a file that did not exist, while it opens
// the file (at reopenKB), or while one record is written or the stream is flushed.
enum class Stage { kCreate, kOpen, kPrintf, kFlush };

struct Case {
    const char* name;
    Fault fault;
    Stage stage;
    unsigned long reopenKB;  // kOpen: 8 reopens at the same size, 16 resizes
    long expected;
    // The file is 16 KB with a "RESZ" record after the next open: the resize completed, or was
    // completed from its scratch file by the next writer.
    bool endsResized = false;
    int writesAllowed = 0;  // kWriteFails
    bool fileLockMode = false;  // the stream uses the file lock (its lock file unusable)
};

const Case kCases[] = {
    {"disk full while creating", Fault::kDiskFull, Stage::kCreate, 8, KX_E_LOG_RECREATE},
    {"open of the log file fails", Fault::kOpenLog, Stage::kOpen, 8, KX_E_FILE_OPEN},
    {"named mutex cannot be made", Fault::kShmOpen, Stage::kOpen, 8, KX_E_MUTEX_CREATE},
    {"mapping fails", Fault::kMapLog, Stage::kOpen, 8, KX_E_FILE_MAP},
    {"disk full while resizing", Fault::kDiskFull, Stage::kOpen, 16, KX_E_FILE_WRITE},
    {"write fails before the log is touched", Fault::kWriteFails, Stage::kOpen, 16,
     KX_E_FILE_WRITE},
    {"write fails after the new header", Fault::kWriteFails, Stage::kOpen, 16, KX_E_FILE_WRITE,
     true, 1},
    {"short writes while resizing", Fault::kShortWrites, Stage::kOpen, 16, KX_OK, true},
    {"lock call fails", Fault::kLockCall, Stage::kPrintf, 8, KX_E_FILE_LOCK},
    {"lock stays busy", Fault::kLockBusy, Stage::kPrintf, 8, KX_S_WAIT_TIMEOUT},
    {"file lock call fails", Fault::kFileLock, Stage::kPrintf, 8, KX_E_FILE_LOCK, false, 0, true},
    {"flush fails", Fault::kMsync, Stage::kFlush, 8, KX_E_FILE_FLUSH},
};

TEST(KLogStreamFaultsTest, EachFailureEndsInItsStatusAndLosesNothing) {
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        TempDir dir;
        const std::string path = dir / "f.log";
        const bool opening = c.stage == Stage::kCreate || c.stage == Stage::kOpen;
        std::vector<std::string> before{"<STRT>"};  // all a new file holds
        if (c.stage != Stage::kCreate) {
            {
                KLogStream s(dir.path().c_str(), "f.log", 8, 0, true);
                ASSERT_TRUE(s.IsLive());
                for (int i = 0; i < 20; ++i) ASSERT_EQ(KX_OK, Printf(s, "record %d", i));
            }
            before = LogTexts(path);
            ASSERT_EQ(21u, before.size());  // STRT and twenty texts
        }

        FaultEnv env;
        env.logPath = path;
        env.mapLength = c.reopenKB * 1024;
        env.writesAllowed = c.writesAllowed;
        env.noLockFile = c.fileLockMode;
        const size_t descriptors = OpenDescriptors();
        {
            kxScopedEnv scope(&env);
            if (opening) env.fault = c.fault;
            KLogStream s(dir.path().c_str(), "f.log", c.reopenKB, 0, true);
            long result = s.GetOpenStatus();
            if (!opening) {
                ASSERT_TRUE(s.IsLive());
                EXPECT_EQ(c.fileLockMode ? KLogLock::Mode::kFileLock : KLogLock::Mode::kMutex,
                          s.GetLockMode());
                env.fault = c.fault;
                result = c.stage == Stage::kPrintf ? Printf(s, "lost") : s.Flush();
                env.fault = Fault::kNone;
                // The failure leaves nothing held: the stream goes on.
                EXPECT_EQ(KX_OK, Printf(s, "after"));
            }
            EXPECT_EQ(c.expected, result) << std::hex << result;
            EXPECT_EQ(c.expected == KX_OK || !opening, s.IsLive());
            EXPECT_GT(env.hits.load(), 0);
            env.fault = Fault::kNone;
        }
        EXPECT_EQ(descriptors, OpenDescriptors());

        // The next writer finds a valid file (finishing an interrupted resize from its scratch
        // file, or making the one a full disk refused) and re-creates nothing; the records are
        // all there, and nothing else is left.
        if (!opening) before.push_back("after");
        if (c.endsResized) before.push_back("<RESZ 8 16>");
        {
            KLogStream again(dir.path().c_str(), "f.log", c.endsResized ? 16 : 8, 0, true);
            ASSERT_TRUE(again.IsLive());
            EXPECT_EQ(static_cast<long>(before.size()), again.RecordCount());
            EXPECT_EQ((c.endsResized ? 16 : 8) * 1024, again.SizeInBytes());
        }
        EXPECT_EQ(before, LogTexts(path));
        EXPECT_EQ((std::vector<std::string>{"f.log", "f.log.lock"}), Names(dir.path()));
    }
}

}  // namespace
