// The lock file of a log: unrelated writers appending at once, some killed at random, a holder
// that dies half-way through an append, the file-lock fallback in a read-only directory, and a
// process of the other target beside ordinary ones. Every scenario ends with the same check: a
// fresh writer appends at once, and the ring holds one contiguous run of whole records.
#include "log/KLogLock.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "kxLogTestFiles.h"
#include "kxTestProcess.h"
#include "log/KLogStream.h"
#include "log/kxLogRead.h"

namespace {

using kxtest::Names;
using kxtest::TempDir;
using Clock = std::chrono::steady_clock;

// Reads the ring and checks it: record numbers contiguous up to the header's count, every text
// record whole (the writers put i both in the status and in the text "TAG i"), and each
// writer's records in the order written. Returns the number of text records.
size_t ExpectWholeRing(const std::string& path) {
    std::vector<KLogEntry> e;
    EXPECT_EQ(KX_OK, kxLogReadFile(path.c_str(), e));
    KLogStream s(path.c_str());
    EXPECT_TRUE(s.IsLive());
    EXPECT_FALSE(e.empty());
    if (e.empty()) return 0;
    EXPECT_EQ(static_cast<uint32_t>(s.RecordCount()), e.back().info.GetRecNum());
    std::map<std::string, long> lastOf;
    size_t texts = 0;
    for (size_t i = 0; i < e.size(); ++i) {
        if (i > 0) {
            EXPECT_EQ(e[i - 1].info.GetRecNum() + 1, e[i].info.GetRecNum()) << "at " << i;
        }
        if (!e[i].isText) continue;
        ++texts;
        const std::string& t = e[i].text;
        const size_t space = t.find(' ');
        EXPECT_NE(std::string::npos, space) << t;
        if (space == std::string::npos) continue;
        const long n = atol(t.c_str() + space + 1);
        EXPECT_EQ(n, e[i].status) << "torn record: " << t;
        EXPECT_EQ(t.substr(space + 1), std::to_string(n)) << "torn record: " << t;
        long& last = lastOf[t.substr(0, space)];
        EXPECT_LT(last, n) << t;
        last = n;
    }
    return texts;
}

std::vector<std::string> WriterArgv(const TempDir& dir, unsigned long kb, long count,
                                    const std::string& tag,
                                    const std::vector<std::string>& options = {}) {
    std::vector<std::string> argv = {KX_LOG_WRITER_BIN,  "write", dir.path(), "m.log",
                                     std::to_string(kb), std::to_string(count), tag};
    argv.insert(argv.end(), options.begin(), options.end());
    return argv;
}

// Waits for a writer or reader: it must exit with 0, or be one this test killed.
void ExpectExitsCleanly(pid_t pid, bool mayBeKilled = false) {
    auto status = kxtest::WaitFor(pid, std::chrono::seconds(240));
    ASSERT_TRUE(status.has_value());
    EXPECT_TRUE((WIFEXITED(*status) && WEXITSTATUS(*status) == 0) ||
                (mayBeKilled && WIFSIGNALED(*status) && WTERMSIG(*status) == SIGKILL))
        << *status;
}

// A writer that arrives afterwards gets the lock within a second.
void ExpectFreshWriterAppendsAtOnce(const TempDir& dir, unsigned long kb,
                                    const std::vector<std::string>& options = {}) {
    const auto start = Clock::now();
    ExpectExitsCleanly(kxtest::Spawn(WriterArgv(dir, kb, 1, "fresh", options)));
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(1));
    std::vector<KLogEntry> e;
    ASSERT_EQ(KX_OK, kxLogReadFile((dir / "m.log").c_str(), e));
    ASSERT_FALSE(e.empty());
    EXPECT_EQ("fresh 1", e.back().text);
}

// Rounds of eight writers of 20,000 records each, three of them killed at random moments.
void RunKilledWriters(const TempDir& dir, unsigned long kb, int rounds,
                      const std::vector<std::string>& options = {}) {
    std::mt19937 rng(11);
    for (int round = 0; round < rounds; ++round) {
        std::vector<pid_t> pids;
        for (int w = 0; w < 8; ++w)
            pids.push_back(kxtest::Spawn(WriterArgv(
                dir, kb, 20000, "r" + std::to_string(round) + "w" + std::to_string(w), options)));
        for (int k = 0; k < 3; ++k) {
            struct timespec pause{0, static_cast<long>(5 + rng() % 40) * 1000000L};
            nanosleep(&pause, nullptr);
            kill(pids[rng() % pids.size()], SIGKILL);
        }
        for (pid_t pid : pids) ExpectExitsCleanly(pid, true);
        EXPECT_GT(ExpectWholeRing(dir / "m.log"), 1000u) << "round " << round;
        ExpectFreshWriterAppendsAtOnce(dir, kb, options);
    }
}

uint32_t FileLockFlag(const std::string& lockPath) {
    const std::string bytes = kxtest::ReadFile(lockPath);
    uint32_t flag = 0xFFFFFFFF;
    if (bytes.size() >= 68) memcpy(&flag, bytes.data() + 64, sizeof flag);
    return flag;
}

TEST(KLogLockTest, KilledWritersLeaveAWholeContiguousRing) {
    TempDir dir;
    RunKilledWriters(dir, 256, 3);
    KLogStream s((dir / "m.log").c_str());
    EXPECT_GT(s.WrapCount(), 10) << "the ring wrapped many times";
    EXPECT_EQ(KLogLock::Mode::kMutex, s.GetLockMode());
    // Made once, by one of eight processes starting together, and nothing left lying around.
    EXPECT_EQ((std::vector<std::string>{"m.log", "m.log.lock"}), Names(dir.path()));
    EXPECT_EQ(0u, FileLockFlag(dir / "m.log.lock"));
}

// Eight unrelated processes (started apart, so only the lock serialises them) fill a file that
// never wraps: every record of every writer is there.
TEST(KLogLockTest, ConcurrentWritersLoseNoRecord) {
    TempDir dir;
    std::vector<pid_t> pids;
    for (int w = 0; w < 8; ++w)
        pids.push_back(kxtest::Spawn(WriterArgv(dir, 16384, 20000, "w" + std::to_string(w))));
    for (pid_t pid : pids) ExpectExitsCleanly(pid);
    EXPECT_EQ(160000u, ExpectWholeRing(dir / "m.log"));
    KLogStream s((dir / "m.log").c_str());
    EXPECT_EQ(0, s.WrapCount());
    EXPECT_EQ(160001, s.RecordCount()) << "the start record and every text record";
}

TEST(KLogLockTest, AppendInterruptedByADeadHolderIsUndone) {
    // 20 records leave the next append in the middle of the ring; 60 bring it so near the end
    // of the 8 KB file that the half-written record goes to the first position.
    for (int records : {20, 60}) {
        TempDir dir;
        const std::string path = dir / "m.log";
        {
            KLogStream s(dir.path().c_str(), "m.log", 8, 0, true);
            ASSERT_TRUE(s.IsLive());
            char text[32];
            for (int i = 1; i <= records; ++i) {
                snprintf(text, sizeof text, "old %d", i);
                ASSERT_EQ(KX_OK, s.PrintString(text, i, kxLogSevProgress, 0));
            }
        }
        pid_t pid = kxtest::Spawn({KX_LOG_WRITER_BIN, "die-in-append", path});
        auto status = kxtest::WaitFor(pid, std::chrono::seconds(10));
        ASSERT_TRUE(status.has_value());
        ASSERT_TRUE(WIFSIGNALED(*status)) << "the helper dies holding the lock: " << *status;

        ExpectFreshWriterAppendsAtOnce(dir, 8);
        std::vector<KLogEntry> e;
        ASSERT_EQ(KX_OK, kxLogReadFile(path.c_str(), e));
        for (const KLogEntry& entry : e) EXPECT_EQ(std::string::npos, entry.text.find('Z'));
        ExpectWholeRing(path);
        EXPECT_EQ("fresh 1", e.back().text);
        EXPECT_EQ(records + 2u, e.back().info.GetRecNum()) << "start record, old ones, fresh one";
        EXPECT_GT(e.size(), 10u) << "the records before the wiped ones survive";
    }
}

// Writers that cannot make the lock file (a directory they may not write to) all take the
// file lock, with the same guarantees.
TEST(KLogLockTest, ReadOnlyDirectoryFallsBackToTheFileLock) {
    TempDir dir;
    const std::string path = dir / "m.log";
    {
        KLogStream s(dir.path().c_str(), "m.log", 256, 0, true);
        ASSERT_TRUE(s.IsLive());
    }
    ASSERT_EQ(0, unlink((path + ".lock").c_str()));
    ASSERT_EQ(0, chmod(path.c_str(), 0666));
    // Root may write anywhere: the writers then run as nobody.
    const std::vector<std::string> options =
        geteuid() == 0 ? std::vector<std::string>{"--as-nobody"} : std::vector<std::string>{};
    ASSERT_EQ(0, chmod(dir.path().c_str(), 0555));
    RunKilledWriters(dir, 256, 2, options);
    chmod(dir.path().c_str(), 0700);
    EXPECT_EQ(std::vector<std::string>{"m.log"}, Names(dir.path())) << "no lock file could be made";
}

// A mutex that can never be taken again (a holder died and the next one let it go without
// marking it consistent): every process moves to the file lock and goes on.
TEST(KLogLockTest, UnrecoverableMutexFallsBackToTheFileLock) {
    TempDir dir;
    const std::string path = dir / "m.log";
    {
        KLogStream s(dir.path().c_str(), "m.log", 64, 0, true);
        ASSERT_TRUE(s.IsLive());
    }
    const std::string marker = dir / "held";
    pid_t holder = kxtest::Spawn({KX_LOG_WRITER_BIN, "hold", path, "20000", marker});
    ASSERT_TRUE(kxtest::Eventually([&] { return access(marker.c_str(), F_OK) == 0; }));
    kxtest::KillAndReap(holder);
    const int fd = open((path + ".lock").c_str(), O_RDWR);
    ASSERT_GE(fd, 0);
    void* map = mmap(nullptr, KLogLockShared::kFileSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    ASSERT_NE(MAP_FAILED, map);
    pthread_mutex_t* m = &static_cast<KLogLockShared*>(map)->mutex;
    ASSERT_EQ(EOWNERDEAD, pthread_mutex_lock(m));
    ASSERT_EQ(0, pthread_mutex_unlock(m));
    ASSERT_EQ(ENOTRECOVERABLE, pthread_mutex_lock(m));
    munmap(map, KLogLockShared::kFileSize);

    RunKilledWriters(dir, 64, 1);
    EXPECT_EQ(1u, FileLockFlag(path + ".lock"));
}

// A viewer that may not write the lock file reads with the file's read lock alone: it never
// holds up the writers, who keep the mutex, and never writes.
TEST(KLogLockTest, ViewerWithoutWriteAccessNeverBlocksWriters) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to run the viewer as another user";
    TempDir dir;
    const std::string path = dir / "m.log";
    {
        KLogStream s(dir.path().c_str(), "m.log", 256, 0, true);
        ASSERT_TRUE(s.IsLive());
    }
    ASSERT_EQ(0, chmod(dir.path().c_str(), 0755));
    ASSERT_EQ(0, chmod(path.c_str(), 0644));
    ASSERT_EQ(0, chmod((path + ".lock").c_str(), 0644));
    pid_t viewer = kxtest::Spawn({KX_LOG_WRITER_BIN, "read", path, "400", "--as-nobody"});
    std::vector<pid_t> pids;
    for (int w = 0; w < 4; ++w)
        pids.push_back(kxtest::Spawn(WriterArgv(dir, 256, 20000, "w" + std::to_string(w))));
    for (pid_t pid : pids) ExpectExitsCleanly(pid);
    ExpectExitsCleanly(viewer);
    EXPECT_EQ(0u, FileLockFlag(path + ".lock")) << "the viewer switched nobody to the file lock";
    EXPECT_GT(ExpectWholeRing(path), 1000u);
}

// A process whose mutex layout is not the lock file's sets the file-lock flag; everyone takes
// the file lock while it is there, and the next ordinary writer clears the flag again.
TEST(KLogLockTest, WriterOfTheOtherTargetMakesEveryoneTakeTheFileLock) {
    TempDir dir;
    const std::string path = dir / "m.log";
    {
        KLogStream s(dir.path().c_str(), "m.log", 256, 0, true);
        ASSERT_TRUE(s.IsLive());
    }
    const std::string lockPath = path + ".lock";
    pid_t foreign = kxtest::Spawn(
        {KX_LOG_WRITER_BIN, "forever", dir.path(), "m.log", "256", "f", "--foreign-abi"});
    ASSERT_TRUE(kxtest::Eventually([&] { return FileLockFlag(lockPath) == 1; }));
    std::vector<pid_t> pids;
    for (int w = 0; w < 5; ++w)
        pids.push_back(kxtest::Spawn(WriterArgv(dir, 256, 20000, "w" + std::to_string(w),
                                                w == 0 ? std::vector<std::string>{"--foreign-abi"}
                                                       : std::vector<std::string>{})));
    for (pid_t pid : pids) ExpectExitsCleanly(pid);
    EXPECT_EQ(1u, FileLockFlag(lockPath)) << "kept while a file-lock user is open";
    kxtest::KillAndReap(foreign);
    EXPECT_GT(ExpectWholeRing(path), 1000u);
    {
        KLogStream s(dir.path().c_str(), "m.log", 256, 0, true);
        ASSERT_TRUE(s.IsLive());
        EXPECT_EQ(KLogLock::Mode::kMutex, s.GetLockMode());
        EXPECT_EQ(0u, FileLockFlag(lockPath)) << "no file-lock user is left";
    }
    ExpectFreshWriterAppendsAtOnce(dir, 256, {"--foreign-abi"});
    EXPECT_EQ(1u, FileLockFlag(lockPath));
}

}  // namespace
