// ExportMount: a browse object's MOUNT service connection, the server's export list and the
// cache of mounted exports.
//
// The export list is read once, at Init, and never refreshed. Every mount attempt is cached
// for the object's life, failures included, so an export that failed once is not mounted
// again by the same object. When the object ends, every export that mounted is unmounted.
//
// Thread safety: none; owned and used by one browse object.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "nfs/DirEntry.h"
#include "nfs/kxRPCWrappers.h"

namespace kxNFSUtils {

class CancelledIf;

class ExportMount {
public:
    // mountVersion 1 or 3 selects the MNT and UMNT procedures; any other version mounts nothing.
    ExportMount(int version, CancelledIf* cancel) : mountVersion(version), cancelled(cancel) {}
    // Runs Term.
    virtual ~ExportMount();
    ExportMount(const ExportMount&) = delete;
    ExportMount& operator=(const ExportMount&) = delete;

    // Connects to MOUNT at address over TCP with the given credentials (which must outlive this
    // object) and reads the export list. Returns 0, the client-creation status, or KX_E_REFUSED
    // when the export list could not be read (or the caller cancelled while it was read).
    long Init(unsigned long address, const std::string& hostName, RPCAuth* auth);

    // Reads the export list (EXPORT procedure) into exportPaths. False on a transport failure
    // or when the caller cancels; paths read before the cancellation stay.
    bool ListExports();

    // The cached record for exportPath, mounting it on first use. type is kDirEntryDirectory
    // after a successful mount (handle set) and kDirEntryInvalid after a failed one.
    ExportInfo& MountHandle(const std::string& exportPath);

    // Unmounts every cached export that mounted (answers ignored) and closes the connection.
    // Safe to call more than once.
    void Term();

    RPCClient* Client() { return mountClient.get(); }
    const std::vector<std::string>& Paths() const { return exportPaths; }

private:
    std::unique_ptr<RPCClient> mountClient;
    std::vector<std::string> exportPaths;  // in the order the server listed them
    int mountVersion;
    CancelledIf* cancelled;                // shared with the owner, may be null
    std::map<std::string, ExportInfo> exports;
    std::string hostName;
};

// MOUNT version 3 MNT of path: on success copies the handle into entry (handle, handleLength)
// and returns true. A failure is translated and logged ("mountproc3_mnt_3 ...", detail
// host ":" path) and false is returned; the code itself is not passed on.
bool Mount3(CLIENT* client, char* path, DirEntry& entry, const std::string& host);

}  // namespace kxNFSUtils
