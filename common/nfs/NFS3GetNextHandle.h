// NFS3GetNextHandle: one directory enumeration over NFS version 3 READDIRPLUS, a batch of
// entries per request, handed out one entry at a time. Internal to the NFS client: callers get
// it from NFSBrowse::GetFirstDirEntry as an NFSGetNextHandle and delete it when done.
//
// The handle keeps a private copy of the directory's file handle and strings, so the DirEntry
// it was made from may go away. It does not own the CLIENT*: the browse object that made it
// must outlive it. One thread at a time.
#pragma once

#include <rpc/rpc.h>

#include <cstdint>
#include <string>

#include "nfs/DirEntry.h"
#include "nfs/NFSBrowse.h"
#include "xdr/nfs3_prot.h"

namespace kxNFSUtils {

// The sizes every listing asks for: up to 1024 bytes of names and cookies, 8192 bytes of reply.
constexpr uint32_t kReadDirPlusDirCount = 1024;
constexpr uint32_t kReadDirPlusMaxCount = 8192;

// READDIRPLUS arguments for the first batch of dir: its handle (pointing into `handle`, which
// must outlive the arguments), cookie 0, a zero cookie verifier and the two sizes above.
readdirplus3args ReadDirPlusArgs(const uint8_t* handle, uint32_t handleLength);

// The entry for one READDIRPLUS entry of the directory dirPath: both paths dirPath "/" name
// (one '/' only when dirPath already ends with one, as the export "/" does), the attributes
// and the handle as they arrived (neither present-flag is consulted, so an entry sent without
// them has zero attributes and a zero-length handle; a handle longer than a DirEntry holds
// gives a zero-length one too), and the directory's preferred transfer sizes.
void EntryFromReadDirPlus(const entryplus3& e, const std::string& dirPath, uint32_t readPreferred,
                          uint32_t writePreferred, DirEntry& entry);

class NFS3GetNextHandle final : public NFSGetNextHandle {
public:
    // Ready to ask for the first batch of dir; nothing is sent yet.
    NFS3GetNextHandle(CLIENT* client, const std::string& hostName, const DirEntry& dir);
    ~NFS3GetNextHandle() override;
    NFS3GetNextHandle(const NFS3GetNextHandle&) = delete;
    NFS3GetNextHandle& operator=(const NFS3GetNextHandle&) = delete;

    // Releases the held batch and asks for the next one from the current cookie. False without
    // a request once the server has reported the end of the directory; false with the
    // translated code in LastError() when the request fails (logged as
    // "nfsproc3_readdirplus_3 (status %d, err 0x%8.8X)" with the detail host ":" dirPath).
    bool GetNextBatch();
    // The next entry, fetching a batch when the held one is used up. False at the end of the
    // directory (LastError() unchanged: 0 unless a batch failed before) or when a batch fails.
    // Each entry handed out moves the cookie to its own, so the next batch continues after it.
    bool GetNextEntry(DirEntry& entry);
    // Releases the held batch.
    void FreeRes();
    // The code of the last failed batch, 0 until one fails.
    long LastError() const { return lastError; }

private:
    // The cookie verifier stays zero on every request, whatever the server sends back: kept on
    // purpose (servers accept a zero verifier for every cookie they hand out).
    readdirplus3args args;
    uint8_t handle[kDirEntryHandleSize];  // args.dir points here
    readdirplus3res result;
    bool haveResult = false;
    const entryplus3* current = nullptr;  // next unread entry of result, or null
    bool atEnd = false;                   // the last batch ended the directory
    CLIENT* client;                       // not owned
    std::string hostName;
    std::string dirPath;
    uint32_t readPreferred;
    uint32_t writePreferred;
    long lastError = 0;
};

}  // namespace kxNFSUtils
