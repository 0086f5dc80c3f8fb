// The fixture of tests against the sandbox's real NFS server: skips with the reason where the
// sandbox cannot exist, fails when the server would not come up, and makes browse objects on
// it (as root, uid 0 and group 0, unless told otherwise).
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
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
    void TearDown() override {
        if (!m_testDir.empty()) std::filesystem::remove_all(m_testDir);
    }

    // A browse object on the sandbox's server by name; null (and a failure) when none is made.
    std::unique_ptr<kxNFSUtils::NFSBrowse> Browse(kxNFSUtils::eUseProtocol protocol, int uid = 0,
                                                  const std::vector<int>& gids = {0},
                                                  kxNFSUtils::CancelledIf* cancel = nullptr) {
        kxNFSUtils::NFSBrowse* b = nullptr;
        EXPECT_EQ(KX_OK, kxNFSUtils::CreateNFSBrowse(b, std::string("localhost"), uid, gids,
                                                     cancel, protocol));
        return std::unique_ptr<kxNFSUtils::NFSBrowse>(b);
    }

    // A new empty directory (mode 0777) named after the test under the export "data", so that
    // tests never see each other's objects; removed when the test ends.
    std::string MakeTestDir() {
        m_testDir = root + "/data/" + ::testing::UnitTest::GetInstance()->current_test_info()->name();
        std::filesystem::remove_all(m_testDir);
        EXPECT_EQ(0, mkdir(m_testDir.c_str(), 0777));
        chmod(m_testDir.c_str(), 0777);
        return m_testDir;
    }

    std::string root;  // the directory that holds the exports a, a/b and data

private:
    std::string m_testDir;
};

// n pseudo-random bytes, the same ones for the same seed.
inline std::string RandomBytes(size_t n, unsigned seed) {
    std::mt19937 gen(seed);
    std::string s(n, '\0');
    for (char& c : s) c = static_cast<char>(gen());
    return s;
}

// Replaces a local file (the server's side of an export) with bytes.
inline void Put(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

// Whether a local name exists (a symbolic link is not followed).
inline bool Exists(const std::string& path) {
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

// Answers "cancelled" from the from'th question on.
struct CancelFrom final : kxNFSUtils::CancelledIf {
    bool Cancelled() override { return ++asked >= from; }
    int asked = 0;
    int from = 1 << 30;
};

}  // namespace kxtest
