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

    // Decodes the arguments into obj (zero it first); false when they do not decode. Release
    // what decoding allocated with FreeArgs.
    bool DecodeArgs(xdrproc_t proc, void* obj) const;
    void FreeArgs(xdrproc_t proc, void* obj) const;
};

inline bool Call::DecodeArgs(xdrproc_t proc, void* obj) const {
    XDR x;
    xdrmem_create(&x, const_cast<char*>(args.data()), static_cast<u_int>(args.size()),
                  XDR_DECODE);
    const bool ok = proc(&x, obj) != 0;
    XDR_DESTROY(&x);
    return ok;
}

inline void Call::FreeArgs(xdrproc_t proc, void* obj) const {
    XDR x;
    x.x_op = XDR_FREE;
    proc(&x, obj);
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
    Args(const Call& c, bool_t (*decode)(XDR*, T*)) : call(c), proc(Proc(decode)) {
        memset(&value, 0, sizeof value);
        ok = call.DecodeArgs(proc, &value);
    }
    ~Args() { call.FreeArgs(proc, &value); }
    Args(const Args&) = delete;
    Args& operator=(const Args&) = delete;

    const Call& call;
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
