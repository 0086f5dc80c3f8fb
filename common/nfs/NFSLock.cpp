// Whole-file locks through the server's lock manager: NLM version 1, or version 4 for servers
// that offer only that (NFSBrowse.h has the contract, at LockFile).
#include <rpc/rpc.h>

#include <atomic>
#include <cstdint>

#include "nfs/NFSBrowseImplCommon.h"
#include "nfs/kxNFS3Call.h"
#include "nfs/kxNFSErrorMap.h"
#include "xdr/nlm4_prot.h"
#include "xdr/nlm_prot.h"

namespace kxNFSUtils {

// The lock identity of every request the process sends: the request cookie and the lock owner
// handle alike. g_Cookie is its length, stored on the first lock request; every writer stores
// the same value, so concurrent first uses need no lock.
char g_CookieContents[4] = {'\xEB', '\x20', '\xF3', '\xFA'};
std::atomic<u_int> g_Cookie{0};

namespace {

constexpr int kNLMProgram = 100021;
constexpr u_int kMinLockHandle = 32;     // version 1 sends shorter handles padded to this
constexpr uint32_t kLockSlack = 4096;    // added to the size: the range reaches past the end
constexpr uint64_t kMaxLockLength = INT64_MAX;  // what servers take as a 64-bit range end

RPCClient* ConnectLockManager(unsigned long address, int version) {
    RPCClient* client = nullptr;
    if (CreateRPCClient(client, address, kNLMProgram, version, RPCClient::PROTOCOL_TCP) ==
            KX_OK ||
        CreateRPCClient(client, address, kNLMProgram, version, RPCClient::PROTOCOL_UDP) == KX_OK)
        return client;
    return nullptr;
}

// The port mapper knows no such program or version (as opposed to an unreachable server).
bool NotRegistered() {
    return rpc_createerr.cf_stat == RPC_PROGNOTREGISTERED ||
           rpc_createerr.cf_stat == RPC_PROGVERSMISMATCH;
}

// The connection broke under the client (the server closed an idle one, or restarted).
bool ConnectionLost(clnt_stat rpc) { return rpc == RPC_CANTSEND || rpc == RPC_CANTRECV; }

netobj Cookie() {
    netobj n;
    n.n_len = g_Cookie.load(std::memory_order_relaxed);
    n.n_bytes = g_CookieContents;
    return n;
}

netobj Handle(const DirEntry& file, u_int length) {
    netobj n;
    n.n_len = length;
    n.n_bytes = reinterpret_cast<char*>(const_cast<uint8_t*>(file.handle));
    return n;
}

struct Outcome {
    clnt_stat rpc;
    int status;  // the protocol's status; 0 is granted in both versions
};

template <typename Res>
Outcome Take(clnt_stat rpc, const Res& res) {
    return {rpc, static_cast<int>(res.stat.stat)};
}

// Version 1: the handle padded to 32 bytes, offset 0, length the low 32 bits of the size plus
// 4096 in 32-bit arithmetic (so it wraps for sizes whose low word is 0xFFFFF000 or more).
Outcome Lock1(CLIENT* client, const DirEntry& file, const std::string& caller, bool lock,
              bool exclusive) {
    nlm_lock alock;
    alock.caller_name = const_cast<char*>(caller.c_str());
    alock.fh = Handle(file, file.handleLength < kMinLockHandle ? kMinLockHandle : file.handleLength);
    alock.oh = Cookie();
    alock.uppid = 0;
    alock.l_offset = 0;
    alock.l_len = static_cast<u_int>(static_cast<uint32_t>(file.size) + kLockSlack);
    if (!lock) {
        nlm_unlockargs args{Cookie(), alock};
        return Call3<nlm_res>(client, nlm_unlock_1, &args, xdr_nlm_res, Take<nlm_res>);
    }
    nlm_lockargs args{Cookie(), FALSE, exclusive, alock, FALSE, 0};
    return Call3<nlm_res>(client, nlm_lock_1, &args, xdr_nlm_res, Take<nlm_res>);
}

// Version 4: the handle at its own length, offset 0, length the whole 64-bit size plus 4096
// (0, "to the end of the file", for sizes so large the sum would pass a 64-bit range end).
Outcome Lock4(CLIENT* client, const DirEntry& file, const std::string& caller, bool lock,
              bool exclusive) {
    nlm4_lock alock;
    alock.caller_name = const_cast<char*>(caller.c_str());
    alock.fh = Handle(file, file.handleLength);
    alock.oh = Cookie();
    alock.svid = 0;
    alock.l_offset = 0;
    alock.l_len = file.size <= kMaxLockLength - kLockSlack ? file.size + kLockSlack : 0;
    if (!lock) {
        nlm4_unlockargs args{Cookie(), alock};
        return Call3<nlm4_res>(client, nlmproc4_unlock_4, &args, xdr_nlm4_res, Take<nlm4_res>);
    }
    nlm4_lockargs args{Cookie(), FALSE, exclusive, alock, FALSE, 0};
    return Call3<nlm4_res>(client, nlmproc4_lock_4, &args, xdr_nlm4_res, Take<nlm4_res>);
}

// A version-mismatch answer to a version-1 request that names version 4 among those offered.
bool OffersVersion4(CLIENT* client, clnt_stat rpc) {
    if (rpc != RPC_PROGVERSMISMATCH) return false;
    rpc_err err;
    clnt_geterr(client, &err);
    return err.re_vers.low <= 4 && err.re_vers.high >= 4;
}

}  // namespace

CLIENT* NFSBrowseImplCommon::GetLockClient() {
    if (!lockClient) {
        RPCClient* client = ConnectLockManager(address, lockVersion);
        if (client == nullptr && NotRegistered()) {
            const int other = lockVersion == kNLMVersion1 ? kNLMVersion4 : kNLMVersion1;
            client = ConnectLockManager(address, other);
            if (client != nullptr) lockVersion = other;
        }
        if (client == nullptr) return nullptr;
        client->SetAuth(auth->Handle());
        lockClient.reset(client);
    }
    return lockClient->Handle();
}

bool NFSBrowseImplCommon::LockFile(const DirEntry& file, bool lock, bool exclusive) {
    if (file.magic != DirEntry::kMagic) {
        lastError = KX_E_NOT_INITIALISED;
        return false;
    }
    if (file.handleLength > kDirEntryHandleSize) {
        lastError = KX_E_BAD_ARGUMENT;
        return false;
    }
    CLIENT* client = GetLockClient();
    if (client == nullptr) return false;
    g_Cookie.store(sizeof g_CookieContents, std::memory_order_relaxed);

    int version = lockVersion;  // the version of the request whose outcome is kept
    const auto send = [&](CLIENT* c) {
        version = lockVersion;
        return version == kNLMVersion1 ? Lock1(c, file, localName, lock, exclusive)
                                       : Lock4(c, file, localName, lock, exclusive);
    };
    Outcome out = send(client);
    // Both retries reconnect once and repeat the request, which is safe: a second LOCK by the
    // same owner or a second UNLOCK changes nothing on the server.
    const bool switchVersion = version == kNLMVersion1 && OffersVersion4(client, out.rpc);
    if (switchVersion || ConnectionLost(out.rpc)) {
        lockClient.reset();
        if (switchVersion) lockVersion = kNLMVersion4;
        client = GetLockClient();
        if (client != nullptr) out = send(client);
    }
    if (out.rpc == RPC_SUCCESS && out.status == 0) return true;

    const std::string detail = Detail(hostName, file.serverPath);
    if (version == kNLMVersion1) {
        lastError = TranslateError(g_NLMErrorMap, out.rpc, static_cast<nlm_stats>(out.status),
                                   lock ? "nlm_lock_3(status %d, err 0x%8.8X)"
                                        : "nlm_unlock_3(status %d, err 0x%8.8X)",
                                   detail);
    } else {
        lastError = TranslateError(g_NLM4ErrorMap, out.rpc, static_cast<nlm4_stats>(out.status),
                                   lock ? "nlmproc4_lock_4 (status %d, err 0x%8.8X)"
                                        : "nlmproc4_unlock_4 (status %d, err 0x%8.8X)",
                                   detail);
    }
    return false;
}

}  // namespace kxNFSUtils
