// The kxnfs program against the sandboxed server, as a user runs it: output, error lines and
// exit codes of every command, files moved both ways, listings against the local view of the
// export, locks held across two processes.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "kxFakeBrowse.h"
#include "kxNFSServerTest.h"
#include "kxToolRun.h"

namespace {

using kxtest::ToolRun;

#ifdef KX_NFS_TOOL
const char* const kTool = KX_NFS_TOOL;
#else
const char* const kTool = nullptr;
#endif

ToolRun Kxnfs(const std::vector<std::string>& args, const std::string& stdinPath = "/dev/null") {
    return kxtest::RunProgram(kTool, args, stdinPath);
}

using kxtest::Exists;
using kxtest::RandomBytes;
using kxtest::Put;

std::vector<std::string> LocalNames(const std::string& dir) {
    std::vector<std::string> names;
    if (DIR* d = opendir(dir.c_str())) {
        while (const dirent* e = readdir(d))
            if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0)
                names.push_back(e->d_name);
        closedir(d);
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string> Sorted(std::vector<std::string> v) {
    std::sort(v.begin(), v.end());
    return v;
}

class KxnfsTool : public kxtest::NFSServerTest {
protected:
    void SetUp() override {
        if (kTool == nullptr) GTEST_SKIP() << "the kxnfs tool is not built";
        kxtest::NFSServerTest::SetUp();
    }

    // A directory of the export /a made on the server's side before the server looks at it,
    // so no cached view of the export hides what the test puts there.
    std::string FreshDir(const std::string& name) {
        const std::string dir = root + "/a/" + name;
        mkdir(dir.c_str(), 0777);
        chmod(dir.c_str(), 0777);
        return dir;
    }

    static std::string Remote(const std::string& serverPath) { return "localhost:" + serverPath; }

    kxtest::TempDir scratch;
};

TEST_F(KxnfsTool, ExportsAndPing) {
    ToolRun r = Kxnfs({"exports", "localhost"});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_NE(std::string::npos, r.out.find(root + "/a/b ")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("GiB")) << r.out;
    EXPECT_EQ("", r.err);

    r = Kxnfs({"-u", "-j", "exports", "localhost"});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_NE(std::string::npos,
              r.out.find("\"export\":\"" + root + "/data\",\"mounted\":true"))
        << r.out;
    EXPECT_NE(std::string::npos, r.out.find("\"readPreferred\":65536")) << r.out;

    r = Kxnfs({"-t", "ping", "127.0.0.1"});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ(0u, r.out.find("127.0.0.1: MOUNT and NFS answer, round trip ")) << r.out;

    // Failures: one line on standard error, nothing on standard output.
    r = Kxnfs({"ping", "no-such-host.invalid"});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("", r.out);
    EXPECT_EQ(std::vector<std::string>{"kxnfs: no-such-host.invalid: unknown host "
                                       "(status 0xE0FF012A)"},
              r.ErrLines());
}

TEST_F(KxnfsTool, UsageErrorsExitWith100) {
    // (Which command lines are refused is the parser's own suite's business.)
    const std::vector<std::vector<std::string>> cases{{"-U", "4294967296", "exports", "localhost"},
                                                      {"lock", "localhost:/a/x"}};
    for (const auto& args : cases) {
        const ToolRun r = Kxnfs(args);
        EXPECT_EQ(100, r.status) << ::testing::PrintToString(args);
        EXPECT_EQ("", r.out) << ::testing::PrintToString(args);
        EXPECT_EQ(0u, r.err.find("kxnfs: ")) << r.err;
        EXPECT_NE(std::string::npos, r.err.find("usage: kxnfs")) << r.err;
    }
    const ToolRun help = Kxnfs({"-h"});
    EXPECT_EQ(0, help.status);
    EXPECT_NE(std::string::npos, help.out.find("lock [-s|-x] HOST:PATH COMMAND")) << help.out;
}

TEST_F(KxnfsTool, PutAndGetMoveEveryByteOverBothTransports) {
    struct Route {
        const char* transport;   // -tS: TCP, one request at a time instead of several
        const char* exportName;  // /a: the server's huge default sizes; /data: 64 KiB
    } routes[] = {{"-u", "/a"}, {"-t", "/data"}, {"-tS", "/data"}};
    const size_t sizes[] = {0, (3u << 20) + 5};
    unsigned seed = 1;
    for (const Route& route : routes) {
        const std::string dir = route.exportName == std::string("/a") ? FreshDir("xfer") + "/"
                                                                       : root + "/data/";
        for (size_t size : sizes) {
            SCOPED_TRACE(std::string(route.transport) + " " + route.exportName + " " +
                         std::to_string(size));
            const std::string bytes = RandomBytes(size, seed++);
            const std::string name =
                std::string("f") + (route.transport + 1) + std::to_string(size);
            Put(scratch / "in", bytes);
            ToolRun r = Kxnfs({route.transport, "put", scratch / "in", Remote(dir + name)});
            ASSERT_EQ(0, r.status) << r.err;
            EXPECT_EQ("", r.err);  // no progress line off a terminal
            EXPECT_TRUE(kxtest::ReadFile(dir + name) == bytes);

            r = Kxnfs({route.transport, "get", Remote(dir + name), scratch / "out"});
            ASSERT_EQ(0, r.status) << r.err;
            EXPECT_EQ("", r.err);
            EXPECT_TRUE(kxtest::ReadFile(scratch / "out") == bytes);
            EXPECT_EQ((std::vector<std::string>{"in", "out"}), LocalNames(scratch.path()));

            r = Kxnfs({route.transport, "cat", Remote(dir + name)});
            ASSERT_EQ(0, r.status) << r.err;
            EXPECT_TRUE(r.out == bytes);
        }
    }

    // put replaces a longer file completely, reads standard input, and goes into a directory
    // under the local name; get into a directory takes the remote name.
    const std::string dir = root + "/a/xfer/";
    Put(scratch / "short", "short");
    ASSERT_EQ(0, Kxnfs({"put", scratch / "short", Remote(dir + "fu3145733")}).status);
    EXPECT_EQ("short", kxtest::ReadFile(dir + "fu3145733"));
    ASSERT_EQ(0, Kxnfs({"put", "-", Remote(dir + "stdin")}, scratch / "short").status);
    EXPECT_EQ("short", kxtest::ReadFile(dir + "stdin"));
    ASSERT_EQ(0, Kxnfs({"put", scratch / "short", Remote(root + "/a/xfer")}).status);
    EXPECT_EQ("short", kxtest::ReadFile(dir + "short"));
    mkdir((scratch / "into").c_str(), 0755);
    ASSERT_EQ(0, Kxnfs({"get", Remote(dir + "stdin"), scratch / "into"}).status);
    EXPECT_EQ("short", kxtest::ReadFile(scratch / "into/stdin"));
}

TEST_F(KxnfsTool, FailedTransfersSayWhereAndLeaveNoHalfFile) {
    const std::string dir = FreshDir("failing");
    mkdir((dir + "/sub").c_str(), 0755);
    Put(scratch / "in", "x");

    ToolRun r = Kxnfs({"get", Remote(dir + "/missing"), scratch / "out"});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("kxnfs: localhost:" + dir + "/missing: no such file or directory "
              "(status 0xE0030207)\n", r.err);
    EXPECT_EQ(std::vector<std::string>{"in"}, LocalNames(scratch.path()));  // no temporary left

    r = Kxnfs({"get", Remote(dir + "/sub"), scratch / "out"});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("kxnfs: localhost:" + dir + "/sub: is a directory (status 0xE003020A)\n", r.err);

    r = Kxnfs({"cat", Remote(root + "/nowhere/x")});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("kxnfs: localhost:" + root + "/nowhere/x: no export of the server holds this "
              "path (status 0xE0030203)\n", r.err);

    r = Kxnfs({"put", scratch / "in", Remote(dir + "/no/such/dir")});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.err.find("no such file or directory")) << r.err;

    // Local failures exit with 111.
    Put(dir + "/file", "data");
    r = Kxnfs({"get", Remote(dir + "/file"), "/proc/no-such-dir/out"});
    EXPECT_EQ(111, r.status);
    EXPECT_EQ(0u, r.err.find("kxnfs: /proc/no-such-dir/out: cannot create a temporary file"))
        << r.err;
    r = Kxnfs({"put", scratch / "missing", Remote(dir + "/x")});
    EXPECT_EQ(111, r.status);
    EXPECT_EQ("kxnfs: " + scratch / "missing" + ": No such file or directory\n", r.err);
    EXPECT_FALSE(Exists(dir + "/x"));
}

TEST_F(KxnfsTool, ListingMatchesTheLocalDirectory) {
    const std::string dir = FreshDir("list");
    std::vector<std::string> visible;
    for (int i = 0; i < 8; ++i) {
        char name[16];
        snprintf(name, sizeof name, "f%04d", i);
        Put(dir + "/" + name, std::string(static_cast<size_t>(i % 7), 'x'));
        visible.push_back(name);
    }
    mkdir((dir + "/sub").c_str(), 0750);
    ASSERT_EQ(0, symlink("f0001", (dir + "/link").c_str()));
    Put(dir + "/.hidden", "");
    visible.push_back("sub");
    visible.push_back("link");

    ToolRun r = Kxnfs({"ls", Remote(dir)});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ(Sorted(visible), Sorted(r.OutLines()));

    r = Kxnfs({"ls", "-a", Remote(dir)});
    ASSERT_EQ(0, r.status) << r.err;
    std::vector<std::string> all = r.OutLines();
    all.erase(std::remove_if(all.begin(), all.end(),
                             [](const std::string& n) { return n == "." || n == ".."; }),
              all.end());
    EXPECT_EQ(LocalNames(dir), Sorted(all));

    r = Kxnfs({"-u", "ls", "-l", Remote(dir)});
    ASSERT_EQ(0, r.status) << r.err;
    ASSERT_EQ(visible.size(), r.OutLines().size());
    for (const std::string& line : r.OutLines()) {
        const std::string name = line.substr(line.rfind(' ') + 1);
        if (line.find(" link -> f0001") != std::string::npos) {
            EXPECT_EQ(0u, line.find("lrwxrwxrwx ")) << line;
        } else if (name == "sub") {
            EXPECT_EQ(0u, line.find("drwxr-x--- ")) << line;
        } else {
            EXPECT_EQ('-', line[0]) << line;
            if (name == "f0006") {
                EXPECT_NE(std::string::npos, line.find(" 6 20")) << line;  // size, then year
            }
        }
    }

    r = Kxnfs({"-j", "ls", Remote(dir)});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ(visible.size(), r.OutLines().size());
    bool checked = false;
    EXPECT_TRUE(kxtest::JsonLinesValid(r.out, &checked));

    // A file is listed as itself; a missing directory is an error.
    r = Kxnfs({"ls", Remote(dir + "/f0003")});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ(dir + "/f0003\n", r.out);
    r = Kxnfs({"ls", Remote(dir + "/nothing")});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("kxnfs: localhost:" + dir + "/nothing: no such file or directory "
              "(status 0xE0030207)\n", r.err);
}

// Entries are printed as they arrive: the listing's peak memory does not grow with the
// directory (holding 100,000 entries would take tens of MB).
TEST_F(KxnfsTool, HundredThousandEntriesListInConstantMemory) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer's quarantine keeps freed memory resident";
#endif
    const std::string small = FreshDir("small"), large = FreshDir("large");
    const std::string name = "/entry-with-a-longish-name-";
    for (int i = 0; i < 100; ++i) Put(small + name + std::to_string(i), "");
    for (int i = 0; i < 100000; ++i) Put(large + name + std::to_string(i), "");
    const ToolRun few = Kxnfs({"ls", "-l", Remote(small)});
    const ToolRun many = Kxnfs({"ls", "-l", Remote(large)});
    ASSERT_EQ(0, few.status) << few.err;
    ASSERT_EQ(0, many.status) << many.err;
    EXPECT_EQ(100000u, many.OutLines().size());
    EXPECT_LT(many.maxRssKb - few.maxRssKb, 4096) << few.maxRssKb << " kB for 100 entries, "
                                                  << many.maxRssKb << " kB for 100,000";
}

TEST_F(KxnfsTool, ObjectCommandsAndTheirMainFailures) {
    const std::string dir = FreshDir("objects");
    const std::string where = "kxnfs: localhost:" + dir;
    Put(dir + "/file", "12345");
    mkdir((dir + "/full").c_str(), 0755);
    Put(dir + "/full/inside", "");

    ToolRun r = Kxnfs({"mkdir", Remote(dir + "/made")});
    EXPECT_EQ(0, r.status) << r.err;
    struct stat st {};
    ASSERT_EQ(0, stat((dir + "/made").c_str(), &st));
    EXPECT_TRUE(S_ISDIR(st.st_mode));
    r = Kxnfs({"rmdir", Remote(dir + "/made")});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_FALSE(Exists(dir + "/made"));
    r = Kxnfs({"rmdir", Remote(dir + "/file")});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ(where + "/file: not a directory (status 0xE003020A)\n", r.err);
    EXPECT_TRUE(Exists(dir + "/file"));
    r = Kxnfs({"rmdir", Remote(root + "/a")});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.err.find("is the root of an export")) << r.err;

    r = Kxnfs({"ln", "-s", "file", Remote(dir + "/link")});
    EXPECT_EQ(0, r.status) << r.err;
    char target[64] = {};
    EXPECT_EQ(4, readlink((dir + "/link").c_str(), target, sizeof target - 1));
    EXPECT_STREQ("file", target);
    r = Kxnfs({"readlink", Remote(dir + "/link")});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("file\n", r.out);
    r = Kxnfs({"cat", Remote(dir + "/link")});  // the last name's link is followed
    EXPECT_EQ("12345", r.out);
    r = Kxnfs({"readlink", Remote(dir + "/file")});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ(where + "/file: not a symbolic link (status 0xE003020A)\n", r.err);

    r = Kxnfs({"mv", Remote(dir + "/file"), "renamed"});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_FALSE(Exists(dir + "/file"));
    EXPECT_EQ("12345", kxtest::ReadFile(dir + "/renamed"));

    r = Kxnfs({"stat", Remote(dir + "/renamed")});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_NE(std::string::npos, r.out.find("  Type: regular file\n")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("  Size: 5 ")) << r.out;
    r = Kxnfs({"stat", Remote(dir + "/missing")});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("", r.out);
    EXPECT_EQ(where + "/missing: no such file or directory (status 0xE0030207)\n", r.err);
    r = Kxnfs({"-j", "stat", Remote(dir + "/renamed")});
    EXPECT_EQ(0u, r.out.find("{\"name\":\"" + dir + "/renamed\",\"type\":\"file\"")) << r.out;

    r = Kxnfs({"rm", Remote(dir + "/full")});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ(where + "/full: is a directory (use rmdir) (status 0xE003020A)\n", r.err);
    r = Kxnfs({"rm", Remote(dir + "/link")});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_FALSE(Exists(dir + "/link"));
    EXPECT_TRUE(Exists(dir + "/renamed"));  // the link went, not its target
}

// Names from the server are shown escaped, so they cannot drive the terminal or add lines; JSON
// stays valid for names that are not UTF-8.
TEST_F(KxnfsTool, RemoteNamesAreEscaped) {
    const std::string dir = FreshDir("names");
    for (const char* name : {"red\x1b[31m", "two\nlines", "caf\xe9"})
        Put(dir + "/" + name, "");
    ToolRun r = Kxnfs({"ls", Remote(dir)});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ((std::vector<std::string>{"caf\xe9", "red\\x1B[31m", "two\\nlines"}),
              Sorted(r.OutLines()));
    r = Kxnfs({"-j", "ls", Remote(dir)});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_NE(std::string::npos, r.out.find("\"name\":\"caf\\u00e9\"")) << r.out;
    bool checked = false;
    EXPECT_TRUE(kxtest::JsonLinesValid(r.out, &checked)) << r.out;
    r = Kxnfs({"rm", Remote(dir + "/gone\x1b]0;x\x07")});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ(std::string::npos, r.err.find('\x1b'));
    EXPECT_NE(std::string::npos, r.err.find("/gone\\x1B]0;x\\x07: no such")) << r.err;
}

// Regression: -U and -G values above 2^31 - 1 must reach the server as their 32-bit patterns.
TEST_F(KxnfsTool, NewObjectsBelongToTheGivenIds) {
    const std::string dir = FreshDir("ids");
    Put(scratch / "in", "owned");
    chmod((scratch / "in").c_str(), 0640);
    const mode_t mask = umask(0);
    umask(mask);
    ToolRun r = Kxnfs({"-U", "4000000000", "-G", "4000000001,5", "put", scratch / "in",
                       Remote(dir + "/owned")});
    ASSERT_EQ(0, r.status) << r.err;
    struct stat st {};
    ASSERT_EQ(0, stat((dir + "/owned").c_str(), &st));
    EXPECT_EQ(4000000000u, st.st_uid);
    EXPECT_EQ(4000000001u, st.st_gid);
    EXPECT_EQ(0640u & ~mask, st.st_mode & 07777u);  // the local bits less the umask, as cp
}

TEST_F(KxnfsTool, LockIsHeldWhileTheCommandRuns) {
    const std::string dir = FreshDir("lock");
    const std::string file = dir + "/f";
    Put(file, "locked data");

    ToolRun r = Kxnfs({"lock", Remote(file), "sh", "-c", "echo ran; exit 7"});
    EXPECT_EQ(7, r.status) << r.err;
    EXPECT_EQ("ran\n", r.out);

    // A holder in the background, signalled to stop once the other attempts were made. The
    // server tells lock owners apart by client address (every process of one machine is one
    // owner to it), so the other client reaches it at 127.0.0.2.
    const auto other = [&](const char* mode, const char* program) {
        return Kxnfs({"lock", mode, "127.0.0.2:" + file, program});
    };
    const std::string ready = scratch / "ready";
    const pid_t holder = kxtest::Spawn(
        {kTool, "lock", "-x", Remote(file), "sh", "-c", "touch " + ready + "; exec sleep 60"});
    ASSERT_TRUE(kxtest::Eventually([&] { return Exists(ready); }, std::chrono::seconds(30)));
    r = Kxnfs({"lock", "-x", "127.0.0.2:" + file, "echo", "never"});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("", r.out);
    EXPECT_EQ("kxnfs: 127.0.0.2:" + file + ": lock denied: another client holds a "
              "conflicting lock (status 0xE0030401)\n", r.err);
    EXPECT_EQ(1, other("-s", "true").status);
    // SIGTERM to kxnfs reaches the command, and the lock is released before kxnfs exits.
    kill(holder, SIGTERM);
    const auto wait = kxtest::WaitFor(holder, std::chrono::seconds(30));
    ASSERT_TRUE(wait.has_value());
    EXPECT_TRUE(WIFEXITED(*wait));
    EXPECT_EQ(128 + SIGTERM, WEXITSTATUS(*wait));
    EXPECT_EQ(0, other("-x", "true").status);

    r = Kxnfs({"lock", Remote(file), "/no/such/program"});
    EXPECT_EQ(127, r.status);
    EXPECT_EQ("kxnfs: cannot run /no/such/program: No such file or directory\n", r.err);
}

// A hostile server's export names reach the terminal escaped and JSON valid. The fake MOUNT
// lives in a sandbox of its own, apart from the real server.
void HostileExportNames() {
    auto& sandbox = kxtest::NFSSandbox::Get();
    const pid_t mount = sandbox.StartFake(100005, 3, "hostilenames");
    const pid_t nfs = sandbox.StartFake(100003, 3, "accept");
    ASSERT_GT(mount, 0);
    ASSERT_GT(nfs, 0);
    ToolRun r = Kxnfs({"exports", "127.0.0.1"});
    EXPECT_EQ(std::string::npos, r.out.find('\x1b')) << r.out;
    EXPECT_EQ(std::string::npos, r.out.find("\xc2\x9b")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("/export/red\\x1B[31mtext ")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("/export/two\\nlines ")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("/export/csi\\x9B2J ")) << r.out;
    EXPECT_EQ(5u, r.OutLines().size()) << r.out;  // the heading and one line per export
    r = Kxnfs({"-j", "exports", "127.0.0.1"});
    EXPECT_NE(std::string::npos, r.out.find("\"export\":\"/export/caf\\u00e9\"")) << r.out;
    bool checked = false;
    EXPECT_TRUE(kxtest::JsonLinesValid(r.out, &checked)) << r.out;
    sandbox.Stop(nfs);
    sandbox.Stop(mount);
}

TEST_F(KxnfsTool, HostileExportNamesAreEscaped) {
    EXPECT_TRUE(kxtest::RunInFakeSandbox<HostileExportNames>());
}

}  // namespace
