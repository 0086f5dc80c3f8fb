// RPCClient and RPCAuth: one Sun RPC connection to a program and version on one server, and
// one set of credentials for it, over the system's RPC client library.
//
// Convention: the factories return a status (base/kxStatus.h, nfs/kxNFSStatus.h), 0 on
// success; on failure the half-made object is destroyed, the output pointer is untouched and
// nothing is logged (callers log). Call and RecvReply return a clnt_stat and never throw.
//
// Ownership: the caller owns what a factory returns and deletes it through the interface.
// A client does not own the credentials installed with SetAuth: the RPCAuth must outlive it.
//
// Thread safety: one client is used by one thread at a time. RecvReply decodes from one
// receive buffer shared by the whole process, so it must not run on two threads at once, and
// a decoded result must be finished with before the next RecvReply.
#pragma once

#include <rpc/rpc.h>

#include <string>
#include <vector>

#include "nfs/kxNFSStatus.h"

namespace kxNFSUtils {

class RPCClient {
public:
    enum PROTOCOL { PROTOCOL_TCP = 0, PROTOCOL_UDP = 1 };

    // Destroys the library's client handle (closing the socket it opened) and the call buffers.
    virtual ~RPCClient() = default;
    // Installs auth as the credentials of every call made on this client.
    virtual void SetAuth(AUTH* auth) = 0;
    // The library's client handle, for the generated stubs.
    virtual CLIENT* Handle() = 0;
    // The socket descriptor the library opened.
    virtual int Socket() = 0;
    // The transport given at creation.
    virtual PROTOCOL ProtocolUsed() = 0;

    // Encodes one request into the client's reused 8192-byte buffer and sends it as one
    // datagram, without waiting for the reply. Each call takes the next transaction id, counting
    // down by one, and reports it through xid. Returns RPC_SUCCESS, RPC_CANTENCODEARGS (the
    // request does not fit or an argument cannot be encoded) or RPC_CANTSEND (short or failed
    // send, or a stream client: datagrams on a stream would corrupt it).
    virtual clnt_stat Call(long procedure, xdrproc_t encodeArgs, char* args, unsigned int& xid) = 0;

    // Receives one datagram (blocking; wait with select on Socket() first for a time limit) and
    // decodes it as a reply into results, reporting the reply's transaction id through xid.
    // Matching replies to requests is the caller's business. Returns RPC_SUCCESS,
    // RPC_TIMEDOUT (nothing received), RPC_CANTDECODERES (xid untouched) or RPC_FAILED (the
    // server refused the call: denied, or accepted with a status other than SUCCESS).
    virtual clnt_stat RecvReply(xdrproc_t decodeResults, char* results, unsigned int& xid) = 0;
};

class RPCAuth {
public:
    virtual ~RPCAuth() = default;
    virtual AUTH* Handle() = 0;
};

// clnt_create by host name; any protocol other than PROTOCOL_TCP means UDP.
// KX_E_RPC_FAILED when no client could be made (rpc_createerr says why).
long CreateRPCClient(RPCClient*& out, const std::string& host, int program, int version,
                     RPCClient::PROTOCOL protocol);
// By IPv4 address in network byte order; the server's port mapper supplies the port. UDP
// clients resend every 2 seconds within a call's total time-out; TCP clients use 8192-byte
// send and receive buffers. KX_E_RPC_FAILED when no client could be made.
long CreateRPCClient(RPCClient*& out, unsigned long address, int program, int version,
                     RPCClient::PROTOCOL protocol);

// AUTH_NONE credentials. KX_E_RPC_AUTH when none could be made.
long CreateRPCAuth(RPCAuth*& out);
// AUTH_UNIX credentials for uid, with gids[0] as the primary group and the whole list,
// gids[0] included, as the supplementary groups (at most the first 16 are sent, the most the
// credential can carry). An empty list is refused with KX_E_RPC_AUTH: deliberate, there is no
// sensible primary group to invent. The machine name in the credential is looked up once per
// process.
long CreateRPCAuth(RPCAuth*& out, int uid, const std::vector<int>& gids);

}  // namespace kxNFSUtils
