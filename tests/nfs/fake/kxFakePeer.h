// The fake RPC peer's plug-in interface. The peer (kx_fake_rpc_server) registers one program
// and version with the local port mapper over UDP and TCP and hands every call it receives to
// one mode, chosen on its command line. A mode is a function in a file of this folder that
// registers itself with KX_FAKE_MODE; it answers the way a real server will not on demand.
#pragma once

#include <rpc/rpc.h>

#include <cstdint>
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

// Answers one call by filling `out` with the whole reply message. False sends nothing (the
// reply is dropped; the client times out or resends).
using Mode = bool (*)(const Call& call, std::vector<char>& out);

// An accepted reply with status SUCCESS and the results encoded by `encode` (any size).
bool AcceptWith(const Call& call, xdrproc_t encode, const void* results, std::vector<char>& out);
// An accepted reply with another status (PROG_UNAVAIL, PROC_UNAVAIL, GARBAGE_ARGS, ...).
bool AcceptStatus(const Call& call, accept_stat status, std::vector<char>& out);

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
