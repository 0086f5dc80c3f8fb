// Unrelated processes appending to one log file at once: started separately (not forked after
// opening), so only the file lock serialises them.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "kxTestProcess.h"
#include "log/KLogStream.h"
#include "log/kxLogRead.h"

namespace {

using kxtest::TempDir;

std::vector<pid_t> StartWriters(const TempDir& dir, const char* kb, int n, const char* count) {
    std::vector<pid_t> pids;
    for (int i = 0; i < n; ++i) {
        const std::string tag = "w" + std::to_string(i);
        if (count == nullptr)
            pids.push_back(kxtest::Spawn({KX_LOG_WRITER_BIN, "forever", dir.path(), "m.log", kb, tag}));
        else
            pids.push_back(kxtest::Spawn({KX_LOG_WRITER_BIN, "write", dir.path(), "m.log", kb, count, tag}));
    }
    return pids;
}

// Checks that the records form one run of consecutive numbers ending at the file's newest
// record, and that each writer's records ("wN i") keep their order. Returns texts per writer.
std::map<std::string, std::vector<long>> CheckRun(const std::string& path) {
    std::vector<KLogEntry> e;
    EXPECT_EQ(KX_OK, kxLogReadFile(path.c_str(), e));
    KLogStream s(path.c_str());
    EXPECT_TRUE(s.IsLive());
    EXPECT_FALSE(e.empty());
    if (e.empty()) return {};
    EXPECT_EQ(static_cast<uint32_t>(s.RecordCount()), e.back().info.GetRecNum())
        << "the run ends at the newest record";
    std::map<std::string, std::vector<long>> byWriter;
    for (size_t i = 0; i < e.size(); ++i) {
        if (i > 0) {
            EXPECT_EQ(e[i - 1].info.GetRecNum() + 1, e[i].info.GetRecNum());
        }
        if (!e[i].isText) continue;
        const size_t space = e[i].text.find(' ');
        std::vector<long>& seq = byWriter[e[i].text.substr(0, space)];
        const long n = atol(e[i].text.c_str() + space + 1);
        if (!seq.empty()) {
            EXPECT_LT(seq.back(), n) << e[i].text;
        }
        seq.push_back(n);
    }
    return byWriter;
}

TEST(KLogStreamWritersTest, EightProcessesLoseNoRecord) {
    TempDir dir;
    std::vector<pid_t> pids = StartWriters(dir, "16384", 8, "20000");
    for (pid_t pid : pids) {
        auto status = kxtest::WaitFor(pid, std::chrono::seconds(240));
        ASSERT_TRUE(status.has_value());
        EXPECT_TRUE(WIFEXITED(*status) && WEXITSTATUS(*status) == 0) << *status;
    }
    std::map<std::string, std::vector<long>> byWriter = CheckRun(dir / "m.log");
    ASSERT_EQ(8u, byWriter.size());
    size_t total = 0;
    for (const auto& w : byWriter) {
        ASSERT_EQ(20000u, w.second.size()) << w.first;
        EXPECT_EQ(1, w.second.front());
        EXPECT_EQ(20000, w.second.back());
        total += w.second.size();
    }
    EXPECT_EQ(160000u, total);
    KLogStream s((dir / "m.log").c_str());
    EXPECT_EQ(0, s.WrapCount());
    EXPECT_EQ(160001, s.RecordCount()) << "the start record and every text record";
}

TEST(KLogStreamWritersTest, EightProcessesWrappingManyTimesLeaveOneIntactRun) {
    TempDir dir;
    std::vector<pid_t> pids = StartWriters(dir, "64", 8, "5000");
    for (pid_t pid : pids) {
        auto status = kxtest::WaitFor(pid, std::chrono::seconds(120));
        ASSERT_TRUE(status.has_value());
        EXPECT_TRUE(WIFEXITED(*status) && WEXITSTATUS(*status) == 0);
    }
    KLogStream s((dir / "m.log").c_str());
    EXPECT_GT(s.WrapCount(), 20);
    EXPECT_EQ(40001, s.RecordCount());
    std::map<std::string, std::vector<long>> byWriter = CheckRun(dir / "m.log");
    size_t survivors = 0;
    for (const auto& w : byWriter) survivors += w.second.size();
    EXPECT_GT(survivors, 64u * 1024 / 64 - 40) << "about a ring's worth survives";
}

TEST(KLogStreamWritersTest, KilledWritersNeverStopTheOthers) {
    TempDir dir;
    const std::string path = dir / "m.log";
    std::vector<pid_t> pids = StartWriters(dir, "32", 4, nullptr);
    ASSERT_TRUE(kxtest::Eventually([&] {
        KLogStream s(path.c_str());
        return s.IsLive() && s.RecordCount() > 1000;
    }));
    std::mt19937 rng(2024);
    for (int round = 0; round < 15; ++round) {
        struct timespec pause{0, static_cast<long>(5 + rng() % 60) * 1000000L};
        nanosleep(&pause, nullptr);
        const size_t victim = rng() % pids.size();
        kill(pids[victim], SIGKILL);
        kxtest::WaitFor(pids[victim], std::chrono::seconds(10));
        pids[victim] = kxtest::Spawn({KX_LOG_WRITER_BIN, "forever", dir.path(), "m.log", "32",
                                      "r" + std::to_string(round)});
        // The survivors go on: the count moves within well under the lock's time-out.
        long before;
        {
            KLogStream s(path.c_str());
            ASSERT_TRUE(s.IsLive());
            before = s.RecordCount();
        }
        EXPECT_TRUE(kxtest::Eventually(
            [&] {
                KLogStream s(path.c_str());
                return s.RecordCount() > before + 100;
            },
            std::chrono::seconds(2)))
            << "round " << round;
    }
    for (pid_t pid : pids) kxtest::KillAndReap(pid);
    std::vector<KLogEntry> e;
    ASSERT_EQ(KX_OK, kxLogReadFile(path.c_str(), e));
    KLogStream s(path.c_str());
    ASSERT_FALSE(e.empty());
    EXPECT_EQ(static_cast<uint32_t>(s.RecordCount()), e.back().info.GetRecNum());
    EXPECT_GT(e.size(), 300u);
    for (size_t i = 1; i < e.size(); ++i) ASSERT_EQ(e[i - 1].info.GetRecNum() + 1, e[i].info.GetRecNum());
}

}  // namespace
