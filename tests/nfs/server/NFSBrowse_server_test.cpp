// How creating a browse object fails.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "kxLogCapture.h"
#include "kxNFSSandbox.h"
#include "kxNFSServerTest.h"
#include "nfs/NFSBrowse.h"
#include "platform/kxNetUtils.h"

using namespace kxNFSUtils;

namespace {

const std::vector<int> kGroups{0};

using NFSServer = kxtest::NFSServerTest;

// A fresh sandbox with a port mapper but no NFS server: MOUNT is not registered. Made by
// address without a name, so the log line names the server by its dotted address.
int CreateWithoutServer() {
    kxtest::LogCapture log;
    NFSBrowse* b = nullptr;
    unsigned long address = 0;
    kxNetUtils::GetHostIPAddress("127.0.0.1", address);
    const long rc = CreateNFSBrowse(b, address, 0, kGroups, nullptr, eUseTCP, "");
    if (b != nullptr || log.Records().size() != 1 ||
        log.Records()[0].text.find("CreateNFSBrowse failed (system err 0x") != 0 ||
        log.Records()[0].text.find(", RPC status 15) 127.0.0.1") == std::string::npos)
        return 1;
    return static_cast<int>(rc);
}

// A fresh sandbox with no port mapper at all.
int CreateWithoutPortMapper() {
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
              kxtest::InFreshSandbox(true, CreateWithoutServer));
    EXPECT_EQ(static_cast<int>(KX_E_NFS_NO_PORTMAPPER),
              kxtest::InFreshSandbox(false, CreateWithoutPortMapper));
}

}  // namespace
