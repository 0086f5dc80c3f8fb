// Process-wide switches and sizes of NFS data transfer (NFSBrowse::Read and Write).
//
// The switches are plain bools read on every transfer without a lock: set them before any
// browse object is in use, never while a transfer may run on another thread.
#pragma once

#include <cstdint>

namespace kxNFSUtils {

// Over TCP, cut requests into chunks of the file's preferred transfer size (capped, see
// kNFSMaxChunk) instead of sending each request whole. Default true.
//
// Cleared, every Read or Write over TCP is one READ or WRITE of the whole count (UDP keeps its
// 4096-byte chunks), limited only by what the server takes in one request:
// - above the server's FSINFO maximum, the request comes back short as the protocol allows
//   (nfs-ganesha reads or writes its maximum and reports that count): Read and Write return
//   fewer bytes than asked, and nothing beyond them has moved;
// - beyond the RPC record the server accepts, the call fails as a whole (nfs-ganesha refuses
//   a 70 MiB WRITE as garbage arguments): 0, with KX_E_RPC_SYSTEM in the last error.
// The client holds a whole READ reply in memory before copying it. Meant for servers known to
// take large requests.
extern bool g_NFSUtils_FragmentCorrectly;

// Chooses the pipelined transfer routine (nfs/kxNFS3ScatterGather.h), which keeps several
// READ or WRITE requests in flight at once on a TCP connection of its own, for every Read or
// Write of more than one chunk over TCP. Default false: every transfer sends its chunks one
// after another, each waiting for its reply. The bytes moved are the same either way.
extern bool g_NFSUtils_UseScatterGather;

// The chunk size over UDP: one chunk with its RPC header fits the transport's datagram.
constexpr uint32_t kNFSUdpChunk = 4096;

// The largest chunk sent over TCP, whatever the file's preferred size says. A DirEntry carries
// only the server's preferred sizes, not its maxima, and some servers advertise sizes no client
// should use per request (nfs-ganesha's default export prefers 64 MiB). 1 MiB because:
// - every request must finish within the RPC stubs' total time-out of 25 seconds; 1 MiB leaves
//   that margin down to links of about 40 KiB/s, 64 MiB would need 2.6 MiB/s;
// - the RPC library decodes each READ reply into a buffer of its own before it is copied, and
//   sends each WRITE from the caller's buffer in record fragments: memory per call stays at
//   one chunk, which 1 MiB keeps small on the 32-bit build;
// - a server's preferred size lies within its FSINFO maximum, so the smaller of it and 1 MiB
//   does too, as long as the server's read and write figures agree (the preferred sizes are
//   crossed between the directions, see NFSBrowse::Write; servers commonly give both
//   directions the same figures, as nfs-ganesha does);
// - 1 MiB is the largest request common NFS version 3 clients send, so servers are known to
//   take it, and beyond it the cost of one request per chunk is already a small part of the
//   transfer time.
constexpr uint32_t kNFSMaxChunk = 1u << 20;

// The chunk size over TCP when the file's preferred size is zero (an entry that does not carry
// the server's figures, such as one filled by hand): the UDP size, which every server takes.
constexpr uint32_t kNFSDefaultChunk = kNFSUdpChunk;

}  // namespace kxNFSUtils
