// kx_fake_rpc_server: a small RPC server for tests. Registers one program and version with the
// local port mapper over UDP and TCP and answers every call through one mode (see
// kxFakePeer.h; the modes live in the other files of this folder).
//
//   kx_fake_rpc_server PROGRAM VERSION MODE [COUNT [RECORD]]
//
// COUNT is handed to the mode (Count()); RECORD, when given and not empty, is a file to which
// every call received is appended (kxFakeRecord.h) before it is answered.
// Prints "ready" on stdout once registered; SIGTERM unregisters and exits. Exit status 100 for
// a bad command line or an unknown mode, 111 when the sockets or the registration fail.
#include <netinet/in.h>
#include <poll.h>
#include <rpc/pmap_clnt.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "kxFakePeer.h"
#include "kxFakeRecord.h"

namespace kxfake {

namespace {

volatile sig_atomic_t g_stop = 0;
void OnTerm(int) {
    g_stop = 1;
}

int g_count = 0;
std::string g_record;

std::map<std::string, Mode>& Modes() {
    static std::map<std::string, Mode> modes;
    return modes;
}

bool_t EncodeNothing(XDR*, void*) {
    return TRUE;
}

bool Encode(const Call& call, accept_stat status, xdrproc_t encode, const void* results,
            std::vector<char>& out) {
    rpc_msg reply{};
    reply.rm_xid = call.xid;
    reply.rm_direction = REPLY;
    reply.rm_reply.rp_stat = MSG_ACCEPTED;
    reply.acpted_rply.ar_verf = _null_auth;
    reply.acpted_rply.ar_stat = status;
    reply.acpted_rply.ar_results.where = const_cast<char*>(static_cast<const char*>(results));
    reply.acpted_rply.ar_results.proc =
        encode != nullptr ? encode : reinterpret_cast<xdrproc_t>(EncodeNothing);
    out.assign(xdr_sizeof(reinterpret_cast<xdrproc_t>(xdr_replymsg), &reply), 0);
    XDR x;
    xdrmem_create(&x, out.data(), static_cast<u_int>(out.size()), XDR_ENCODE);
    const bool ok = xdr_replymsg(&x, &reply) != 0;
    XDR_DESTROY(&x);
    return ok;
}

Mode g_mode = nullptr;

bool Answer(const char* in, size_t length, std::vector<char>& out) {
    Call call;
    if (!Parse(in, length, call)) return false;
    if (!g_record.empty()) AppendRecord(g_record, in, static_cast<uint32_t>(length));
    return g_mode(call, out);
}

int Bound(int type, unsigned short& port) {
    const int s = socket(AF_INET, type, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    if (s < 0 || bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 ||
        getsockname(s, reinterpret_cast<sockaddr*>(&a), &len) != 0)
        return -1;
    if (type == SOCK_STREAM && listen(s, 8) != 0) return -1;
    port = ntohs(a.sin_port);
    return s;
}

bool ReadFull(int fd, char* p, size_t n) {
    return recv(fd, p, n, MSG_WAITALL) == static_cast<ssize_t>(n);
}

// One record-marked request on a stream; false when the peer went away.
bool ServeStream(int fd) {
    std::vector<char> request;
    for (;;) {
        uint32_t mark;
        if (!ReadFull(fd, reinterpret_cast<char*>(&mark), 4)) return false;
        mark = ntohl(mark);
        const size_t len = mark & 0x7fffffffu;
        const size_t at = request.size();
        if (at + len > (64u << 20)) return false;
        request.resize(at + len);
        if (!ReadFull(fd, request.data() + at, len)) return false;
        if (mark & 0x80000000u) break;
    }
    std::vector<char> out;
    if (!Answer(request.data(), request.size(), out)) return true;
    const uint32_t mark = htonl(0x80000000u | static_cast<uint32_t>(out.size()));
    out.insert(out.begin(), reinterpret_cast<const char*>(&mark),
               reinterpret_cast<const char*>(&mark) + 4);
    return send(fd, out.data(), out.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(out.size());
}

}  // namespace

bool AcceptWith(const Call& call, xdrproc_t encode, const void* results, std::vector<char>& out) {
    return Encode(call, SUCCESS, encode, results, out);
}

bool AcceptStatus(const Call& call, accept_stat status, std::vector<char>& out) {
    return Encode(call, status, nullptr, nullptr, out);
}

int Count() {
    return g_count;
}

ModeRegistrar::ModeRegistrar(const char* name, Mode mode) {
    Modes()[name] = mode;
}

Mode FindMode(const char* name) {
    const auto found = Modes().find(name);
    return found != Modes().end() ? found->second : nullptr;
}

}  // namespace kxfake

int main(int argc, char** argv) {
    using namespace kxfake;
    if (argc < 4) {
        fprintf(stderr, "usage: %s PROGRAM VERSION MODE [COUNT [RECORD]]\n", argv[0]);
        return 100;
    }
    const unsigned long program = strtoul(argv[1], nullptr, 0);
    const unsigned long version = strtoul(argv[2], nullptr, 0);
    const auto mode = Modes().find(argv[3]);
    if (mode == Modes().end()) {
        fprintf(stderr, "%s: unknown mode %s\n", argv[0], argv[3]);
        return 100;
    }
    g_mode = mode->second;
    g_count = argc > 4 ? atoi(argv[4]) : 0;
    g_record = argc > 5 ? argv[5] : "";
    signal(SIGTERM, OnTerm);
    signal(SIGPIPE, SIG_IGN);

    unsigned short udpPort = 0, tcpPort = 0;
    const int udp = Bound(SOCK_DGRAM, udpPort);
    const int tcp = Bound(SOCK_STREAM, tcpPort);
    if (udp < 0 || tcp < 0) return 111;
    pmap_unset(program, version);
    if (!pmap_set(program, version, IPPROTO_UDP, udpPort) ||
        !pmap_set(program, version, IPPROTO_TCP, tcpPort)) {
        fprintf(stderr, "cannot register with the port mapper\n");
        return 111;
    }
    printf("ready\n");
    fflush(stdout);

    std::vector<pollfd> fds{{udp, POLLIN, 0}, {tcp, POLLIN, 0}};
    static char buf[65536];
    while (!g_stop) {
        if (poll(fds.data(), fds.size(), 200) <= 0) continue;
        if (fds[0].revents & POLLIN) {
            sockaddr_in from{};
            socklen_t fl = sizeof from;
            const ssize_t n =
                recvfrom(udp, buf, sizeof buf, 0, reinterpret_cast<sockaddr*>(&from), &fl);
            std::vector<char> out;
            if (n > 0 && Answer(buf, static_cast<size_t>(n), out))
                sendto(udp, out.data(), out.size(), 0, reinterpret_cast<sockaddr*>(&from), fl);
        }
        if (fds[1].revents & POLLIN) {
            const int c = accept(tcp, nullptr, nullptr);
            if (c >= 0) fds.push_back({c, POLLIN, 0});
        }
        for (size_t i = 2; i < fds.size(); ++i) {
            if (fds[i].revents & (POLLIN | POLLHUP | POLLERR)) {
                if (!ServeStream(fds[i].fd)) {
                    close(fds[i].fd);
                    fds.erase(fds.begin() + static_cast<std::ptrdiff_t>(i));
                    --i;
                }
            }
        }
    }
    pmap_unset(program, version);
    // The port-mapper calls keep a few bytes of their own; nothing here needs exit-time
    // clean-up, and a leak report about them would only hide real ones in the client.
    _exit(0);
}
