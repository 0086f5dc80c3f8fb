// The kxlogview program: options, output formats, foreign and damaged files, following a file
// that another process writes.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "kxLogTestFiles.h"
#include "kxTestProcess.h"
#include "log/KLogStream.h"

namespace {

using kxtest::TempDir;

struct Result {
    int exit;
    std::string out, err;
    std::vector<std::string> lines;
};

std::string Quote(const std::string& s) {
    std::string q = "'";
    for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

Result View(const TempDir& dir, const std::vector<std::string>& args) {
    std::string cmd = Quote(KX_LOGVIEW_BIN);
    for (const std::string& a : args) cmd += " " + Quote(a);
    cmd += " >" + Quote(dir / "out.txt") + " 2>" + Quote(dir / "err.txt");
    const int status = system(cmd.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, kxtest::ReadFile(dir / "out.txt"),
            kxtest::ReadFile(dir / "err.txt"), kxtest::ReadLines(dir / "out.txt")};
}

// A log with a start record and records "msg 1" .. "msg n", severity 1 + i % 3, status i.
std::string MakeLog(const TempDir& dir, const char* name, unsigned long kb, int n) {
    KLogStream s(dir.path().c_str(), name, kb, 0, true);
    EXPECT_TRUE(s.IsLive());
    for (int i = 1; i <= n; ++i)
        s.PrintString(("msg " + std::to_string(i)).c_str(), i, static_cast<kxLogSev>(1 + i % 3), 0);
    return dir / name;
}

bool EndsWith(const std::string& s, const std::string& tail) {
    return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

TEST(KxLogViewTest, SelectsAndFormatsRecords) {
    TempDir dir;
    const std::string log = MakeLog(dir, "v.log", 16, 20);
    const std::string bytes = kxtest::ReadFile(log);

    // The viewer links the library, but its start-up must not open the standard streams.
    setenv("KX_LOG_DIR", dir.path().c_str(), 1);
    setenv("KX_LOG_SIZE", "16", 1);
    Result all = View(dir, {log});
    unsetenv("KX_LOG_DIR");
    unsetenv("KX_LOG_SIZE");
    EXPECT_EQ(0, all.exit) << all.err;
    EXPECT_EQ(bytes, kxtest::ReadFile(log));
    EXPECT_EQ(-1, kxtest::FileSize(dir / "Events.log"));
    ASSERT_EQ(21u, all.lines.size());
    EXPECT_NE(std::string::npos, all.lines[0].find("-- log started --"));
    EXPECT_NE(std::string::npos, all.lines[2].find("#3"));
    EXPECT_NE(std::string::npos, all.lines[2].find("ERROR"));
    EXPECT_NE(std::string::npos, all.lines[2].find("0x00000002"));
    EXPECT_TRUE(EndsWith(all.lines[2], " msg 2"));
    EXPECT_NE(std::string::npos, all.lines[2].find(" " + std::to_string(getpid()) + " "));

    Result last = View(dir, {"-n", "3", "-o", "cat", log});
    EXPECT_EQ((std::vector<std::string>{"msg 18", "msg 19", "msg 20"}), last.lines);
    Result rev = View(dir, {"-r", "-n", "2", "-o", "cat", log});
    EXPECT_EQ((std::vector<std::string>{"msg 20", "msg 19"}), rev.lines);
    Result sev = View(dir, {"-p", "error", "-o", "cat", log});
    EXPECT_EQ((std::vector<std::string>{"msg 2", "msg 5", "msg 8", "msg 11", "msg 14", "msg 17", "msg 20"}),
              sev.lines);
    Result grep = View(dir, {"-g", "^msg 1[0-2]$", "-o", "cat", log});
    EXPECT_EQ((std::vector<std::string>{"msg 10", "msg 11", "msg 12"}), grep.lines);
    EXPECT_TRUE(View(dir, {"--pid", "1", log}).lines.empty());
    EXPECT_EQ(21u, View(dir, {"--pid", std::to_string(getpid()), log}).lines.size());
    EXPECT_TRUE(View(dir, {"--since", "2037-12-31", log}).lines.empty());
    EXPECT_TRUE(View(dir, {"--until", "2000-01-01 00:00:00", log}).lines.empty());
    EXPECT_EQ(21u, View(dir, {"--since", "@0", "--until", "2037-12-31T00:00", log}).lines.size());

    Result json = View(dir, {"-o", "json", "-n", "1", log});
    ASSERT_EQ(1u, json.lines.size());
    EXPECT_NE(std::string::npos, json.lines[0].find("\"num\":21"));
    EXPECT_NE(std::string::npos, json.lines[0].find("\"status\":\"0x00000014\""));
    EXPECT_NE(std::string::npos, json.lines[0].find("\"text\":\"msg 20\""));
}

// Each form passes texts through its own escaping: the text forms keep a record on one
// terminal line (a trailing line end dropped), JSON keeps the exact text.
TEST(KxLogViewTest, EscapesTextsAndShowsSystemRecords) {
    TempDir dir;
    {
        KLogStream s(dir.path().c_str(), "t.log", 8, 0, false);
        s.PrintString("Received SIGCHLD\n", 0, kxLogSevProgress, 0);
        s.PrintString("two\nlines \x1b[31mred\r\n", 0, kxLogSevProgress, 0);
    }
    EXPECT_EQ((std::vector<std::string>{"Received SIGCHLD", "two\\nlines \\x1B[31mred"}),
              View(dir, {"-o", "cat", dir / "t.log"}).lines);
    Result shortForm = View(dir, {dir / "t.log"});
    ASSERT_EQ(2u, shortForm.lines.size()) << shortForm.out;
    EXPECT_TRUE(EndsWith(shortForm.lines[1], " two\\nlines \\x1B[31mred"));
    Result json = View(dir, {"-o", "json", dir / "t.log"});
    ASSERT_EQ(2u, json.lines.size()) << json.out;
    EXPECT_NE(std::string::npos, json.lines[1].find("two\\nlines \\u001b[31mred\\r\\n"));

    {
        KLogStream s(dir.path().c_str(), "j.log", 8, 0, true);
        s.ClearRecs();
    }
    {
        KLogStream s(dir.path().c_str(), "j.log", 16, 0, true);  // resized
    }
    json = View(dir, {"-o", "json", dir / "j.log"});
    ASSERT_EQ(2u, json.lines.size()) << json.out;
    EXPECT_NE(std::string::npos, json.lines[0].find("\"type\":\"CLER\""));
    EXPECT_NE(std::string::npos, json.lines[1].find("\"old_kb\":8,\"new_kb\":16"));
    shortForm = View(dir, {dir / "j.log"});
    EXPECT_NE(std::string::npos, shortForm.out.find("-- log cleared --"));
    EXPECT_NE(std::string::npos, shortForm.out.find("-- log resized from 8 KB to 16 KB --"));
}

TEST(KxLogViewTest, UsageErrorsAndUnreadableFiles) {
    TempDir dir;
    const std::string log = MakeLog(dir, "u.log", 8, 3);
    for (const std::vector<std::string>& args :
         std::vector<std::vector<std::string>>{{}, {"-n"}, {"-n", "x", log}, {"-p", "9z", log},
                                               {"--bogus", log}, {"-o", "xml", log},
                                               {"--since", "yesterday", log}, {"-f", "-r", log},
                                               {log, log}}) {
        Result r = View(dir, args);
        EXPECT_EQ(100, r.exit) << (args.empty() ? "" : args[0]);
        EXPECT_NE(std::string::npos, r.err.find("usage: kxlogview"));
    }
    EXPECT_EQ(0, View(dir, {"--help"}).exit);

    EXPECT_EQ(2, View(dir, {dir / "missing.log"}).exit);
    std::ofstream(dir / "text.log") << "this is not a log file, just text\n";
    Result text = View(dir, {dir / "text.log"});
    EXPECT_EQ(2, text.exit);
    EXPECT_NE(std::string::npos, text.err.find("not a log file"));
}

TEST(KxLogViewTest, DamagedFilePrintsWhatItCanAndSaysWhereItStopped) {
    TempDir dir;
    const std::string log = MakeLog(dir, "d.log", 8, 10);
    std::string bytes = kxtest::ReadFile(log);
    // Damage the signature of record 6 ("msg 5"); the walk stops after record 5 ("msg 4").
    const size_t at = bytes.find("msg 5") - 48;
    const size_t before = bytes.find("msg 4") - 48;
    bytes[at] ^= 0x55;
    std::ofstream(log, std::ios::binary | std::ios::trunc) << bytes;

    Result r = View(dir, {"-o", "cat", log});
    EXPECT_EQ(1, r.exit);
    EXPECT_EQ((std::vector<std::string>{"-- log started --", "msg 1", "msg 2", "msg 3", "msg 4"}), r.lines);
    EXPECT_NE(std::string::npos, r.err.find("walk stopped after record 5 at offset " + std::to_string(before)))
        << r.err;
    EXPECT_EQ(bytes, kxtest::ReadFile(log)) << "the viewer never changes the file";

    Result back = View(dir, {"-r", "-o", "cat", log});
    EXPECT_EQ(1, back.exit);
    EXPECT_EQ((std::vector<std::string>{"msg 10", "msg 9", "msg 8", "msg 7", "msg 6"}), back.lines);
}

TEST(KxLogViewTest, ReadsAFileOfTheOtherByteOrder) {
    TempDir dir;
    const std::string log = MakeLog(dir, "n.log", 4, 5);
    std::string b = kxtest::ReadFile(log);
    auto swap = [&](size_t off) { std::reverse(b.begin() + off, b.begin() + off + 4); };
    for (size_t off = 0; off < 28; off += 4) swap(off);
    size_t at = 28;
    for (int i = 0; i < 6; ++i) {
        uint32_t size;
        memcpy(&size, b.data() + at + 4, 4);
        for (size_t off : {0, 4, 16, 20, 24, 28, 32, 36}) swap(at + off);
        std::reverse(b.begin() + at + 8, b.begin() + at + 16);  // timestamp as one 64-bit value
        if (size > 40) {
            swap(at + 40);
            swap(at + 44);
        }
        at += (size + 3) & ~3u;
    }
    std::ofstream(dir / "foreign.log", std::ios::binary) << b;
    const std::string foreignLog = dir / "foreign.log";
    Result foreign = View(dir, {foreignLog});
    EXPECT_EQ(0, foreign.exit) << foreign.err;
    EXPECT_EQ(6u, foreign.lines.size());
    // Forward and backward: every field, the text payloads and the chain of previous offsets.
    EXPECT_EQ(View(dir, {log}).out, foreign.out);
    EXPECT_EQ(View(dir, {"-r", log}).out, View(dir, {"-r", foreignLog}).out);
    EXPECT_NE(std::string::npos, View(dir, {"--header", foreignLog}).out.find("opposite"));
}

TEST(KxLogViewTest, FollowPicksUpRecordsOfAnotherProcessAcrossWraps) {
    TempDir dir;
    const std::string log = MakeLog(dir, "f.log", 4, 60);  // about one ring: wraps soon
    const long wrapsBefore = KLogStream(log.c_str()).WrapCount();
    const std::string out = dir / "follow.txt";
    pid_t viewer = kxtest::Spawn(
        {"/bin/sh", "-c", "exec " + Quote(KX_LOGVIEW_BIN) + " -f -o cat -n 1 " + Quote(log) + " >" + Quote(out)});
    struct Reaper {
        pid_t pid;
        ~Reaper() { kxtest::KillAndReap(pid); }
    } reaper{viewer};
    ASSERT_TRUE(kxtest::Eventually([&] { return kxtest::ReadFile(out) == "msg 60\n"; }));

    for (int batch = 0; batch < 4; ++batch) {
        const std::string tag = "late" + std::to_string(batch);
        pid_t writer = kxtest::Spawn({KX_LOG_WRITER_BIN, "write", dir.path(), "f.log", "4", "15", tag});
        ASSERT_TRUE(kxtest::ExitedWith(kxtest::WaitFor(writer, std::chrono::seconds(30)), 0));
        ASSERT_TRUE(kxtest::Eventually([&] { return EndsWith(kxtest::ReadFile(out), tag + " 15\n"); }))
            << kxtest::ReadFile(out);
    }
    kill(viewer, SIGINT);
    EXPECT_TRUE(kxtest::ExitedWith(kxtest::WaitFor(viewer, std::chrono::seconds(10)), 0));

    std::vector<std::string> expected{"msg 60"};
    for (int batch = 0; batch < 4; ++batch)
        for (int i = 1; i <= 15; ++i) expected.push_back("late" + std::to_string(batch) + " " + std::to_string(i));
    EXPECT_EQ(expected, kxtest::ReadLines(out));
    KLogStream s(log.c_str());
    EXPECT_GT(s.WrapCount(), wrapsBefore) << "the follow crossed the ring's end";
}

}  // namespace
