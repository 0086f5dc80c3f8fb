// How creating a browse object fails.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "kxNFSSandbox.h"
#include "kxNFSServerTest.h"
#include "nfs/NFSBrowse.h"
#include "platform/kxNetUtils.h"

using namespace kxNFSUtils;

namespace {

const std::vector<int> kGroups{0};

using NFSServer = kxtest::NFSServerTest;

// Run in a fresh sandbox that has no NFS server, and maybe not even a port mapper: the
// factory's status, or 1 when it made an object all the same.
int CreateInEmptySandbox() {
    NFSBrowse* b = nullptr;
    const long rc = CreateNFSBrowse(b, std::string("127.0.0.1"), 0, kGroups, nullptr, eUseTCP);
    return b == nullptr ? static_cast<int>(rc) : 1;
}

// The factory's failures, each a status of its own: no primary group, an unknown host, no MOUNT
// program registered, no port mapper at all.
TEST_F(NFSServer, FactoryFailures) {
    NFSBrowse* b = reinterpret_cast<NFSBrowse*>(0x1);
    EXPECT_EQ(KX_E_RPC_AUTH, CreateNFSBrowse(b, std::string("localhost"), 0, {}, nullptr, eUseTCP));
    EXPECT_EQ(nullptr, b);
    EXPECT_EQ(KX_E_HOST_NOT_FOUND,
              CreateNFSBrowse(b, std::string("no-such-host.invalid"), 0, kGroups, nullptr, eUseTCP));
    EXPECT_EQ(static_cast<int>(KX_E_RPC_PROG_UNAVAILABLE),
              kxtest::InFreshSandbox(true, CreateInEmptySandbox));
    EXPECT_EQ(static_cast<int>(KX_E_NFS_NO_PORTMAPPER),
              kxtest::InFreshSandbox(false, CreateInEmptySandbox));
}

}  // namespace
