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
    // The lock manager is not reached yet: refuses (KX_E_REFUSED in the last error).
    bool LockFile(const DirEntry& file, bool lock, bool exclusive) override;
    long GetLastObjectError() override { return lastError; }

protected:
    // Members are destroyed in reverse order: the export cache unmounts while the clients and
    // the credentials they use still exist.
    std::string hostName;               // as the caller named the server; may be empty
    std::unique_ptr<RPCAuth> auth;      // credentials of every call
    std::unique_ptr<RPCClient> nfsClient;
    std::unique_ptr<RPCClient> lockClient;  // made on first use
    unsigned long address;              // IPv4, network byte order
    CancelledIf* cancelled;             // not owned, may be null
    long lastError = 0;
    std::string localName;              // this machine's name
    ExportMount exportMount;
    int nfsVersion;
};

}  // namespace kxNFSUtils
