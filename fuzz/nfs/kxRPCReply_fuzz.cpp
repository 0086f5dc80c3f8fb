// Whole RPC replies, as a server (or anyone who can answer in its place) sends them, through
// RPCClient::RecvReply of a real UDP client: the reply header, accepted or denied, the
// verifier (checked by the AUTH_UNIX credentials the client carries), and the results decoded
// by each routine the NFS client uses; then the results are freed as callers free them, also
// when decoding failed.
//
// The client is made once per process against a UDP socket of the harness on loopback. It asks
// the port mapper for the server's port; this program answers that question itself (its own
// pmap_getport, which the RPC library's call resolves to) with the harness socket's port, so
// no port mapper need run. Each input is sent from that socket to the client as one datagram.
//
// Input: one byte choosing the results routine (kxXdrResultTable.h, modulo its length), then
// the datagram.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <rpc/pmap_clnt.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <memory>

#include "kxFuzzCheck.h"
#include "nfs/kxRPCWrappers.h"
#include "nfs/kxXdrResultTable.h"

namespace {

struct Peer {
    int socket = -1;
    uint16_t port = 0;     // host order
    sockaddr_in client{};  // where the client's datagrams come from
    kxNFSUtils::RPCClient* rpc = nullptr;
    kxNFSUtils::RPCAuth* auth = nullptr;
};

Peer& GetPeer();

}  // namespace

// The port mapper's answer, for the one client this program makes.
extern "C" u_short pmap_getport(struct sockaddr_in*, u_long, u_long, u_int) {
    return GetPeer().port;
}

namespace {

Peer MakePeer() {
    Peer p;
    p.socket = socket(AF_INET, SOCK_DGRAM, 0);
    KX_FUZZ_CHECK(p.socket >= 0);
    sockaddr_in me{};
    me.sin_family = AF_INET;
    me.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    KX_FUZZ_CHECK(bind(p.socket, reinterpret_cast<sockaddr*>(&me), sizeof me) == 0);
    socklen_t len = sizeof me;
    KX_FUZZ_CHECK(getsockname(p.socket, reinterpret_cast<sockaddr*>(&me), &len) == 0);
    p.port = ntohs(me.sin_port);
    return p;
}

Peer& GetPeer() {
    static Peer peer = MakePeer();
    return peer;
}

// The client, made on first use; its first call tells the harness the client's address.
Peer& Connected() {
    Peer& p = GetPeer();
    if (p.rpc != nullptr) return p;
    KX_FUZZ_CHECK(kxNFSUtils::CreateRPCClient(p.rpc, htonl(INADDR_LOOPBACK), 100003, 3,
                                              kxNFSUtils::RPCClient::PROTOCOL_UDP) == KX_OK);
    KX_FUZZ_CHECK(kxNFSUtils::CreateRPCAuth(p.auth, 1000, {1000, 4, 24}) == KX_OK);
    p.rpc->SetAuth(p.auth->Handle());
    unsigned int xid = 0;
    // The library's own routine for no arguments, as every caller of the null procedure uses it.
    const xdrproc_t none = reinterpret_cast<xdrproc_t>(reinterpret_cast<void (*)()>(xdr_void));
    KX_FUZZ_CHECK(p.rpc->Call(0, none, nullptr, xid) == RPC_SUCCESS);
    char call[1024];
    socklen_t len = sizeof p.client;
    KX_FUZZ_CHECK(
        recvfrom(p.socket, call, sizeof call, 0, reinterpret_cast<sockaddr*>(&p.client), &len) > 0);
    return p;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // One datagram of at most what UDP carries; the client reads at most its 8192 bytes.
    if (size < 1 || size - 1 > 65507) return 0;
    Peer& p = Connected();
    const kxfuzz::XdrResult& result = kxfuzz::kXdrResults[data[0] % kxfuzz::kXdrResultCount];
    KX_FUZZ_CHECK(sendto(p.socket, data + 1, size - 1, 0,
                         reinterpret_cast<const sockaddr*>(&p.client),
                         sizeof p.client) == static_cast<ssize_t>(size - 1));
    std::unique_ptr<char[]> results(new char[result.size]());
    unsigned int xid = 0xFFFFFFFF;
    const clnt_stat status = p.rpc->RecvReply(result.proc, results.get(), xid);
    KX_FUZZ_CHECK(status == RPC_SUCCESS || status == RPC_FAILED || status == RPC_CANTDECODERES ||
                  (status == RPC_TIMEDOUT && size == 1));
    if (status == RPC_SUCCESS && size - 1 >= 4) {
        uint32_t sent;
        memcpy(&sent, data + 1, 4);
        KX_FUZZ_CHECK(xid == ntohl(sent));
    }
    xdr_free(result.proc, results.get());
    return 0;
}
