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
        std::unique_ptr<NFS3Pipeline>& pipe = m_from.connection;
        const bool kept = pipe != nullptr;
        clnt_stat rpc = kept ? RPC_SUCCESS : Connect(pipe);
        if (rpc != RPC_SUCCESS) return Fail(rpc, NFS3_OK);
        Outcome o = Pump(*pipe);
        if (!o.ok && kept && !m_answered && (o.rpc == RPC_CANTSEND || o.rpc == RPC_CANTRECV)) {
            // A kept connection that the server closed meanwhile: once more on a new one.
            Restart();
            pipe.reset();
            rpc = Connect(pipe);
            if (rpc != RPC_SUCCESS) return Fail(rpc, NFS3_OK);
            o = Pump(*pipe);
        }
        if (!o.sound) pipe.reset();
        if (!o.ok) return Fail(o.rpc, o.status);
        count = Moved();
        return true;
    }

private:
    // How one run over a connection ended.
    struct Outcome {
        bool ok = true;     // every reply in, or cancelled and what could be waited for
        bool sound = true;  // nothing of this transfer is left on the connection
        clnt_stat rpc = RPC_SUCCESS;
        nfsstat3 status = NFS3_OK;
    };

    static Outcome Broken(clnt_stat rpc, nfsstat3 status, bool cancelled) {
        Outcome o;
        o.ok = cancelled;  // after cancellation a failure only ends the run of bytes
        o.sound = false;
        o.rpc = rpc;
        o.status = status;
        return o;
    }

    clnt_stat Connect(std::unique_ptr<NFS3Pipeline>& pipe) const {
        sockaddr_in server{};
        socklen_t length = sizeof server;
        if (getpeername(m_from.nfsSocket, reinterpret_cast<sockaddr*>(&server), &length) != 0 ||
            server.sin_family != AF_INET)
            return RPC_CANTSEND;
        return NFS3Pipeline::Connect(server, m_from.auth, NFS3Pipeline::kTimeoutMs, pipe);
    }

    // Sends and receives until every request is answered, or the first failure.
    Outcome Pump(NFS3Pipeline& pipe) {
        for (;;) {
            while (!m_cancelled && m_flights.size() < kNFSPipelineWindow && HaveWork()) {
                if (m_from.cancelled != nullptr && m_from.cancelled->Cancelled()) {
                    m_cancelled = true;
                    break;
                }
                const clnt_stat rpc = SendNext(pipe);
                if (rpc != RPC_SUCCESS) return Broken(rpc, NFS3_OK, false);
            }
            if (m_flights.empty()) return Outcome();
            const clnt_stat rpc = pipe.Receive(m_maxRecord);
            if (rpc != RPC_SUCCESS) return Broken(rpc, NFS3_OK, m_cancelled);
            NFS3TransferReply reply;
            if (!DecodeTransferReply(pipe.Record(), pipe.RecordLength(), !m_write, reply))
                return Broken(RPC_CANTDECODERES, NFS3_OK, m_cancelled);
            m_answered = true;
            const auto it = std::find_if(m_flights.begin(), m_flights.end(),
                                         [&](const Flight& f) { return f.xid == reply.xid; });
            if (it == m_flights.end())  // an answer to nothing asked
                return Broken(RPC_CANTDECODERES, NFS3_OK, m_cancelled);
            const Flight f = *it;
            m_flights.erase(it);
            if (reply.rpc != RPC_SUCCESS || reply.status != NFS3_OK) {
                if (!m_cancelled) return Broken(reply.rpc, reply.status, false);
                m_chunks[f.chunk].ended = true;
                continue;
            }
            Settle(f, reply);
        }
    }

    // Forgets everything moved, to start over.
    void Restart() {
        for (Chunk& c : m_chunks) {
            c.done = 0;
            c.ended = false;
        }
        m_flights.clear();
        m_rests.clear();
        m_next = 0;
        m_endOfFile = ~uint64_t{0};
        m_answered = false;
    }

    bool HaveWork() const { return !m_rests.empty() || m_next < m_chunks.size(); }

    // File position of byte `at` of the caller's buffer.
    uint64_t FileOffset(uint32_t at) const { return m_offset + at; }

    clnt_stat SendNext(NFS3Pipeline& pipe) {
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
            m_write ? pipe.SendWrite(m_handle, FileOffset(at), m_data + at, f.length, f.xid)
                    : pipe.SendRead(m_handle, FileOffset(at), f.length, f.xid);
        if (rpc == RPC_SUCCESS) m_flights.push_back(f);
        return rpc;
    }

    // Applies a successful reply to its chunk: the data lands, a short answer asks again for
    // the rest unless the file ended or nothing moved.
    void Settle(const Flight& f, const NFS3TransferReply& reply) {
        Chunk& c = m_chunks[f.chunk];
        uint32_t moved = std::min(reply.count, f.length);
        if (!m_write) {
            moved = std::min(moved, reply.dataLength);
            if (moved != 0) memcpy(m_data + c.start + f.from, reply.data, moved);
        }
        c.done = f.from + moved;
        if (moved == f.length) return;
        const bool endOfFile = !m_write && reply.eof;
        if (endOfFile) m_endOfFile = std::min(m_endOfFile, FileOffset(c.start + c.done));
        if (endOfFile || moved == 0)
            c.ended = true;
        else
            m_rests.push_back(Rest{f.chunk, c.done});
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
    std::vector<Chunk> m_chunks;
    std::vector<Flight> m_flights;
    std::vector<Rest> m_rests;
    size_t m_next = 0;
    uint64_t m_endOfFile = ~uint64_t{0};
    bool m_cancelled = false;
    bool m_answered = false;  // a reply came in this run
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
