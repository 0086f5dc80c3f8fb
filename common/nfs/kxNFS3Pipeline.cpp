// NFS3Pipeline: the wire format of READ and WRITE calls and replies, and one TCP connection
// that carries them without waiting for each answer.
#include "nfs/kxNFS3Pipeline.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace kxNFSUtils {

namespace {

constexpr uint32_t kNFSProgram = 100003;
constexpr uint32_t kNFSVersion = 3;
constexpr uint32_t kProcRead = 6;
constexpr uint32_t kProcWrite = 7;
constexpr uint32_t kLastFragment = 0x80000000u;
constexpr size_t kMaxAuthBytes = 400;   // the protocol's limit on a verifier body
constexpr size_t kFattr3Bytes = 84;     // type, mode, nlink, uid, gid, 8 64-bit fields
constexpr size_t kWccAttrBytes = 24;    // size, mtime, ctime
constexpr size_t kCallRoom = 1024;      // header, credentials (at most 2 x 400 bytes), arguments

// Reads XDR units from a record, never past its end.
class Cursor {
public:
    Cursor(const char* p, size_t n) : m_p(p), m_left(n) {}
    bool U32(uint32_t& v) {
        if (m_left < 4) return false;
        uint32_t raw;
        memcpy(&raw, m_p, 4);
        v = ntohl(raw);
        m_p += 4;
        m_left -= 4;
        return true;
    }
    bool Bool(bool& v) {
        uint32_t raw;
        if (!U32(raw) || raw > 1) return false;
        v = raw == 1;
        return true;
    }
    bool Skip(size_t n) {
        if (m_left < n) return false;
        m_p += n;
        m_left -= n;
        return true;
    }
    // n bytes of opaque data and their padding to a multiple of 4.
    bool Opaque(size_t n, const char*& at) {
        const size_t padded = n + (4 - n % 4) % 4;
        if (n > m_left || padded > m_left) return false;
        at = m_p;
        return Skip(padded);
    }
    bool OptionalAttributes(size_t bytes) {
        bool present;
        return Bool(present) && (!present || Skip(bytes));
    }

private:
    const char* m_p;
    size_t m_left;
};

// The RPC library's view of a refused call.
bool RefusalStatus(uint32_t replyStat, uint32_t detail, clnt_stat& rpc) {
    if (replyStat == MSG_ACCEPTED) {
        switch (detail) {
        case PROG_UNAVAIL: rpc = RPC_PROGUNAVAIL; return true;
        case PROG_MISMATCH: rpc = RPC_PROGVERSMISMATCH; return true;
        case PROC_UNAVAIL: rpc = RPC_PROCUNAVAIL; return true;
        case GARBAGE_ARGS: rpc = RPC_CANTDECODEARGS; return true;
        case SYSTEM_ERR: rpc = RPC_SYSTEMERROR; return true;
        default: return false;
        }
    }
    switch (detail) {
    case RPC_MISMATCH: rpc = RPC_VERSMISMATCH; return true;
    case AUTH_ERROR: rpc = RPC_AUTHERROR; return true;
    default: return false;
    }
}

int Remaining(const timespec& deadline) {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    const long long ms = (deadline.tv_sec - now.tv_sec) * 1000LL +
                         (deadline.tv_nsec - now.tv_nsec) / 1000000;
    return ms <= 0 ? 0 : static_cast<int>(ms);
}

timespec Deadline(int timeoutMs) {
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    t.tv_sec += timeoutMs / 1000;
    t.tv_nsec += static_cast<long>(timeoutMs % 1000) * 1000000;
    if (t.tv_nsec >= 1000000000) {
        t.tv_sec += 1;
        t.tv_nsec -= 1000000000;
    }
    return t;
}

// Waits until fd is ready for events or the deadline passes; false on time-out or error.
bool WaitFor(int fd, short events, const timespec& deadline) {
    for (;;) {
        pollfd p{fd, events, 0};
        const int r = poll(&p, 1, Remaining(deadline));
        if (r > 0) return true;
        if (r == 0) return false;
        if (errno != EINTR) return false;
    }
}

}  // namespace

bool DecodeTransferReply(const char* record, size_t length, bool isRead, NFS3TransferReply& out) {
    out = NFS3TransferReply();
    Cursor c(record, length);
    uint32_t direction, replyStat, detail;
    if (!c.U32(out.xid) || !c.U32(direction) || direction != REPLY || !c.U32(replyStat))
        return false;
    if (replyStat == MSG_ACCEPTED) {
        uint32_t flavor, verfLength;
        const char* verf;
        if (!c.U32(flavor) || !c.U32(verfLength) || verfLength > kMaxAuthBytes ||
            !c.Opaque(verfLength, verf) || !c.U32(detail))
            return false;
        if (detail != SUCCESS) return RefusalStatus(replyStat, detail, out.rpc);
    } else if (replyStat == MSG_DENIED) {
        return c.U32(detail) && RefusalStatus(replyStat, detail, out.rpc);
    } else {
        return false;
    }

    uint32_t status;
    if (!c.U32(status)) return false;
    // Stored as it came, like the generated decoders do (the enumeration is based on unsigned
    // int); a status the error table does not list maps to its default.
    out.status = static_cast<nfsstat3>(status);
    if (isRead) {
        if (!c.OptionalAttributes(kFattr3Bytes)) return false;
        if (out.status != NFS3_OK) return true;
        uint32_t dataLength;
        if (!c.U32(out.count) || !c.Bool(out.eof) || !c.U32(dataLength) ||
            !c.Opaque(dataLength, out.data))
            return false;
        out.dataLength = dataLength;
        return true;
    }
    uint32_t committed;
    const char* verifier;
    if (!c.OptionalAttributes(kWccAttrBytes) || !c.OptionalAttributes(kFattr3Bytes)) return false;
    if (out.status != NFS3_OK) return true;
    return c.U32(out.count) && c.U32(committed) && c.Opaque(NFS3_WRITEVERFSIZE, verifier);
}

bool EncodeTransferCall(uint32_t xid, AUTH* auth, bool isWrite, const nfs_fh3& file,
                        uint64_t offset, uint32_t count, std::vector<char>& out) {
    if (auth == nullptr || file.data.data_len > NFS3_FHSIZE) return false;
    if (out.size() < kCallRoom) out.resize(kCallRoom);
    XDR x;
    xdrmem_create(&x, out.data() + 4, static_cast<u_int>(out.size() - 4), XDR_ENCODE);
    rpc_msg msg;
    memset(&msg, 0, sizeof msg);
    msg.rm_xid = xid;
    msg.rm_direction = CALL;
    msg.rm_call.cb_rpcvers = RPC_MSG_VERSION;
    msg.rm_call.cb_prog = kNFSProgram;
    msg.rm_call.cb_vers = kNFSVersion;
    u_int procedure = isWrite ? kProcWrite : kProcRead;
    nfs_fh3 handle = file;  // the encoder takes a non-const pointer; it only reads
    offset3 at = offset;
    count3 n = count;
    bool ok = xdr_callhdr(&x, &msg) && xdr_u_int(&x, &procedure) && AUTH_MARSHALL(auth, &x) &&
              xdr_nfs_fh3(&x, &handle) && xdr_offset3(&x, &at) && xdr_count3(&x, &n);
    if (ok && isWrite) {
        stable_how stable = UNSTABLE;
        u_int dataLength = count;
        ok = xdr_stable_how(&x, &stable) && xdr_u_int(&x, &dataLength);
    }
    const u_int encoded = xdr_getpos(&x);
    xdr_destroy(&x);
    if (!ok) return false;
    const uint64_t record =
        uint64_t{encoded} + (isWrite ? uint64_t{count} + WritePadding(count) : 0);
    if (record >= kLastFragment) return false;
    const uint32_t mark = htonl(kLastFragment | static_cast<uint32_t>(record));
    memcpy(out.data(), &mark, 4);
    out.resize(4 + encoded);
    return true;
}

NFS3Pipeline::NFS3Pipeline(int fd, AUTH* auth)
    : m_fd(fd), m_pAuth(auth), m_dwNextXid(0) {
    // Distinct from the ids of recent connections of this process, as servers keep a reply
    // cache by client address and id.
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    m_dwNextXid = static_cast<uint32_t>(t.tv_nsec) ^ (static_cast<uint32_t>(getpid()) << 16);
}

NFS3Pipeline::~NFS3Pipeline() { close(m_fd); }

clnt_stat NFS3Pipeline::Connect(const sockaddr_in& server, AUTH* auth, int timeoutMs,
                                std::unique_ptr<NFS3Pipeline>& out) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) return RPC_CANTSEND;
    std::unique_ptr<NFS3Pipeline> pipeline(new NFS3Pipeline(fd, auth));
    // As the RPC library does for its own clients: a reserved port when privileged, which
    // servers exporting with "secure" demand; any port otherwise.
    if (geteuid() == 0) bindresvport(fd, nullptr);
    const int one = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    // Closing resets the connection rather than leaving the (reserved) port in TIME_WAIT for
    // a minute: transfers connect often, and the pipeline closes only with nothing in flight
    // or after a failure.
    const linger noLinger{1, 0};
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &noLinger, sizeof noLinger);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&server), sizeof server) != 0) {
        if (errno != EINPROGRESS) return RPC_CANTSEND;
        if (!WaitFor(fd, POLLOUT, Deadline(timeoutMs))) return RPC_TIMEDOUT;
        int error = 0;
        socklen_t len = sizeof error;
        if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &len) != 0 || error != 0)
            return RPC_CANTSEND;
    }
    // From here on every call blocks, for at most the time-out per wait: one system call per
    // piece moved instead of a readiness poll before each.
    const timeval limit{timeoutMs / 1000, static_cast<suseconds_t>(timeoutMs % 1000) * 1000};
    if (fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK) != 0 ||
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) != 0 ||
        setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) != 0)
        return RPC_CANTSEND;
    out = std::move(pipeline);
    return RPC_SUCCESS;
}

clnt_stat NFS3Pipeline::SendAll(const iovec* parts, int count) {
    iovec iov[4];
    if (count > 4) return RPC_CANTSEND;
    memcpy(iov, parts, sizeof(iovec) * static_cast<size_t>(count));
    iovec* next = iov;
    int left = count;
    while (left > 0) {
        msghdr m;
        memset(&m, 0, sizeof m);
        m.msg_iov = next;
        m.msg_iovlen = static_cast<size_t>(left);
        const ssize_t sent = sendmsg(m_fd, &m, MSG_NOSIGNAL);
        if (sent < 0) {
            if (errno == EINTR) continue;
            return errno == EAGAIN || errno == EWOULDBLOCK ? RPC_TIMEDOUT : RPC_CANTSEND;
        }
        size_t done = static_cast<size_t>(sent);
        while (left > 0 && done >= next->iov_len) {
            done -= next->iov_len;
            ++next;
            --left;
        }
        if (left > 0) {
            next->iov_base = static_cast<char*>(next->iov_base) + done;
            next->iov_len -= done;
        }
    }
    return RPC_SUCCESS;
}

clnt_stat NFS3Pipeline::ReceiveAll(char* to, size_t length) {
    while (length > 0) {
        const ssize_t got = recv(m_fd, to, length, MSG_WAITALL);
        if (got > 0) {
            to += got;
            length -= static_cast<size_t>(got);
            continue;
        }
        if (got == 0) return RPC_CANTRECV;
        if (errno == EINTR) continue;
        return errno == EAGAIN || errno == EWOULDBLOCK ? RPC_TIMEDOUT : RPC_CANTRECV;
    }
    return RPC_SUCCESS;
}

clnt_stat NFS3Pipeline::SendRead(const nfs_fh3& file, uint64_t offset, uint32_t count,
                                 uint32_t& xid) {
    xid = m_dwNextXid++;
    if (!EncodeTransferCall(xid, m_pAuth, false, file, offset, count, m_Header))
        return RPC_CANTENCODEARGS;
    const iovec part{m_Header.data(), m_Header.size()};
    return SendAll(&part, 1);
}

clnt_stat NFS3Pipeline::SendWrite(const nfs_fh3& file, uint64_t offset, const char* data,
                                  uint32_t count, uint32_t& xid) {
    xid = m_dwNextXid++;
    if (!EncodeTransferCall(xid, m_pAuth, true, file, offset, count, m_Header))
        return RPC_CANTENCODEARGS;
    static const char kZeros[4] = {};
    const iovec parts[3] = {{m_Header.data(), m_Header.size()},
                            {const_cast<char*>(data), count},
                            {const_cast<char*>(kZeros), WritePadding(count)}};
    return SendAll(parts, 3);
}

clnt_stat NFS3Pipeline::Receive(size_t maxLength) {
    size_t length = 0;
    for (int fragments = 1;; ++fragments) {
        if (fragments > kMaxFragments) return RPC_CANTDECODERES;
        uint32_t mark;
        clnt_stat rc = ReceiveAll(reinterpret_cast<char*>(&mark), 4);
        if (rc != RPC_SUCCESS) return rc;
        mark = ntohl(mark);
        const size_t fragment = mark & ~kLastFragment;
        if (fragment > maxLength - length) return RPC_CANTDECODERES;
        // Grown only, never shrunk: the buffer is reused without clearing.
        if (m_Record.size() < length + fragment) m_Record.resize(length + fragment);
        rc = ReceiveAll(m_Record.data() + length, fragment);
        if (rc != RPC_SUCCESS) return rc;
        length += fragment;
        if (mark & kLastFragment) break;
    }
    m_RecordLength = length;
    return RPC_SUCCESS;
}

bool NFS3Pipeline::Xid(uint32_t& xid) const {
    if (m_RecordLength < 4) return false;
    uint32_t raw;
    memcpy(&raw, m_Record.data(), 4);
    xid = ntohl(raw);
    return true;
}

}  // namespace kxNFSUtils
