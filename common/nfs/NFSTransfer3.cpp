// Data transfer: READ and WRITE in chunks sent one after another.
#include <poll.h>

#include <algorithm>
#include <cstring>

#include "nfs/NFSBrowseImpl3.h"
#include "nfs/kxNFS3Call.h"
#include "nfs/kxNFS3ScatterGather.h"
#include "nfs/kxNFSErrorMap.h"
#include "nfs/kxNFSTransfer.h"
#include "xdr/nfs3_prot.h"

namespace kxNFSUtils {

bool g_NFSUtils_FragmentCorrectly = true;
bool g_NFSUtils_UseScatterGather = false;

namespace {

// The count of one request is 32-bit on the wire and in the transfer loop; the interface's
// unsigned long is wider on the 64-bit build.
constexpr unsigned long kMaxTotal = 0xFFFFFFFFul;

// The chunk size for a transfer of `total` bytes with the file's preferred size.
uint32_t ChunkSize(RPCClient::PROTOCOL protocol, uint32_t preferred, uint32_t total) {
    if (protocol != RPCClient::PROTOCOL_TCP) return kNFSUdpChunk;
    if (!g_NFSUtils_FragmentCorrectly) return total;
    if (preferred == 0) return kNFSDefaultChunk;
    return std::min(preferred, kNFSMaxChunk);
}

// 0, or the code of arguments that send nothing.
long Refused(const DirEntry& file, const void* data, long long offset, unsigned long count) {
    if (file.magic != DirEntry::kMagic) return KX_E_NOT_INITIALISED;
    if (offset < 0 || (data == nullptr && count != 0)) return KX_E_BAD_ARGUMENT;
    return KX_OK;
}

// The chunks of a transfer, fixed before the first request.
struct Chunks {
    Chunks(unsigned int totalBytes, unsigned int chunkSize)
        : total(totalBytes),
          chunk(chunkSize),
          count(chunkSize == 0 ? 0 : total / chunk + (total % chunk != 0 ? 1 : 0)) {}
    // The request size of chunk i: the chunk size, or the remainder for the last one.
    unsigned int Size(unsigned int i) const {
        return i + 1 == count && total % chunk != 0 ? total % chunk : chunk;
    }
    unsigned int total, chunk, count;
};

// The pipelined routine (kxNFS3ScatterGather.h) takes transfers of more than one chunk over
// TCP while g_NFSUtils_UseScatterGather is set; every other transfer is sequential.
bool Pipelined(RPCClient& nfs, unsigned int total, unsigned int chunk) {
    return g_NFSUtils_UseScatterGather && nfs.ProtocolUsed() == RPCClient::PROTOCOL_TCP &&
           total > chunk;
}

}  // namespace

unsigned long NFSBrowseImpl3::Write(const DirEntry& file, const char* data, long long offset,
                                    unsigned long count) {
    if (const long refused = Refused(file, data, offset, count)) {
        lastError = refused;
        return 0;
    }
    unsigned int total = static_cast<unsigned int>(std::min(count, kMaxTotal));
    write3args args;
    args.file = WireHandle(file);
    args.offset = static_cast<offset3>(offset);
    // Write takes the read size and Read the write size: crossed on purpose, kept so.
    args.count = ChunkSize(nfsClient->ProtocolUsed(), file.readPreferred, total);
    args.stable = UNSTABLE;  // never followed by COMMIT
    args.data.data_len = 0;
    args.data.data_val = nullptr;
    if (Pipelined(*nfsClient, total, args.count)) {
        ScatterGatherIO({nfsClient->Socket(), auth->Handle(), cancelled, hostName, pipeline},
                        true, file, const_cast<char*>(data), args.offset, args.count, total,
                        lastError);
        return total;
    }
    write3res res;
    StandardWrite(data, total, args, res);
    return total;
}

unsigned long NFSBrowseImpl3::Read(const DirEntry& file, char* data, long long offset,
                                   unsigned long count) {
    if (const long refused = Refused(file, data, offset, count)) {
        lastError = refused;
        return 0;
    }
    unsigned int total = static_cast<unsigned int>(std::min(count, kMaxTotal));
    read3args args;
    args.file = WireHandle(file);
    args.offset = static_cast<offset3>(offset);
    args.count = ChunkSize(nfsClient->ProtocolUsed(), file.writePreferred, total);
    if (Pipelined(*nfsClient, total, args.count)) {
        ScatterGatherIO({nfsClient->Socket(), auth->Handle(), cancelled, hostName, pipeline},
                        false, file, data, args.offset, args.count, total, lastError);
        return total;
    }
    read3res res;
    StandardRead(data, total, args, res);
    return total;
}

bool NFSBrowseImpl3::StandardWrite(const char* data, unsigned int& count, write3args& args,
                                   write3res& res) {
    const Chunks chunks(count, args.count);
    unsigned int done = 0;
    for (unsigned int i = 0; i < chunks.count; ++i) {
        if (cancelled != nullptr && cancelled->Cancelled()) break;
        args.count = chunks.Size(i);
        args.data.data_len = args.count;
        args.data.data_val = const_cast<char*>(data + done);
        memset(&res, 0, sizeof res);
        const clnt_stat rpc = nfsproc3_write_3(&args, &res, nfsClient->Handle());
        const bool ok = rpc == RPC_SUCCESS && res.status == NFS3_OK;
        if (!ok)
            lastError = TranslateError(g_NFSErrorMap, rpc, res.status,
                                       "nfsproc3_write_3 (status %d, err 0x%8.8X)", "");
        // A server claiming more than it was sent must not move the window past the buffer.
        const unsigned int moved = ok ? std::min(res.write3res_u.resok.count, args.count) : 0;
        xdr_free(reinterpret_cast<xdrproc_t>(xdr_write3res), reinterpret_cast<char*>(&res));
        if (!ok) {
            count = 0;
            return false;
        }
        done += moved;
        args.offset += moved;
    }
    count = done;
    return true;
}

bool NFSBrowseImpl3::StandardRead(char* data, unsigned int& count, read3args& args,
                                  read3res& res) {
    const Chunks chunks(count, args.count);
    unsigned int done = 0;
    for (unsigned int i = 0; i < chunks.count; ++i) {
        if (cancelled != nullptr && cancelled->Cancelled()) break;
        args.count = chunks.Size(i);
        memset(&res, 0, sizeof res);
        const clnt_stat rpc = nfsproc3_read_3(&args, &res, nfsClient->Handle());
        const bool ok = rpc == RPC_SUCCESS && res.status == NFS3_OK;
        unsigned int moved = 0;
        if (ok) {
            // Only what was asked for and what actually arrived is copied, whatever the reply
            // claims: the caller's buffer ends with this chunk.
            const read3resok& got = res.read3res_u.resok;
            moved = std::min({got.count, got.data.data_len, args.count});
            if (moved != 0) memcpy(data + done, got.data.data_val, moved);
        } else {
            lastError = TranslateError(g_NFSErrorMap, rpc, res.status,
                                       "nfsproc3_read_3 (status %d, err 0x%8.8X)", "");
        }
        xdr_free(reinterpret_cast<xdrproc_t>(xdr_read3res), reinterpret_cast<char*>(&res));
        if (!ok) {
            count = 0;
            return false;
        }
        // After the end of the file the remaining chunks still go out and bring nothing.
        done += moved;
        args.offset += moved;
    }
    count = done;
    return true;
}

bool NFSBrowseImpl3::Panic() {
    // poll rather than select: the same wait, without the limit select puts on descriptor
    // numbers.
    pollfd p{nfsClient->Socket(), POLLIN | POLLOUT, 0};
    return poll(&p, 1, 10000) <= 0 || (p.revents & (POLLIN | POLLOUT)) == 0;
}

}  // namespace kxNFSUtils
