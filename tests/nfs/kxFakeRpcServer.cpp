// A small RPC server for tests: registers one program and version with the local port mapper
// over UDP and TCP and answers every call in one of a few ways a real server will not do on
// demand.
//
//   kx_fake_rpc_server PROGRAM VERSION MODE [COUNT]
//     accept       NULL answers; EXPORT (5) lists COUNT exports "/export/NNNNNN"; MNT (1)
//                  gives a 4-byte handle; UMNT (3) answers; other procedures PROC_UNAVAIL
//     progunavail  every call is accepted with status PROG_UNAVAIL
//     garbage      every call gets 16 bytes that are no RPC reply
//     silent       calls are read and never answered
//
// Prints "ready" on stdout once registered; SIGTERM unregisters and exits.
#include <netinet/in.h>
#include <poll.h>
#include <rpc/pmap_clnt.h>
#include <rpc/rpc.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

volatile sig_atomic_t g_stop = 0;
void OnTerm(int) { g_stop = 1; }

unsigned long g_program;
unsigned long g_version;
std::string g_mode;
int g_count = 0;

bool xdr_export_list(XDR* x, int* count) {
    char buf[32];
    for (int i = 0; i < *count; ++i) {
        bool_t more = TRUE;
        snprintf(buf, sizeof buf, "/export/%06d", i);
        char* p = buf;
        bool_t noGroups = FALSE;
        if (!xdr_bool(x, &more) || !xdr_string(x, &p, 1024) || !xdr_bool(x, &noGroups))
            return false;
    }
    bool_t more = FALSE;
    return xdr_bool(x, &more);
}

bool xdr_mnt_ok(XDR* x, void*) {
    int status = 0;
    char handle[4] = {1, 2, 3, 4};
    char* h = handle;
    u_int len = 4;
    u_int flavours = 1;
    int flavour = 1;
    return xdr_int(x, &status) && xdr_bytes(x, &h, &len, 64) && xdr_u_int(x, &flavours) &&
           xdr_int(x, &flavour);
}

bool xdr_nothing(XDR*, void*) { return true; }

// Builds the reply for one call; false when nothing is to be sent.
bool Answer(const char* in, size_t inLen, std::vector<char>& out) {
    if (g_mode == "silent") return false;
    if (g_mode == "garbage") {
        out.assign(16, '\x5a');
        return true;
    }
    XDR dx;
    xdrmem_create(&dx, const_cast<char*>(in), static_cast<u_int>(inLen), XDR_DECODE);
    rpc_msg call;
    memset(&call, 0, sizeof call);
    char credBody[400], verfBody[400];
    call.rm_call.cb_cred.oa_base = credBody;
    call.rm_call.cb_verf.oa_base = verfBody;
    if (!xdr_callmsg(&dx, &call)) return false;

    rpc_msg reply;
    memset(&reply, 0, sizeof reply);
    reply.rm_xid = call.rm_xid;
    reply.rm_direction = REPLY;
    reply.rm_reply.rp_stat = MSG_ACCEPTED;
    reply.acpted_rply.ar_verf = _null_auth;
    reply.acpted_rply.ar_stat = SUCCESS;
    reply.acpted_rply.ar_results.where = nullptr;
    reply.acpted_rply.ar_results.proc = reinterpret_cast<xdrproc_t>(xdr_nothing);
    const unsigned long proc = call.rm_call.cb_proc;
    if (g_mode == "progunavail") {
        reply.acpted_rply.ar_stat = PROG_UNAVAIL;
    } else if (proc == 5) {
        reply.acpted_rply.ar_results.where = reinterpret_cast<caddr_t>(&g_count);
        reply.acpted_rply.ar_results.proc = reinterpret_cast<xdrproc_t>(xdr_export_list);
    } else if (proc == 1) {
        reply.acpted_rply.ar_results.proc = reinterpret_cast<xdrproc_t>(xdr_mnt_ok);
    } else if (proc != 0 && proc != 3) {
        reply.acpted_rply.ar_stat = PROC_UNAVAIL;
    }
    out.assign(64 + static_cast<size_t>(g_count) * 40, 0);
    XDR ex;
    xdrmem_create(&ex, out.data(), static_cast<u_int>(out.size()), XDR_ENCODE);
    if (!xdr_replymsg(&ex, &reply)) return false;
    out.resize(XDR_GETPOS(&ex));
    return true;
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
    while (n > 0) {
        const ssize_t r = read(fd, p, n);
        if (r <= 0) return false;
        p += r;
        n -= static_cast<size_t>(r);
    }
    return true;
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
        request.resize(at + len);
        if (!ReadFull(fd, request.data() + at, len)) return false;
        if (mark & 0x80000000u) break;
    }
    std::vector<char> out;
    if (!Answer(request.data(), request.size(), out)) return true;
    uint32_t mark = htonl(0x80000000u | static_cast<uint32_t>(out.size()));
    return write(fd, &mark, 4) == 4 &&
           write(fd, out.data(), out.size()) == static_cast<ssize_t>(out.size());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        fprintf(stderr, "usage: %s PROGRAM VERSION MODE [COUNT]\n", argv[0]);
        return 100;
    }
    g_program = strtoul(argv[1], nullptr, 0);
    g_version = strtoul(argv[2], nullptr, 0);
    g_mode = argv[3];
    g_count = argc > 4 ? atoi(argv[4]) : 0;
    signal(SIGTERM, OnTerm);
    signal(SIGPIPE, SIG_IGN);

    unsigned short udpPort = 0, tcpPort = 0;
    const int udp = Bound(SOCK_DGRAM, udpPort);
    const int tcp = Bound(SOCK_STREAM, tcpPort);
    if (udp < 0 || tcp < 0) return 111;
    pmap_unset(g_program, g_version);
    if (!pmap_set(g_program, g_version, IPPROTO_UDP, udpPort) ||
        !pmap_set(g_program, g_version, IPPROTO_TCP, tcpPort)) {
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
            const ssize_t n = recvfrom(udp, buf, sizeof buf, 0, reinterpret_cast<sockaddr*>(&from), &fl);
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
    pmap_unset(g_program, g_version);
    // The port-mapper calls keep a few bytes of their own; nothing here needs exit-time
    // clean-up, and a leak report about them would only hide real ones in the client.
    _exit(0);
}
