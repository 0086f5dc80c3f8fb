// The pipelined transfer behind g_NFSUtils_UseScatterGather (nfs/kxNFSTransfer.h): a READ or
// WRITE of many chunks with several requests in flight at once on a connection of its own
// (nfs/kxNFS3Pipeline.h), instead of one request per round trip.
//
// Internal to the NFS client: NFSBrowse::Read and Write run it for transfers of more than one
// chunk over TCP while the switch is set.
#pragma once

#include <rpc/rpc.h>

#include <cstdint>
#include <memory>
#include <string>

#include "nfs/DirEntry.h"
#include "nfs/NFSBrowse.h"
#include "nfs/kxNFS3Pipeline.h"

namespace kxNFSUtils {

// What the pipelined transfer takes from the browse object that runs it.
struct ScatterGatherSource {
    int nfsSocket;                // the object's NFS connection (TCP): its peer is the service
    AUTH* auth;                   // the object's credentials
    CancelledIf* cancelled;       // may be null
    const std::string& hostName;  // for the log line
    // The connection of the object's earlier pipelined transfers, or null: used when sound,
    // made when missing, and reset after a failure.
    std::unique_ptr<NFS3Pipeline>& connection;
};

// Requests in flight at once. A window of 1 MiB chunks is 8 MiB on the way: enough to keep a
// server's threads and a fast link busy, small enough for the 32-bit build's memory.
constexpr unsigned kNFSPipelineWindow = 8;

// Moves count bytes between data and file at offset, in chunks of `chunk` bytes (nonzero), up
// to kNFSPipelineWindow requests in flight on the browse object's pipelined connection to the
// NFS service (from.connection; made to the peer of from.nfsSocket when there is none, and
// made again once when a kept one turns out broken before its first reply, as one the server
// closed while idle does), UNSTABLE writes never committed, as the sequential path does.
// Replies come back in any order and each lands at its own place. A chunk the server answers
// short is asked for again from where it stopped, so every chunk is whole unless a READ meets
// the end of the file (no request starts beyond it) or the server moves nothing.
// The result is what the sequential path gives for the same server and file: count becomes
// the bytes moved from the start without a gap (a READ stops at the end of the file), and
// true is returned.
// Cancellation (from.cancelled, asked before each request): no new request goes out, those in
// flight are waited for, and the transfer ends as a success with the bytes moved so far
// (a failure among those replies only ends the run of bytes there).
// Failure: the first refused or failed request, a reply that does not decode, a broken
// connection, or a server that lets NFS3Pipeline::kTimeoutMs pass without a byte moving ends
// the transfer at once: false, count 0, and lastError = the code translated and logged as
// "NFSBrowseImpl3::ScatterGatherIO (status %d, err 0x%8.8X)" host ":" file.serverPath.
bool ScatterGatherIO(const ScatterGatherSource& from, bool write, const DirEntry& file,
                     char* data, uint64_t offset, uint32_t chunk, unsigned int& count,
                     long& lastError);

}  // namespace kxNFSUtils
