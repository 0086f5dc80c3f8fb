// The pipelined transfer's own reply reading: the record marking of a TCP stream as
// NFS3Pipeline::Receive reassembles it from a real connection, and DecodeTransferReply on every
// record it yields (and on the input itself), as a READ and as a WRITE reply. Whatever the
// bytes, a decoded READ's data must lie inside the record.
//
// Each input is one connection: the harness listens on loopback, the pipeline connects, the
// harness writes the stream and closes its side, and the pipeline reads records until the
// stream ends or is refused.
//
// Input: one byte setting the longest record accepted (64 times it, plus 64), then the stream.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "kxFuzzCheck.h"
#include "nfs/kxNFS3Pipeline.h"

namespace {

using kxNFSUtils::NFS3Pipeline;
using kxNFSUtils::NFS3TransferReply;

struct Listener {
    int socket = -1;
    sockaddr_in address{};
};

const Listener& GetListener() {
    static const Listener listener = [] {
        Listener l;
        l.socket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        KX_FUZZ_CHECK(l.socket >= 0);
        l.address.sin_family = AF_INET;
        l.address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        KX_FUZZ_CHECK(bind(l.socket, reinterpret_cast<sockaddr*>(&l.address), sizeof l.address) ==
                      0);
        socklen_t len = sizeof l.address;
        KX_FUZZ_CHECK(getsockname(l.socket, reinterpret_cast<sockaddr*>(&l.address), &len) == 0);
        KX_FUZZ_CHECK(listen(l.socket, 4) == 0);
        return l;
    }();
    return listener;
}

void Check(const char* record, size_t length) {
    for (bool isRead : {true, false}) {
        NFS3TransferReply reply;
        if (!kxNFSUtils::DecodeTransferReply(record, length, isRead, reply)) continue;
        if (reply.rpc != RPC_SUCCESS || reply.status != NFS3_OK || !isRead) continue;
        KX_FUZZ_CHECK(reply.data >= record && reply.data <= record + length);
        KX_FUZZ_CHECK(reply.dataLength <= static_cast<size_t>(record + length - reply.data));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // What fits the connection's buffers before anyone reads: the harness writes it all first.
    if (size < 1 || size > 32768) return 0;
    const size_t maxLength = 64 + 64 * size_t{data[0]};
    const char* stream = reinterpret_cast<const char*>(data + 1);
    const size_t streamLength = size - 1;
    Check(stream, streamLength);

    const Listener& l = GetListener();
    std::unique_ptr<NFS3Pipeline> pipeline;
    KX_FUZZ_CHECK(NFS3Pipeline::Connect(l.address, nullptr, 5000, pipeline) == RPC_SUCCESS);
    const int server = accept4(l.socket, nullptr, nullptr, SOCK_CLOEXEC);
    KX_FUZZ_CHECK(server >= 0);
    size_t written = 0;
    while (written < streamLength) {
        const ssize_t n = send(server, stream + written, streamLength - written, MSG_NOSIGNAL);
        KX_FUZZ_CHECK(n > 0);
        written += static_cast<size_t>(n);
    }
    KX_FUZZ_CHECK(shutdown(server, SHUT_WR) == 0);

    // Each record takes at least its 4-byte mark from the stream.
    for (size_t records = 0; pipeline->Receive(maxLength) == RPC_SUCCESS; ++records) {
        KX_FUZZ_CHECK(records < streamLength / 4);
        KX_FUZZ_CHECK(pipeline->RecordLength() <= maxLength);
        uint32_t xid;
        KX_FUZZ_CHECK(pipeline->Xid(xid) == (pipeline->RecordLength() >= 4));
        // An exact copy, so that a read past the record's end is caught.
        std::unique_ptr<char[]> record(new char[pipeline->RecordLength()]);
        std::copy(pipeline->Record(), pipeline->Record() + pipeline->RecordLength(), record.get());
        Check(record.get(), pipeline->RecordLength());
    }
    pipeline.reset();  // resets the connection: no port waits in TIME_WAIT
    close(server);
    return 0;
}
