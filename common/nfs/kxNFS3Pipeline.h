// NFS3Pipeline: READ and WRITE requests of NFS version 3 kept in flight on one TCP connection of
// their own, for the pipelined transfer (kxNFS3ScatterGather.h). The system's RPC client waits
// for each reply before it sends the next request; this sends requests as they come and hands
// replies back in the order the server sends them, matched by transaction id.
//
// The wire format is written and read here by hand (RPC record marking, the call header with
// the connection's credentials, the two procedures' arguments and results), so that a WRITE's
// data goes out straight from the caller's buffer and nothing is allocated per request.
//
// Convention: operations return a clnt_stat. RPC_SUCCESS; RPC_TIMEDOUT when the server let a
// whole time limit pass without a byte moving; RPC_CANTSEND / RPC_CANTRECV for a broken
// connection; RPC_CANTDECODERES for a reply that is not a well-formed answer to a request of
// this connection. After any failure the connection is unusable: discard it.
//
// Thread safety: one thread at a time per object.
#pragma once

#include <netinet/in.h>
#include <rpc/rpc.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "xdr/nfs3_prot.h"

namespace kxNFSUtils {

// What a READ or WRITE reply says, as far as a transfer needs it.
struct NFS3TransferReply {
    uint32_t xid = 0;
    // RPC_SUCCESS for an accepted, executed call; otherwise the server refused it: the accept
    // status or the denial as the RPC library would report it (RPC_PROCUNAVAIL, RPC_AUTHERROR,
    // ...). status is then meaningless.
    clnt_stat rpc = RPC_SUCCESS;
    nfsstat3 status = NFS3_OK;     // a status beyond what nfsstat3 holds: NFS3ERR_SERVERFAULT
    uint32_t count = 0;            // bytes read or written (NFS3_OK only)
    bool eof = false;              // READ: the server read up to the end of the file
    const char* data = nullptr;    // READ: the bytes read, inside the decoded record
    uint32_t dataLength = 0;       // READ: count of them
};

// Decodes one whole reply record (the bytes after record marking) to a READ (isRead) or a
// WRITE. False for anything cut short, not a reply, with a verifier above the protocol's 400
// bytes, a boolean other than 0 or 1, or lengths beyond the record: a hostile or broken peer
// cannot make it read outside [record, record + length). Bytes after the results are ignored.
// A READ's dataLength is at most what the record holds; count and dataLength are as the
// server sent them (the caller checks them against its request).
bool DecodeTransferReply(const char* record, size_t length, bool isRead, NFS3TransferReply& out);

// Encodes the call message of one READ or WRITE: record mark, call header (RPC version 2,
// program 100003, version 3), the credentials of auth, and the arguments. For a WRITE the
// encoding stops after the data's length word; the caller sends the data and
// WritePadding(count) bytes of zeros after it, and the record mark already counts them.
// False when auth cannot marshal itself or the handle is longer than NFS3_FHSIZE.
bool EncodeTransferCall(uint32_t xid, AUTH* auth, bool isWrite, const nfs_fh3& file,
                        uint64_t offset, uint32_t count, std::vector<char>& out);
inline uint32_t WritePadding(uint32_t count) { return (4 - count % 4) % 4; }

class NFS3Pipeline {
public:
    // A limit on any one wait: the RPC stubs' total time-out.
    static constexpr int kTimeoutMs = 25000;
    static constexpr int kMaxFragments = 1024;

    // Connects to the NFS service at server (address and port) within timeoutMs; from a
    // reserved port when the process may bind one (some servers insist), else any port. Every
    // later wait for the connection to take or bring bytes is limited to timeoutMs too.
    // Calls made later carry auth's credentials (not owned; it must outlive the pipeline).
    // RPC_SUCCESS with out set, RPC_TIMEDOUT, or RPC_CANTSEND (refused, unreachable).
    static clnt_stat Connect(const sockaddr_in& server, AUTH* auth, int timeoutMs,
                             std::unique_ptr<NFS3Pipeline>& out);
    ~NFS3Pipeline();
    NFS3Pipeline(const NFS3Pipeline&) = delete;
    NFS3Pipeline& operator=(const NFS3Pipeline&) = delete;

    // Sends one request; xid receives its transaction id. A WRITE sends count bytes of data
    // from `data`, which need only live until the call returns.
    clnt_stat SendRead(const nfs_fh3& file, uint64_t offset, uint32_t count, uint32_t& xid);
    clnt_stat SendWrite(const nfs_fh3& file, uint64_t offset, const char* data, uint32_t count,
                        uint32_t& xid);

    // Receives the next reply record, at most maxLength bytes in at most kMaxFragments record
    // fragments (more: RPC_CANTDECODERES). The record stays valid until the next Receive;
    // Xid tells which request it answers.
    clnt_stat Receive(size_t maxLength);
    const char* Record() const { return m_Record.data(); }
    size_t RecordLength() const { return m_RecordLength; }
    // The record's transaction id; false for a record too short to hold one.
    bool Xid(uint32_t& xid) const;

private:
    NFS3Pipeline(int fd, AUTH* auth);
    clnt_stat SendAll(const struct iovec* parts, int count);
    clnt_stat ReceiveAll(char* to, size_t length);

    int m_fd;
    AUTH* m_pAuth;
    uint32_t m_dwNextXid;
    std::vector<char> m_Header;  // the encoded call, reused
    std::vector<char> m_Record;  // the last reply record (grown only, reused)
    size_t m_RecordLength = 0;
};

}  // namespace kxNFSUtils
