// NFSBrowseImplCommon: the state and the version-independent operations every browse
// implementation shares (Verify, FindMountPoint, LockFile, GetLastObjectError, connecting).
// Internal to the NFS client: callers see NFSBrowse and the factory only.
#pragma once

#include <memory>
#include <string>

#include "nfs/ExportMount.h"
#include "nfs/NFSBrowse.h"
#include "nfs/kxRPCWrappers.h"

namespace kxNFSUtils {

class NFSBrowseImplCommon : public NFSBrowse {
public:
    // Takes ownership of auth.
    NFSBrowseImplCommon(unsigned long address, RPCAuth* auth, int mountVersion, int nfsVersion,
                        CancelledIf* cancelled, const std::string& hostName);
    NFSBrowseImplCommon(const NFSBrowseImplCommon&) = delete;
    NFSBrowseImplCommon& operator=(const NFSBrowseImplCommon&) = delete;

    // Connects MOUNT (and reads the export list), then NFS: eUseTCPThenUDP tries TCP and then
    // UDP, eUseUDP uses UDP, anything else TCP. Returns 0 or the first failure's status.
    long Init(eUseProtocol protocol);

    bool Verify() override;
    bool FindMountPoint(const std::string& path, ExportInfo& info) override;
    // See NFSBrowse::LockFile (NFSLock.cpp).
    bool LockFile(const DirEntry& file, bool lock, bool exclusive) override;
    // The lock manager's client handle, connecting on first use: program 100021 in lockVersion
    // over TCP, then UDP, with the object's credentials. When the port mapper says that version
    // is not registered, the other one (1 or 4) is tried and, if it connects, remembered in
    // lockVersion. Null when nothing connects; nothing is remembered then, so a later call
    // tries again. The handle lives as long as lockClient. A port mapper that hands out another
    // version's port for a missing one (rpcbind does) lets a version-1 client connect to a
    // version-4-only lock manager: LockFile's first request finds out and replaces it.
    CLIENT* GetLockClient();
    long GetLastObjectError() override { return lastError; }

protected:
    // Members are destroyed in reverse order: the export cache unmounts while the clients and
    // the credentials they use still exist.
    std::string hostName;               // as the caller named the server; may be empty
    std::unique_ptr<RPCAuth> auth;      // credentials of every call
    std::unique_ptr<RPCClient> nfsClient;
    std::unique_ptr<RPCClient> lockClient;  // made on first use
    // The lock-manager version lockClient speaks: 1 until the server shows it offers only 4.
    static constexpr int kNLMVersion1 = 1;
    static constexpr int kNLMVersion4 = 4;
    int lockVersion = kNLMVersion1;
    unsigned long address;              // IPv4, network byte order
    CancelledIf* cancelled;             // not owned, may be null
    long lastError = 0;
    std::string localName;              // this machine's name
    ExportMount exportMount;
    int nfsVersion;
};

}  // namespace kxNFSUtils
