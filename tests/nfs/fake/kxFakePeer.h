// The fake RPC peer's plug-in interface. The peer (kx_fake_rpc_server) registers one program
// and version with the local port mapper over UDP and TCP and hands every call it receives to
// one mode, chosen on its command line. A mode is a function in a file of this folder that
// registers itself with KX_FAKE_MODE; it answers the way a real server will not on demand.
#pragma once

#include <arpa/inet.h>
#include <rpc/rpc.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <vector>

namespace kxfake {

// One call as received.
struct Call {
    uint32_t xid = 0;
    uint32_t program = 0;
    uint32_t version = 0;
    uint32_t procedure = 0;
    uint32_t credFlavor = 0;
    std::vector<char> cred;  // the credential body as received
    std::vector<char> args;  // the procedure's arguments, XDR-encoded
};

// Splits a received message into a Call; false when it is no call.
inline bool Parse(const char* in, size_t length, Call& call) {
    XDR x;
    xdrmem_create(&x, const_cast<char*>(in), static_cast<u_int>(length), XDR_DECODE);
    rpc_msg msg{};
    char credBody[MAX_AUTH_BYTES], verfBody[MAX_AUTH_BYTES];
    msg.rm_call.cb_cred.oa_base = credBody;
    msg.rm_call.cb_verf.oa_base = verfBody;
    const bool ok = xdr_callmsg(&x, &msg) != 0 && msg.rm_direction == CALL;
    const u_int at = XDR_GETPOS(&x);
    XDR_DESTROY(&x);
    if (!ok || at > length) return false;
    call.xid = msg.rm_xid;
    call.program = static_cast<uint32_t>(msg.rm_call.cb_prog);
    call.version = static_cast<uint32_t>(msg.rm_call.cb_vers);
    call.procedure = static_cast<uint32_t>(msg.rm_call.cb_proc);
    call.credFlavor = static_cast<uint32_t>(msg.rm_call.cb_cred.oa_flavor);
    call.cred.assign(credBody, credBody + msg.rm_call.cb_cred.oa_length);
    call.args.assign(in + at, in + length);
    return true;
}

// An XDR routine of any signature as the RPC library takes it.
template <typename F>
xdrproc_t Proc(F f) {
    return reinterpret_cast<xdrproc_t>(f);
}

// A call's arguments decoded into `value` (zeroed first), released when this goes out of
// scope; `ok` says whether they decoded.
template <typename T>
struct Args {
    Args(const Call& call, bool_t (*decode)(XDR*, T*)) : proc(Proc(decode)) {
        memset(&value, 0, sizeof value);
        XDR x;
        xdrmem_create(&x, const_cast<char*>(call.args.data()), static_cast<u_int>(call.args.size()),
                      XDR_DECODE);
        ok = proc(&x, &value) != 0;
        XDR_DESTROY(&x);
    }
    ~Args() { xdr_free(proc, reinterpret_cast<char*>(&value)); }
    Args(const Args&) = delete;
    Args& operator=(const Args&) = delete;

    xdrproc_t proc;
    T value;
    bool ok;
};

// Answers one call by filling `out` with the whole reply message. False sends nothing (the
// reply is dropped; the client times out or resends).
using Mode = bool (*)(const Call& call, std::vector<char>& out);

// An accepted reply with status SUCCESS and the results encoded by `encode` (any size).
bool AcceptWith(const Call& call, xdrproc_t encode, const void* results, std::vector<char>& out);
// An accepted reply with another status (PROG_UNAVAIL, PROC_UNAVAIL, GARBAGE_ARGS, ...).
bool AcceptStatus(const Call& call, accept_stat status, std::vector<char>& out);

// A reply laid out by hand, word by word (for values no enumeration of the library holds).
inline bool Words(std::initializer_list<uint32_t> words, std::vector<char>& out) {
    out.clear();
    for (uint32_t w : words) {
        const uint32_t n = htonl(w);
        out.insert(out.end(), reinterpret_cast<const char*>(&n),
                   reinterpret_cast<const char*>(&n) + sizeof n);
    }
    return true;
}

// MOUNT's EXPORT result listing `names` (a std::vector<const char*>), none with groups.
inline bool_t EncodeExportNames(XDR* x, const std::vector<const char*>* names) {
    bool_t more = TRUE, none = FALSE;
    for (const char* name : *names) {
        char* p = const_cast<char*>(name);
        if (!xdr_bool(x, &more) || !xdr_string(x, &p, 1024) || !xdr_bool(x, &none)) return FALSE;
    }
    return xdr_bool(x, &none);
}

// The COUNT argument of the command line; 0 when absent.
int Count();

struct ModeRegistrar {
    ModeRegistrar(const char* name, Mode mode);
};

// The mode registered under name, or null: lets a mode change a few answers of another and
// hand it the rest. Call it while answering (registration is complete by then).
Mode FindMode(const char* name);

#define KX_FAKE_CONCAT2(a, b) a##b
#define KX_FAKE_CONCAT(a, b) KX_FAKE_CONCAT2(a, b)
// Registers `function` under `name` before main runs.
#define KX_FAKE_MODE(name, function) \
    static ::kxfake::ModeRegistrar KX_FAKE_CONCAT(kxFakeMode_, __LINE__)(name, function)

}  // namespace kxfake
