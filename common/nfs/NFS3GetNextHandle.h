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

// Watches the cookies one listing asks with, one per batch, for a server whose cookies lead back
// to one already asked with. Such a listing never reaches its end (each batch is new, none
// says end of directory), so without this guard a faulty server would keep the caller listing
// for ever. The guard finds any loop with constant memory (Brent's cycle finding: the cookie at
// the last power-of-two step is kept and every later one compared with it), so a listing of
// millions of entries costs nothing extra. A loop of n batches after k others is seen within
// 3 max(n, k + 1) requests, so the entries of up to two rounds of the loop have been handed out
// again by then. Exact for servers whose next batch depends on the cookie alone.
class CookieLoopGuard {
public:
    // True when a request with this cookie may go out; false when the cookies have gone round
    // a loop. The first call is the first batch's cookie.
    bool Next(uint64_t cookie);

private:
    uint64_t saved = 0;
    uint64_t power = 1;
    uint64_t steps = 0;
    bool started = false;
};

// Logs that the listing of host:dirPath was ended because its cookies went round a loop, as
// "nfsproc3_readdirplus_3 (cookies go round a loop, listing ended) host:dirPath" with
// KX_E_NFS_SERVER_FAULT, at the severity of a translated failure.
void LogCookieLoop(const std::string& hostName, const std::string& dirPath);

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
    // "nfsproc3_readdirplus_3 (status %d, err 0x%8.8X)" with the detail host ":" dirPath);
    // false with KX_E_NFS_SERVER_FAULT, logged, when the server's cookies go round a loop.
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
    CookieLoopGuard loopGuard;
    CLIENT* client;                       // not owned
    std::string hostName;
    std::string dirPath;
    uint32_t readPreferred;
    uint32_t writePreferred;
    long lastError = 0;
};

}  // namespace kxNFSUtils
