// The fixture of tests against the sandbox's real NFS server: skips with the reason where the
// sandbox cannot exist, fails when the server would not come up, and makes browse objects on
// it as root (uid 0, group 0).
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "kxNFSSandbox.h"
#include "nfs/NFSBrowse.h"

namespace kxtest {

class NFSServerTest : public ::testing::Test {
protected:
    void SetUp() override {
        auto& sandbox = NFSSandbox::Get();
        if (!sandbox.Usable()) GTEST_SKIP() << sandbox.Why();
        if (!sandbox.StartNFSServer()) {
            if (!sandbox.Usable()) GTEST_SKIP() << sandbox.Why();
            FAIL() << sandbox.Failure();
        }
        root = sandbox.ExportRoot();
    }

    // A browse object on the sandbox's server by name; null (and a failure) when none is made.
    std::unique_ptr<kxNFSUtils::NFSBrowse> Browse(kxNFSUtils::eUseProtocol protocol) {
        kxNFSUtils::NFSBrowse* b = nullptr;
        EXPECT_EQ(KX_OK, kxNFSUtils::CreateNFSBrowse(b, std::string("localhost"), 0,
                                                     std::vector<int>{0}, nullptr, protocol));
        return std::unique_ptr<kxNFSUtils::NFSBrowse>(b);
    }

    std::string root;  // the directory that holds the exports a, a/b and data
};

}  // namespace kxtest
