#include "nfs/kxRPCWrappers.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "base/KCriticalSection.h"
#include "platform/kxSysInfo.h"

namespace kxNFSUtils {

namespace {

constexpr unsigned kBufferSize = 8192;
// The most supplementary groups an AUTH_UNIX credential carries; the library aborts beyond it.
constexpr size_t kMaxAuthGroups = 16;
// The longest machine name an AUTH_UNIX credential carries.
constexpr size_t kMaxMachineName = 255;

// Replies are decoded straight from here, for every client in the process (see RecvReply).
char inBuffer[kBufferSize];

// A status word of a reply as the sender wrote it. The library decodes these words into
// enumerations, which need not hold every 32-bit value a sender may write: reading such a value
// through the enumeration would be undefined.
template <typename Enum>
uint32_t Word(const Enum& field) {
    static_assert(sizeof(Enum) == sizeof(uint32_t), "a 32-bit status word");
    uint32_t value;
    memcpy(&value, &field, sizeof value);
    return value;
}

class RPCClientImpl final : public RPCClient {
public:
    RPCClientImpl(int program, int version, PROTOCOL protocol)
        : m_program(program), m_version(version), m_protocol(protocol) {}
    ~RPCClientImpl() override {
        if (m_client != nullptr) clnt_destroy(m_client);
        if (m_encoder) XDR_DESTROY(m_encoder.get());
    }
    RPCClientImpl(const RPCClientImpl&) = delete;
    RPCClientImpl& operator=(const RPCClientImpl&) = delete;

    long Init(const std::string& host) {
        m_client = clnt_create(host.c_str(), static_cast<rpcprog_t>(m_program),
                               static_cast<rpcvers_t>(m_version),
                               m_protocol != PROTOCOL_TCP ? "udp" : "tcp");
        if (m_client == nullptr) return KX_E_RPC_FAILED;
        int fd = -1;
        if (clnt_control(m_client, CLGET_FD, reinterpret_cast<char*>(&fd))) m_socket = fd;
        LearnServerAddress();
        return KX_OK;
    }

    long Init(unsigned long address) {
        memset(&m_server, 0, sizeof m_server);
        m_server.sin_family = AF_INET;
        m_server.sin_port = 0;  // asks the server's port mapper
        m_server.sin_addr.s_addr = static_cast<in_addr_t>(address);
        m_socket = -1;          // lets the library open (and later close) the socket
        if (m_protocol == PROTOCOL_UDP) {
            timeval wait{2, 0};
            m_client = clntudp_create(&m_server, static_cast<u_long>(m_program),
                                      static_cast<u_long>(m_version), wait, &m_socket);
        } else {
            m_client = clnttcp_create(&m_server, static_cast<u_long>(m_program),
                                      static_cast<u_long>(m_version), &m_socket, kBufferSize,
                                      kBufferSize);
        }
        if (m_client == nullptr) return KX_E_RPC_FAILED;
        LearnServerAddress();
        return KX_OK;
    }

    void SetAuth(AUTH* auth) override { m_client->cl_auth = auth; }
    CLIENT* Handle() override { return m_client; }
    int Socket() override { return m_socket; }
    PROTOCOL ProtocolUsed() override { return m_protocol; }

    clnt_stat Call(long procedure, xdrproc_t encodeArgs, char* args, unsigned int& xid) override {
        if (m_protocol != PROTOCOL_UDP) return RPC_CANTSEND;
        if (!PrepareCallObjects()) return RPC_CANTENCODEARGS;
        m_header->rm_xid -= 1;
        xid = static_cast<unsigned int>(m_header->rm_xid);

        XDR* x = m_encoder.get();
        XDR_SETPOS(x, 0);
        uint32_t proc = static_cast<uint32_t>(procedure);
        if (!xdr_callhdr(x, m_header.get()) || !xdr_u_int32_t(x, &proc) ||
            !AUTH_MARSHALL(m_client->cl_auth, x) || !encodeArgs(x, args))
            return RPC_CANTENCODEARGS;

        const u_int length = XDR_GETPOS(x);
        const ssize_t sent = sendto(m_socket, m_sendBuffer.get(), length, 0,
                                    reinterpret_cast<const sockaddr*>(&m_server), sizeof m_server);
        if (sent < static_cast<ssize_t>(length)) return RPC_CANTSEND;
        return RPC_SUCCESS;
    }

    clnt_stat RecvReply(xdrproc_t decodeResults, char* results, unsigned int& xid) override {
        if (!PrepareCallObjects()) return RPC_CANTDECODERES;
        const ssize_t got = recvfrom(m_socket, inBuffer, sizeof inBuffer, 0, nullptr, nullptr);
        if (got < 1) return RPC_TIMEDOUT;

        rpc_msg reply;
        memset(&reply, 0, sizeof reply);
        reply.acpted_rply.ar_verf = _null_auth;
        reply.acpted_rply.ar_results.where = results;
        reply.acpted_rply.ar_results.proc = decodeResults;
        XDR in;
        xdrmem_create(&in, inBuffer, static_cast<u_int>(got), XDR_DECODE);
        const bool decoded = xdr_replymsg(&in, &reply);
        XDR_DESTROY(&in);
        // The verifier exists only in an accepted reply. In a denied one the same bytes of the
        // reply union hold what the sender wrote (a version range, an auth status), so freeing
        // "the verifier" there would free a pointer of the sender's choosing.
        if (!decoded) {
            if (Word(reply.rm_reply.rp_stat) == MSG_ACCEPTED)
                FreeVerifier(reply.acpted_rply.ar_verf);
            return RPC_CANTDECODERES;
        }
        xid = static_cast<unsigned int>(reply.rm_xid);

        clnt_stat result = RPC_SUCCESS;
        if (Word(reply.rm_reply.rp_stat) != MSG_ACCEPTED ||
            Word(reply.acpted_rply.ar_stat) != SUCCESS)
            result = RPC_FAILED;
        else
            AUTH_VALIDATE(m_client->cl_auth, &reply.acpted_rply.ar_verf);
        // Also when the call was refused: an accepted reply's verifier may have been allocated.
        if (Word(reply.rm_reply.rp_stat) == MSG_ACCEPTED) FreeVerifier(reply.acpted_rply.ar_verf);
        return result;
    }

private:
    // After creation the library knows the port the port mapper gave; Call sends there.
    void LearnServerAddress() {
        netbuf addr{};
        sockaddr_storage storage{};
        addr.buf = &storage;
        addr.maxlen = sizeof storage;
        if (clnt_control(m_client, CLGET_SVC_ADDR, reinterpret_cast<char*>(&addr)) &&
            addr.buf != nullptr && addr.len >= sizeof(sockaddr_in)) {
            const auto* sin = static_cast<const sockaddr_in*>(addr.buf);
            if (sin->sin_family == AF_INET) memcpy(&m_server, sin, sizeof m_server);
        }
    }

    bool PrepareCallObjects() {
        if (m_header) return true;
        try {
            auto header = std::make_unique<rpc_msg>();
            memset(header.get(), 0, sizeof(rpc_msg));
            // Any start serves; mixing in the pid and time keeps a restarted process from
            // reusing the ids of one that may still have replies in flight.
            timeval now{};
            gettimeofday(&now, nullptr);
            header->rm_xid = static_cast<uint32_t>(getpid()) ^
                             static_cast<uint32_t>(now.tv_sec) ^
                             static_cast<uint32_t>(now.tv_usec << 12);
            header->rm_direction = CALL;
            header->rm_call.cb_rpcvers = 2;
            header->rm_call.cb_prog = static_cast<rpcprog_t>(m_program);
            header->rm_call.cb_vers = static_cast<rpcvers_t>(m_version);
            m_sendBuffer = std::make_unique<char[]>(kBufferSize);
            m_encoder = std::make_unique<XDR>();
            xdrmem_create(m_encoder.get(), m_sendBuffer.get(), kBufferSize, XDR_ENCODE);
            m_header = std::move(header);
        } catch (const std::bad_alloc&) {
            m_encoder.reset();
            return false;
        }
        return true;
    }

    static void FreeVerifier(opaque_auth& verf) {
        if (verf.oa_base == nullptr) return;
        XDR x;
        x.x_op = XDR_FREE;
        xdr_opaque_auth(&x, &verf);
    }

    CLIENT* m_client = nullptr;
    int m_socket = -1;
    int m_program;
    int m_version;
    PROTOCOL m_protocol;
    sockaddr_in m_server{};
    std::unique_ptr<rpc_msg> m_header;
    std::unique_ptr<XDR> m_encoder;
    const uint32_t m_sendBufferSize = kBufferSize;
    std::unique_ptr<char[]> m_sendBuffer;
};

class RPCAuthImpl final : public RPCAuth {
public:
    RPCAuthImpl() = default;
    ~RPCAuthImpl() override {
        if (m_auth != nullptr) auth_destroy(m_auth);
    }
    RPCAuthImpl(const RPCAuthImpl&) = delete;
    RPCAuthImpl& operator=(const RPCAuthImpl&) = delete;

    AUTH* Handle() override { return m_auth; }

    long InitNone() {
        EnsureMachineName();
        m_auth = authnone_create();
        return m_auth != nullptr ? KX_OK : KX_E_RPC_AUTH;
    }

    long InitUnix(int uid, const std::vector<int>& gids) {
        EnsureMachineName();
        if (gids.empty()) return KX_E_RPC_AUTH;
        std::vector<gid_t> groups(gids.begin(),
                                  gids.begin() + static_cast<std::ptrdiff_t>(
                                                     std::min(gids.size(), kMaxAuthGroups)));
        std::string machine = m_MachineName;
        m_auth = authunix_create(&machine[0], static_cast<uid_t>(uid),
                                 static_cast<gid_t>(gids[0]), static_cast<int>(groups.size()),
                                 groups.data());
        return m_auth != nullptr ? KX_OK : KX_E_RPC_AUTH;
    }

private:
    static void EnsureMachineName() {
        g_RPCAuthCritSect.Lock();
        if (m_MachineName.empty()) {
            m_MachineName = kxSysInfo::GetComputerNameA();
            if (m_MachineName.size() > kMaxMachineName) m_MachineName.resize(kMaxMachineName);
        }
        g_RPCAuthCritSect.Unlock();
    }

    AUTH* m_auth = nullptr;

    static std::string m_MachineName;
    static KCriticalSection g_RPCAuthCritSect;
};

std::string RPCAuthImpl::m_MachineName;
KCriticalSection RPCAuthImpl::g_RPCAuthCritSect;

template <typename Impl, typename Out, typename InitFn>
long Make(Out*& out, Impl* made, InitFn init) {
    if (made == nullptr) return KX_E_OUT_OF_MEMORY;
    const long rc = init(*made);
    if (rc != KX_OK) {
        delete made;
        return rc;
    }
    out = made;
    return KX_OK;
}

}  // namespace

long CreateRPCClient(RPCClient*& out, const std::string& host, int program, int version,
                     RPCClient::PROTOCOL protocol) {
    return Make(out, new (std::nothrow) RPCClientImpl(program, version, protocol),
                [&](RPCClientImpl& c) { return c.Init(host); });
}

long CreateRPCClient(RPCClient*& out, unsigned long address, int program, int version,
                     RPCClient::PROTOCOL protocol) {
    return Make(out, new (std::nothrow) RPCClientImpl(program, version, protocol),
                [&](RPCClientImpl& c) { return c.Init(address); });
}

long CreateRPCAuth(RPCAuth*& out) {
    return Make(out, new (std::nothrow) RPCAuthImpl(), [](RPCAuthImpl& a) { return a.InitNone(); });
}

long CreateRPCAuth(RPCAuth*& out, int uid, const std::vector<int>& gids) {
    return Make(out, new (std::nothrow) RPCAuthImpl(),
                [&](RPCAuthImpl& a) { return a.InitUnix(uid, gids); });
}

}  // namespace kxNFSUtils
