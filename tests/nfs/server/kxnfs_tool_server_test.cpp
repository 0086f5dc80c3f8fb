// The kxnfs command against the sandboxed server: output, exit codes.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <string>

#include "kxNFSSandbox.h"

namespace {

struct ToolRun {
    int status;
    std::string out;
};

ToolRun Kxnfs(const std::string& args) {
    ToolRun r{-1, ""};
#ifdef KX_NFS_TOOL
    FILE* p = popen((std::string(KX_NFS_TOOL) + " " + args + " 2>&1").c_str(), "r");
    if (p == nullptr) return r;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) r.out.append(buf, n);
    const int w = pclose(p);
    r.status = WIFEXITED(w) ? WEXITSTATUS(w) : -1;
#endif
    return r;
}

TEST(KxnfsTool, ExportsAndPingAgainstServer) {
#ifndef KX_NFS_TOOL
    GTEST_SKIP() << "the kxnfs tool is not built";
#endif
    auto& sandbox = kxtest::NFSSandbox::Get();
    if (!sandbox.Usable()) GTEST_SKIP() << sandbox.Why();
    if (!sandbox.StartNFSServer()) {
        if (!sandbox.Usable()) GTEST_SKIP() << sandbox.Why();
        FAIL() << sandbox.Failure();
    }
    ToolRun r = Kxnfs("exports localhost");
    EXPECT_EQ(0, r.status) << r.out;
    EXPECT_NE(std::string::npos, r.out.find(sandbox.ExportRoot() + "/a/b ")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("GiB")) << r.out;

    r = Kxnfs("-u -j exports localhost");
    EXPECT_EQ(0, r.status) << r.out;
    EXPECT_NE(std::string::npos,
              r.out.find("\"export\":\"" + sandbox.ExportRoot() + "/data\",\"mounted\":true"))
        << r.out;
    EXPECT_NE(std::string::npos, r.out.find("\"readPreferred\":65536")) << r.out;

    r = Kxnfs("-t ping 127.0.0.1");
    EXPECT_EQ(0, r.status) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("127.0.0.1: MOUNT and NFS answer, round trip ")) << r.out;

    EXPECT_EQ(1, Kxnfs("ping no-such-host.invalid").status);
    EXPECT_EQ(100, Kxnfs("ping").status);
    EXPECT_EQ(100, Kxnfs("-G x exports localhost").status);
    EXPECT_EQ(100, Kxnfs("mount localhost").status);
}

}  // namespace
