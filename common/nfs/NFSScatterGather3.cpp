// The pipelined transfer: chunks sent ahead of their replies, replies placed as they come.
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "nfs/kxNFS3Call.h"
#include "nfs/kxNFS3Pipeline.h"
#include "nfs/kxNFS3ScatterGather.h"
#include "nfs/kxNFSErrorMap.h"

namespace kxNFSUtils {

namespace {

// One chunk of the transfer: [start, start + size) of the caller's buffer.
struct Chunk {
    uint32_t start;
    uint32_t size;
    uint32_t done = 0;    // bytes moved from the chunk's start without a gap
    bool ended = false;   // no more will come: end of file, no progress, or a late failure
};

// One request in flight: `length` bytes of chunk `chunk` from byte `from` of it.
struct Flight {
    uint32_t xid;
    uint32_t chunk;
    uint32_t from;
    uint32_t length;
};

// A request still to send for the rest of a chunk the server answered short.
struct Rest {
    uint32_t chunk;
    uint32_t from;
};

class Transfer {
public:
    Transfer(const ScatterGatherSource& source, bool write, const DirEntry& file, char* data,
             uint64_t offset, uint32_t chunk, uint32_t total, long& lastError)
        : m_from(source),
          m_write(write),
          m_file(file),
          m_handle(WireHandle(file)),
          m_data(data),
          m_offset(offset),
          m_maxRecord(size_t{chunk} + 4096),
          m_lastError(lastError) {
        for (uint32_t at = 0; at < total; at += std::min(chunk, total - at))
            m_chunks.push_back(Chunk{at, std::min(chunk, total - at)});
    }

    bool Run(unsigned int& count) {
        count = 0;
        sockaddr_in server{};
        socklen_t length = sizeof server;
        if (getpeername(m_from.nfsSocket, reinterpret_cast<sockaddr*>(&server), &length) != 0 ||
            server.sin_family != AF_INET)
            return Fail(RPC_CANTSEND, NFS3_OK);
        clnt_stat rpc =
            NFS3Pipeline::Connect(server, m_from.auth, NFS3Pipeline::kTimeoutMs, m_pipe);
        if (rpc != RPC_SUCCESS) return Fail(rpc, NFS3_OK);

        for (;;) {
            while (!m_cancelled && m_flights.size() < kNFSPipelineWindow && HaveWork()) {
                if (m_from.cancelled != nullptr && m_from.cancelled->Cancelled()) {
                    m_cancelled = true;
                    break;
                }
                rpc = SendNext();
                if (rpc != RPC_SUCCESS) return Fail(rpc, NFS3_OK);
            }
            if (m_flights.empty()) break;
            rpc = m_pipe->Receive(m_maxRecord);
            if (rpc != RPC_SUCCESS) {
                if (m_cancelled) break;
                return Fail(rpc, NFS3_OK);
            }
            NFS3TransferReply reply;
            if (!DecodeTransferReply(m_pipe->Record(), m_pipe->RecordLength(), !m_write, reply)) {
                if (m_cancelled) break;
                return Fail(RPC_CANTDECODERES, NFS3_OK);
            }
            if (!Settle(reply)) return false;
        }
        count = Moved();
        return true;
    }

private:
    bool HaveWork() const { return !m_rests.empty() || m_next < m_chunks.size(); }

    // File position of byte `at` of the caller's buffer.
    uint64_t FileOffset(uint32_t at) const { return m_offset + at; }

    clnt_stat SendNext() {
        Flight f;
        if (!m_rests.empty()) {
            f.chunk = m_rests.back().chunk;
            f.from = m_rests.back().from;
            m_rests.pop_back();
        } else {
            f.chunk = m_next++;
            f.from = 0;
        }
        const Chunk& c = m_chunks[f.chunk];
        f.length = c.size - f.from;
        const uint32_t at = c.start + f.from;
        // Nothing lies beyond the end of the file a READ already met.
        if (!m_write && FileOffset(at) >= m_endOfFile) {
            m_chunks[f.chunk].ended = true;
            return RPC_SUCCESS;
        }
        const clnt_stat rpc =
            m_write ? m_pipe->SendWrite(m_handle, FileOffset(at), m_data + at, f.length, f.xid)
                    : m_pipe->SendRead(m_handle, FileOffset(at), f.length, f.xid);
        if (rpc == RPC_SUCCESS) m_flights.push_back(f);
        return rpc;
    }

    // Applies one reply to its chunk. False after a failure (already reported).
    bool Settle(const NFS3TransferReply& reply) {
        const auto it = std::find_if(m_flights.begin(), m_flights.end(),
                                     [&](const Flight& f) { return f.xid == reply.xid; });
        if (it == m_flights.end()) {
            if (m_cancelled) return true;
            return Fail(RPC_CANTDECODERES, NFS3_OK);  // an answer to nothing asked
        }
        const Flight f = *it;
        m_flights.erase(it);
        Chunk& c = m_chunks[f.chunk];
        if (reply.rpc != RPC_SUCCESS || reply.status != NFS3_OK) {
            if (!m_cancelled) return Fail(reply.rpc, reply.status);
            c.ended = true;
            return true;
        }
        uint32_t moved = std::min(reply.count, f.length);
        if (!m_write) {
            moved = std::min(moved, reply.dataLength);
            if (moved != 0) memcpy(m_data + c.start + f.from, reply.data, moved);
        }
        c.done = f.from + moved;
        if (moved == f.length) return true;
        const bool endOfFile = !m_write && reply.eof;
        if (endOfFile) m_endOfFile = std::min(m_endOfFile, FileOffset(c.start + c.done));
        if (endOfFile || moved == 0)
            c.ended = true;
        else
            m_rests.push_back(Rest{f.chunk, c.done});
        return true;
    }

    uint32_t Moved() const {
        uint32_t moved = 0;
        for (const Chunk& c : m_chunks) {
            moved += c.done;
            if (c.done < c.size) break;
        }
        return moved;
    }

    bool Fail(clnt_stat rpc, nfsstat3 status) {
        m_lastError = TranslateError(g_NFSErrorMap, rpc, status,
                                     "NFSBrowseImpl3::ScatterGatherIO (status %d, err 0x%8.8X)",
                                     Detail(m_from.hostName, m_file.serverPath));
        return false;
    }

    const ScatterGatherSource& m_from;
    const bool m_write;
    const DirEntry& m_file;
    const nfs_fh3 m_handle;
    char* const m_data;
    const uint64_t m_offset;
    const size_t m_maxRecord;
    long& m_lastError;
    std::unique_ptr<NFS3Pipeline> m_pipe;
    std::vector<Chunk> m_chunks;
    std::vector<Flight> m_flights;
    std::vector<Rest> m_rests;
    size_t m_next = 0;
    uint64_t m_endOfFile = ~uint64_t{0};
    bool m_cancelled = false;
};

}  // namespace

bool ScatterGatherIO(const ScatterGatherSource& from, bool write, const DirEntry& file,
                     char* data, uint64_t offset, uint32_t chunk, unsigned int& count,
                     long& lastError) {
    const uint32_t total = count;
    count = 0;
    if (total == 0) return true;
    if (chunk == 0) chunk = total;
    Transfer transfer(from, write, file, data, offset, chunk, total, lastError);
    return transfer.Run(count);
}

}  // namespace kxNFSUtils
