// The browse object against a real NFS server in the test's sandbox.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
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

class NFSServer : public kxtest::NFSServerTest {
protected:

};

TEST_F(NFSServer, CreatesOverEveryTransportAndListsExports) {
    for (eUseProtocol protocol : {eUseTCP, eUseUDP, eUseTCPThenUDP}) {
        SCOPED_TRACE(protocol);
        auto browse = Browse(protocol);
        ASSERT_TRUE(browse);
        EXPECT_TRUE(browse->Verify());

        std::vector<std::string> paths{"kept"};
        browse->ExportPaths(paths);
        ASSERT_EQ(4u, paths.size()) << ::testing::PrintToString(paths);
        EXPECT_EQ("kept", paths[0]);  // appends, clears nothing
        for (const char* e : {"/a", "/a/b", "/data"})
            EXPECT_NE(paths.end(), std::find(paths.begin(), paths.end(), root + e)) << e;

        std::vector<ExportInfo> list;
        EXPECT_TRUE(browse->Exports(list));
        ASSERT_EQ(3u, list.size());
        for (const ExportInfo& info : list) {
            SCOPED_TRACE(info.serverPath);
            EXPECT_EQ(info.serverPath, info.path);
            EXPECT_EQ(kDirEntryDirectory, info.type);
            EXPECT_GT(info.handleLength, 0u);
            EXPECT_GT(info.totalBytes, 0u);
            EXPECT_GE(info.totalBytes, info.freeBytes);
            EXPECT_EQ(1024u, info.unitSize);
            EXPECT_GT(info.nameMax, 0u);
            EXPECT_GT(info.writeTime, 116444736000000000ull);
            if (info.serverPath == root + "/data") {
                EXPECT_EQ(65536u, info.readPreferred);
                EXPECT_EQ(65536u, info.writePreferred);
                EXPECT_EQ(65536u, info.maxTransfer);
            }
        }
    }
}

TEST_F(NFSServer, ByAddressOverUdpVerifiesAndMountsOncePerObject) {
    unsigned long address = 0;
    ASSERT_EQ(KX_OK, kxNetUtils::GetHostIPAddress("127.0.0.1", address));
    NFSBrowse* b = nullptr;
    ASSERT_EQ(KX_OK, CreateNFSBrowse(b, address, 0, kGroups, nullptr, eUseUDP, ""));
    std::unique_ptr<NFSBrowse> browse(b);
    EXPECT_TRUE(browse->Verify());
    ExportInfo first, second;
    ASSERT_TRUE(browse->FindMountPoint(root + "/data/f", first));
    ASSERT_TRUE(browse->FindMountPoint(root + "/data/g", second));
    // The cached mount hands out the same root handle.
    ASSERT_EQ(first.handleLength, second.handleLength);
    EXPECT_EQ(0, memcmp(first.handle, second.handle, first.handleLength));
    EXPECT_EQ(0, browse->GetLastObjectError());
}

TEST_F(NFSServer, FactoryFailures) {
    NFSBrowse* b = reinterpret_cast<NFSBrowse*>(0x1);
    EXPECT_EQ(KX_E_HOST_NOT_FOUND,
              CreateNFSBrowse(b, std::string("no-such-host.invalid"), 0, kGroups, nullptr, eUseTCP));
    EXPECT_EQ(nullptr, b);
    b = reinterpret_cast<NFSBrowse*>(0x1);
    EXPECT_EQ(KX_E_RPC_AUTH, CreateNFSBrowse(b, std::string("localhost"), 0, {}, nullptr, eUseTCP));
    EXPECT_EQ(nullptr, b);
}

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

TEST_F(NFSServer, FactoryTranslatesUnregisteredProgramAndMissingPortMapper) {
    EXPECT_EQ(static_cast<int>(KX_E_RPC_PROG_UNAVAILABLE),
              kxtest::InFreshSandbox(true, CreateWithoutServer));
    EXPECT_EQ(static_cast<int>(KX_E_NFS_NO_PORTMAPPER),
              kxtest::InFreshSandbox(false, CreateWithoutPortMapper));
}

}  // namespace
