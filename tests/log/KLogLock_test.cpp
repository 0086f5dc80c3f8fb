// The lock file of a log: unrelated writers appending at once, some killed at random, a holder
// that dies half-way through an append, the file-lock fallback after an unrecoverable mutex, and
// a process of the other target beside ordinary ones. Every scenario ends with the same check: a
// fresh writer appends at once, and the ring holds one contiguous run of whole records.
#include "log/KLogLock.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
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
void RunKilledWriters(const TempDir& dir, unsigned long kb, int rounds) {
    std::mt19937 rng(11);
    for (int round = 0; round < rounds; ++round) {
        std::vector<pid_t> pids;
        for (int w = 0; w < 8; ++w)
            pids.push_back(kxtest::Spawn(
                WriterArgv(dir, kb, 20000, "r" + std::to_string(round) + "w" + std::to_string(w))));
        for (int k = 0; k < 3; ++k) {
            struct timespec pause{0, static_cast<long>(5 + rng() % 40) * 1000000L};
            nanosleep(&pause, nullptr);
            kill(pids[rng() % pids.size()], SIGKILL);
        }
        for (pid_t pid : pids) ExpectExitsCleanly(pid, true);
        EXPECT_GT(ExpectWholeRing(dir / "m.log"), 1000u) << "round " << round;
        ExpectFreshWriterAppendsAtOnce(dir, kb);
    }
}

uint32_t FileLockFlag(const std::string& lockPath) {
    const std::string bytes = kxtest::ReadFile(lockPath);
    uint32_t flag = 0xFFFFFFFF;
    if (bytes.size() >= 68) memcpy(&flag, bytes.data() + 64, sizeof flag);
    return flag;
}

TEST(KLogLockTest, AppendInterruptedByADeadHolderIsUndone) {
    // 20 records leave the next append in the middle of the ring; 140 bring it so near the end
    // of the 8 KB file that the half-written record goes to the first position.
    for (int records : {20, 140}) {
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
        const long wraps = KLogStream(path.c_str()).WrapCount();
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
        const long freshWrapped = e.back().offset == kxLogFileHeaderSize ? 1 : 0;
        EXPECT_EQ(wraps + freshWrapped, KLogStream(path.c_str()).WrapCount())
            << "the dead append's wrap is undone";
    }
}

// Killed writers with the mutex, then with the file lock that every process moves to once the
// mutex can never be taken again (a holder died and the next one let it go without marking it
// consistent).
TEST(KLogLockTest, KilledWritersLeaveAWholeContiguousRingUnderEitherLock) {
    TempDir dir;
    const std::string path = dir / "m.log";
    RunKilledWriters(dir, 256, 2);
    {
        KLogStream s(path.c_str());
        EXPECT_GT(s.WrapCount(), 10) << "the ring wrapped many times";
        EXPECT_EQ(KLogLock::Mode::kMutex, s.GetLockMode());
    }
    // Made once, by one of eight processes starting together, and nothing left lying around.
    EXPECT_EQ((std::vector<std::string>{"m.log", "m.log.lock"}), Names(dir.path()));
    EXPECT_EQ(0u, FileLockFlag(path + ".lock"));

    const pid_t holder = fork();
    if (holder == 0) {
        KLogStream s(path.c_str());
        _exit(s.IsLive() && s.LockLogfile(500, 4) == KX_OK ? 0 : 1);  // ends holding the lock
    }
    ASSERT_TRUE(kxtest::ExitedWith(kxtest::WaitFor(holder, std::chrono::seconds(10)), 0));
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

    RunKilledWriters(dir, 256, 1);
    EXPECT_EQ(1u, FileLockFlag(path + ".lock"));
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
    pid_t foreign = kxtest::Spawn(WriterArgv(dir, 256, -1, "f", {"--foreign-abi"}));
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
