// The kxnfs program against the sandboxed server, as a user runs it: output, error lines and
// exit codes of every command, files moved both ways, listings, locks held across two
// processes. What the NFS layer does with each request is that layer's suites' business.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "kxFakeBrowse.h"
#include "kxNFSServerTest.h"
#include "kxToolRun.h"

namespace {

using kxtest::Exists;
using kxtest::JsonLinesValid;
using kxtest::Put;
using kxtest::RandomBytes;
using kxtest::ToolRun;

#ifdef KX_NFS_TOOL
const char* const kTool = KX_NFS_TOOL;
#else
const char* const kTool = nullptr;
#endif

ToolRun Kxnfs(const std::vector<std::string>& args, const std::string& stdinPath = "/dev/null") {
    return kxtest::RunProgram(kTool, args, stdinPath);
}

std::vector<std::string> Sorted(std::vector<std::string> v) {
    std::sort(v.begin(), v.end());
    return v;
}

std::vector<std::string> LocalNames(const std::string& dir) {
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(dir))
        names.push_back(e.path().filename());
    return Sorted(names);
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
    EXPECT_EQ("kxnfs: no-such-host.invalid: unknown host (status 0xE0FF012A)\n", r.err);
}

// (Which command lines are refused is the parser's own suite's business.)
TEST_F(KxnfsTool, UsageErrorsExitWith100) {
    const ToolRun r = Kxnfs({"lock", "localhost:/a/x"});
    EXPECT_EQ(100, r.status);
    EXPECT_EQ("", r.out);
    EXPECT_EQ(0u, r.err.find("kxnfs: ")) << r.err;
    EXPECT_NE(std::string::npos, r.err.find("usage: kxnfs")) << r.err;
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
            const std::string remote = Remote(dir + "f" + (route.transport + 1));
            Put(scratch / "in", bytes);
            ToolRun r = Kxnfs({route.transport, "put", scratch / "in", remote});
            ASSERT_EQ(0, r.status) << r.err;
            EXPECT_EQ("", r.err);  // no progress line off a terminal
            r = Kxnfs({route.transport, "get", remote, scratch / "out"});
            ASSERT_EQ(0, r.status) << r.err;
            EXPECT_TRUE(kxtest::ReadFile(scratch / "out") == bytes);
            EXPECT_EQ((std::vector<std::string>{"in", "out"}), LocalNames(scratch.path()));
        }
    }

    // put replaces a longer file completely, reads standard input, and goes into a directory
    // under the local name; get into a directory takes the remote name; cat writes the bytes.
    const std::string dir = root + "/a/xfer/";
    Put(scratch / "short", "short");
    ASSERT_EQ(0, Kxnfs({"put", scratch / "short", Remote(dir + "fu")}).status);
    EXPECT_EQ("short", kxtest::ReadFile(dir + "fu"));
    ASSERT_EQ(0, Kxnfs({"put", "-", Remote(dir + "stdin")}, scratch / "short").status);
    EXPECT_EQ("short", kxtest::ReadFile(dir + "stdin"));
    mkdir((scratch / "into").c_str(), 0755);
    ASSERT_EQ(0, Kxnfs({"get", Remote(dir + "stdin"), scratch / "into"}).status);
    EXPECT_EQ("short", kxtest::ReadFile(scratch / "into/stdin"));
    EXPECT_EQ("short", Kxnfs({"cat", Remote(dir + "stdin")}).out);

    // Regression: -U and -G values above 2^31 - 1 must reach the server as their 32-bit
    // patterns, the first group the primary one; the mode is the local bits less the umask.
    chmod((scratch / "short").c_str(), 0640);
    const mode_t mask = umask(0);
    umask(mask);
    ASSERT_EQ(0, Kxnfs({"-U", "4000000000", "-G", "4000000001,5", "put", scratch / "short",
                        Remote(root + "/a/xfer")})
                     .status);
    struct stat st {};
    ASSERT_EQ(0, stat((dir + "short").c_str(), &st));
    EXPECT_EQ(4000000000u, st.st_uid);
    EXPECT_EQ(4000000001u, st.st_gid);
    EXPECT_EQ(0640u & ~mask, st.st_mode & 07777u);
}

TEST_F(KxnfsTool, FailedTransfersSayWhereAndLeaveNoHalfFile) {
    const std::string dir = FreshDir("failing");
    mkdir((dir + "/sub").c_str(), 0755);
    Put(dir + "/file", "data");

    ToolRun r = Kxnfs({"get", Remote(dir + "/missing"), scratch / "out"});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("kxnfs: localhost:" + dir + "/missing: no such file or directory "
              "(status 0xE0030207)\n", r.err);
    EXPECT_TRUE(LocalNames(scratch.path()).empty()) << "no temporary file left";
    r = Kxnfs({"get", Remote(dir + "/sub"), scratch / "out"});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("kxnfs: localhost:" + dir + "/sub: is a directory (status 0xE003020A)\n", r.err);

    // Local failures exit with 111.
    r = Kxnfs({"get", Remote(dir + "/file"), "/proc/no-such-dir/out"});
    EXPECT_EQ(111, r.status);
    EXPECT_EQ(0u, r.err.find("kxnfs: /proc/no-such-dir/out: cannot create a temporary file"))
        << r.err;
    r = Kxnfs({"put", scratch / "missing", Remote(dir + "/x")});
    EXPECT_EQ(111, r.status);
    EXPECT_EQ("kxnfs: " + scratch / "missing" + ": No such file or directory\n", r.err);
    EXPECT_FALSE(Exists(dir + "/x"));
}

// Names from the server are shown escaped, so they cannot drive the terminal or add lines; JSON
// stays valid for names that are not UTF-8.
TEST_F(KxnfsTool, ListingsShowEveryEntryEscaped) {
    const std::string dir = FreshDir("list");
    Put(dir + "/f6", "xxxxxx");
    mkdir((dir + "/sub").c_str(), 0750);
    ASSERT_EQ(0, symlink("f6", (dir + "/link").c_str()));
    Put(dir + "/.hidden", "");
    for (const char* name : {"red\x1b[31m", "two\nlines", "caf\xe9"}) Put(dir + "/" + name, "");
    const std::vector<std::string> shown{"caf\xe9", "f6", "link", "red\\x1B[31m", "sub",
                                         "two\\nlines"};

    ToolRun r = Kxnfs({"ls", Remote(dir)});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ(shown, Sorted(r.OutLines()));

    r = Kxnfs({"-u", "ls", "-l", Remote(dir)});
    ASSERT_EQ(0, r.status) << r.err;
    ASSERT_EQ(shown.size(), r.OutLines().size());
    const std::string lines = "\n" + r.out;
    EXPECT_NE(std::string::npos, lines.find("\nlrwxrwxrwx ")) << r.out;
    EXPECT_NE(std::string::npos, lines.find(" link -> f6\n")) << r.out;
    EXPECT_NE(std::string::npos, lines.find(" 6 20")) << r.out;  // f6's size, then the year

    r = Kxnfs({"-j", "ls", Remote(dir)});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ(shown.size(), r.OutLines().size());
    EXPECT_NE(std::string::npos, r.out.find("\"name\":\"caf\\u00e9\"")) << r.out;
    EXPECT_TRUE(JsonLinesValid(r.out)) << r.out;

    // A file is listed as itself.
    r = Kxnfs({"ls", Remote(dir + "/f6")});
    EXPECT_EQ(dir + "/f6\n", r.out);
}

TEST_F(KxnfsTool, ObjectCommandsAndTheirMainFailures) {
    const std::string dir = FreshDir("objects");
    const std::string where = "kxnfs: localhost:" + dir;
    Put(dir + "/file", "12345");
    mkdir((dir + "/full").c_str(), 0755);

    ToolRun r = Kxnfs({"mkdir", Remote(dir + "/made")});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_TRUE(Exists(dir + "/made"));
    r = Kxnfs({"rmdir", Remote(dir + "/made")});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_FALSE(Exists(dir + "/made"));
    r = Kxnfs({"rmdir", Remote(dir + "/file")});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ(where + "/file: not a directory (status 0xE003020A)\n", r.err);
    r = Kxnfs({"rmdir", Remote(root + "/a")});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.err.find("is the root of an export")) << r.err;

    r = Kxnfs({"ln", "-s", "file", Remote(dir + "/link")});
    EXPECT_EQ(0, r.status) << r.err;
    r = Kxnfs({"readlink", Remote(dir + "/link")});
    EXPECT_EQ("file\n", r.out);
    r = Kxnfs({"cat", Remote(dir + "/link")});  // the last name's link is followed
    EXPECT_EQ("12345", r.out);
    r = Kxnfs({"readlink", Remote(dir + "/file")});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ(where + "/file: not a symbolic link (status 0xE003020A)\n", r.err);

    r = Kxnfs({"mv", Remote(dir + "/file"), "renamed"});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("12345", kxtest::ReadFile(dir + "/renamed"));

    r = Kxnfs({"stat", Remote(dir + "/renamed")});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_NE(std::string::npos, r.out.find("  Type: regular file\n")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("  Size: 5 ")) << r.out;
    r = Kxnfs({"-j", "stat", Remote(dir + "/renamed")});
    EXPECT_EQ(0u, r.out.find("{\"name\":\"" + dir + "/renamed\",\"type\":\"file\"")) << r.out;

    r = Kxnfs({"rm", Remote(dir + "/full")});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ(where + "/full: is a directory (use rmdir) (status 0xE003020A)\n", r.err);
    r = Kxnfs({"rm", Remote(dir + "/link")});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_FALSE(Exists(dir + "/link"));
    EXPECT_TRUE(Exists(dir + "/renamed"));  // the link went, not its target
    r = Kxnfs({"rm", Remote(dir + "/gone\x1b]0;x\x07")});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ(where + "/gone\\x1B]0;x\\x07: no such file or directory (status 0xE0030207)\n",
              r.err);
}

TEST_F(KxnfsTool, LockIsHeldWhileTheCommandRuns) {
    const std::string file = FreshDir("lock") + "/f";
    Put(file, "locked data");

    ToolRun r = Kxnfs({"lock", Remote(file), "sh", "-c", "echo ran; exit 7"});
    EXPECT_EQ(7, r.status) << r.err;
    EXPECT_EQ("ran\n", r.out);

    // A holder in the background, signalled to stop once the other attempts were made. The
    // server tells lock owners apart by client address (every process of one machine is one
    // owner to it), so the other client reaches it at 127.0.0.2.
    const std::string ready = scratch / "ready";
    const pid_t holder = kxtest::Spawn(
        {kTool, "lock", "-x", Remote(file), "sh", "-c", "touch " + ready + "; exec sleep 60"});
    ASSERT_TRUE(kxtest::Eventually([&] { return Exists(ready); }, std::chrono::seconds(30)));
    r = Kxnfs({"lock", "-s", "127.0.0.2:" + file, "echo", "never"});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("", r.out);
    EXPECT_EQ("kxnfs: 127.0.0.2:" + file + ": lock denied: another client holds a "
              "conflicting lock (status 0xE0030401)\n", r.err);
    // SIGTERM to kxnfs reaches the command, and the lock is released before kxnfs exits.
    kill(holder, SIGTERM);
    const auto wait = kxtest::WaitFor(holder, std::chrono::seconds(30));
    ASSERT_TRUE(wait.has_value());
    EXPECT_TRUE(WIFEXITED(*wait));
    EXPECT_EQ(128 + SIGTERM, WEXITSTATUS(*wait));
    EXPECT_EQ(0, Kxnfs({"lock", "-x", "127.0.0.2:" + file, "true"}).status);

    r = Kxnfs({"lock", Remote(file), "/no/such/program"});
    EXPECT_EQ(127, r.status);
    EXPECT_EQ("kxnfs: cannot run /no/such/program: No such file or directory\n", r.err);
}

// A hostile server's export names reach the terminal escaped. The fake MOUNT
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
    EXPECT_NE(std::string::npos, r.out.find("/export/csi\\x9B2J ")) << r.out;
    EXPECT_EQ(5u, r.OutLines().size()) << r.out;  // the heading and one line per export
    sandbox.Stop(nfs);
    sandbox.Stop(mount);
}

TEST_F(KxnfsTool, HostileExportNamesAreEscaped) {
    EXPECT_TRUE(kxtest::RunInFakeSandbox<HostileExportNames>());
}

}  // namespace
