// The wire format of the pipelined transfer: calls decoded back with the RPC library's own
// routines, replies made by them decoded here, and replies cut or corrupted anywhere.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "nfs/kxNFS3Pipeline.h"
#include "nfs/kxNFSErrorMap.h"
#include "nfs/kxRPCWrappers.h"

using namespace kxNFSUtils;

namespace {

char g_handle[] = "0123456789abcdefghijklmnopqrstuvwxyzABCDEF";  // 42 bytes: padded on the wire

nfs_fh3 Handle() {
    nfs_fh3 fh;
    fh.data.data_len = 42;
    fh.data.data_val = g_handle;
    return fh;
}

// A whole reply message with the given results, as a server's RPC library encodes it.
std::vector<char> Reply(uint32_t xid, xdrproc_t encode, void* results) {
    std::vector<char> out(2 << 20);
    XDR x;
    xdrmem_create(&x, out.data(), static_cast<u_int>(out.size()), XDR_ENCODE);
    rpc_msg msg{};
    msg.rm_xid = xid;
    msg.rm_direction = REPLY;
    msg.rm_reply.rp_stat = MSG_ACCEPTED;
    msg.acpted_rply.ar_verf = _null_auth;
    msg.acpted_rply.ar_stat = SUCCESS;
    msg.acpted_rply.ar_results.where = static_cast<caddr_t>(results);
    msg.acpted_rply.ar_results.proc = encode;
    EXPECT_TRUE(xdr_replymsg(&x, &msg));
    out.resize(xdr_getpos(&x));
    xdr_destroy(&x);
    return out;
}

std::vector<char> ReadReply(uint32_t xid, const std::string& data, bool eof, bool attributes) {
    read3res res{};
    res.status = NFS3_OK;
    res.read3res_u.resok.file_attributes.attributes_follow = attributes;
    res.read3res_u.resok.count = static_cast<count3>(data.size());
    res.read3res_u.resok.eof = eof;
    res.read3res_u.resok.data.data_len = static_cast<u_int>(data.size());
    res.read3res_u.resok.data.data_val = const_cast<char*>(data.data());
    return Reply(xid, reinterpret_cast<xdrproc_t>(xdr_read3res), &res);
}

std::vector<char> WriteReply(uint32_t xid, nfsstat3 status, uint32_t count) {
    write3res res{};
    res.status = status;
    if (status == NFS3_OK) {
        res.write3res_u.resok.file_wcc.before.attributes_follow = TRUE;
        res.write3res_u.resok.file_wcc.after.attributes_follow = TRUE;
        res.write3res_u.resok.count = count;
        res.write3res_u.resok.committed = UNSTABLE;
    } else {
        res.write3res_u.resfail.file_wcc.after.attributes_follow = TRUE;
    }
    return Reply(xid, reinterpret_cast<xdrproc_t>(xdr_write3res), &res);
}

std::vector<uint32_t> Words(std::initializer_list<uint32_t> words) {
    std::vector<uint32_t> w;
    for (uint32_t v : words) w.push_back(htonl(v));
    return w;
}

bool Decode(const std::vector<uint32_t>& words, bool isRead, NFS3TransferReply& out) {
    return DecodeTransferReply(reinterpret_cast<const char*>(words.data()), words.size() * 4,
                               isRead, out);
}

TEST(NFS3PipelineWire, CallsDecodeWithTheRpcLibrary) {
    RPCAuth* a = nullptr;
    ASSERT_EQ(KX_OK, CreateRPCAuth(a, 1234, {56, 78}));
    std::unique_ptr<RPCAuth> auth(a);
    const std::string data = "seven bytes and then some: 31 of them";
    for (bool isWrite : {false, true}) {
        SCOPED_TRACE(isWrite);
        const uint32_t count = isWrite ? static_cast<uint32_t>(data.size()) : 65536;
        std::vector<char> call;
        ASSERT_TRUE(EncodeTransferCall(0xA1B2C3D4, auth->Handle(), isWrite, Handle(),
                                       0x123456789ull, count, call));
        if (isWrite) {
            call.insert(call.end(), data.begin(), data.end());
            call.insert(call.end(), WritePadding(count), '\0');
        }
        uint32_t mark;
        memcpy(&mark, call.data(), 4);
        EXPECT_EQ(0x80000000u | (call.size() - 4), ntohl(mark)) << "one last fragment";
        EXPECT_EQ(0u, call.size() % 4);

        XDR x;
        xdrmem_create(&x, call.data() + 4, static_cast<u_int>(call.size() - 4), XDR_DECODE);
        rpc_msg msg{};
        char cred[MAX_AUTH_BYTES], verf[MAX_AUTH_BYTES];
        msg.rm_call.cb_cred.oa_base = cred;
        msg.rm_call.cb_verf.oa_base = verf;
        ASSERT_TRUE(xdr_callmsg(&x, &msg));
        EXPECT_EQ(0xA1B2C3D4u, msg.rm_xid);
        EXPECT_EQ(CALL, msg.rm_direction);
        EXPECT_EQ(2u, msg.rm_call.cb_rpcvers);
        EXPECT_EQ(100003u, msg.rm_call.cb_prog);
        EXPECT_EQ(3u, msg.rm_call.cb_vers);
        EXPECT_EQ(isWrite ? 7u : 6u, msg.rm_call.cb_proc);
        EXPECT_EQ(static_cast<enum_t>(AUTH_UNIX), msg.rm_call.cb_cred.oa_flavor);
        if (isWrite) {
            write3args args{};
            ASSERT_TRUE(xdr_write3args(&x, &args));
            EXPECT_EQ(0x123456789ull, args.offset);
            EXPECT_EQ(count, args.count);
            EXPECT_EQ(UNSTABLE, args.stable);
            EXPECT_EQ(data, std::string(args.data.data_val, args.data.data_len));
            EXPECT_EQ(std::string(g_handle, 42),
                      std::string(args.file.data.data_val, args.file.data.data_len));
            xdr_free(reinterpret_cast<xdrproc_t>(xdr_write3args), reinterpret_cast<char*>(&args));
        } else {
            read3args args{};
            ASSERT_TRUE(xdr_read3args(&x, &args));
            EXPECT_EQ(0x123456789ull, args.offset);
            EXPECT_EQ(count, args.count);
            EXPECT_EQ(42u, args.file.data.data_len);
            xdr_free(reinterpret_cast<xdrproc_t>(xdr_read3args), reinterpret_cast<char*>(&args));
        }
        EXPECT_EQ(xdr_getpos(&x), call.size() - 4) << "nothing left over";
        xdr_destroy(&x);
    }
    nfs_fh3 tooLong = Handle();
    tooLong.data.data_len = NFS3_FHSIZE + 1;
    std::vector<char> call;
    EXPECT_FALSE(EncodeTransferCall(1, auth->Handle(), false, tooLong, 0, 1, call));
    EXPECT_FALSE(EncodeTransferCall(1, nullptr, false, Handle(), 0, 1, call));
}

TEST(NFS3PipelineWire, RepliesOfTheRpcLibraryDecode) {
    NFS3TransferReply r;
    const std::string data = "five!";
    std::vector<char> reply = ReadReply(77, data, true, true);
    ASSERT_TRUE(DecodeTransferReply(reply.data(), reply.size(), true, r));
    EXPECT_EQ(77u, r.xid);
    EXPECT_EQ(RPC_SUCCESS, r.rpc);
    EXPECT_EQ(NFS3_OK, r.status);
    EXPECT_EQ(5u, r.count);
    EXPECT_TRUE(r.eof);
    ASSERT_EQ(5u, r.dataLength);
    EXPECT_EQ(data, std::string(r.data, r.dataLength));
    // Bytes after the results are ignored; every cut short of them is refused.
    reply.push_back('x');
    EXPECT_TRUE(DecodeTransferReply(reply.data(), reply.size(), true, r));
    reply.pop_back();
    for (size_t n = 0; n < reply.size(); ++n) {
        const std::vector<char> cut(reply.begin(), reply.begin() + static_cast<long>(n));
        EXPECT_FALSE(DecodeTransferReply(cut.data(), cut.size(), true, r)) << n;
    }

    reply = ReadReply(78, "", false, false);
    ASSERT_TRUE(DecodeTransferReply(reply.data(), reply.size(), true, r));
    EXPECT_EQ(0u, r.dataLength);
    EXPECT_FALSE(r.eof);

    reply = WriteReply(79, NFS3_OK, 4096);
    ASSERT_TRUE(DecodeTransferReply(reply.data(), reply.size(), false, r));
    EXPECT_EQ(79u, r.xid);
    EXPECT_EQ(4096u, r.count);
    for (size_t n = 0; n < reply.size(); ++n)
        EXPECT_FALSE(DecodeTransferReply(reply.data(), n, false, r)) << n;
    reply = WriteReply(80, NFS3ERR_NOSPC, 0);
    ASSERT_TRUE(DecodeTransferReply(reply.data(), reply.size(), false, r));
    EXPECT_EQ(RPC_SUCCESS, r.rpc);
    EXPECT_EQ(NFS3ERR_NOSPC, r.status);
}

TEST(NFS3PipelineWire, RefusalsAndHostileReplies) {
    NFS3TransferReply r;
    // Accepted but not executed, and denied: the RPC library's statuses.
    ASSERT_TRUE(Decode(Words({5, REPLY, MSG_ACCEPTED, 0, 0, PROC_UNAVAIL}), true, r));
    EXPECT_EQ(RPC_PROCUNAVAIL, r.rpc);
    ASSERT_TRUE(Decode(Words({5, REPLY, MSG_ACCEPTED, 0, 0, GARBAGE_ARGS}), false, r));
    EXPECT_EQ(RPC_CANTDECODEARGS, r.rpc);
    ASSERT_TRUE(Decode(Words({5, REPLY, MSG_DENIED, AUTH_ERROR, AUTH_BADCRED}), true, r));
    EXPECT_EQ(RPC_AUTHERROR, r.rpc);
    ASSERT_TRUE(Decode(Words({5, REPLY, MSG_DENIED, RPC_MISMATCH, 2, 2}), true, r));
    EXPECT_EQ(RPC_VERSMISMATCH, r.rpc);

    // A status no table lists is kept as it came and translates to the table's default.
    ASSERT_TRUE(Decode(Words({5, REPLY, MSG_ACCEPTED, 0, 0, SUCCESS, 0x7FFFFFFF, 0}), true, r));
    EXPECT_EQ(0x7FFFFFFF, static_cast<int>(r.status));
    EXPECT_EQ(kxNFSUtils::g_NFSErrorMap.Default(),
              kxNFSUtils::g_NFSErrorMap.TranslateError(r.status));

    EXPECT_FALSE(Decode(Words({5, CALL, MSG_ACCEPTED, 0, 0, SUCCESS, NFS3_OK}), true, r));
    EXPECT_FALSE(Decode(Words({5, REPLY, 7}), true, r)) << "neither accepted nor denied";
    EXPECT_FALSE(Decode(Words({5, REPLY, MSG_ACCEPTED, 0, 0, 99}), true, r));
    EXPECT_FALSE(Decode(Words({5, REPLY, MSG_DENIED, 9}), true, r));
    EXPECT_FALSE(Decode(Words({5, REPLY, MSG_ACCEPTED, 0, 401}), true, r)) << "verifier > 400";
    EXPECT_FALSE(Decode(Words({5, REPLY, MSG_ACCEPTED, 0, 0, SUCCESS, NFS3_OK, 2}), true, r))
        << "a boolean of 2";
    // Lengths that run past the record: the data, and the verifier.
    EXPECT_FALSE(Decode(
        Words({5, REPLY, MSG_ACCEPTED, 0, 0, SUCCESS, NFS3_OK, 0, 8, 1, 0xFFFFFFFC}), true, r));
    EXPECT_FALSE(Decode(Words({5, REPLY, MSG_ACCEPTED, 0, 0, SUCCESS, NFS3_OK, 0, 8, 1, 9, 0, 0}),
                        true, r))
        << "9 bytes need 12 with padding";
    EXPECT_FALSE(Decode(Words({5, REPLY, MSG_ACCEPTED, 0, 400, 1}), true, r));

    // Random bytes behind a valid header, and wholly random records: never read outside.
    std::mt19937 gen(11);
    for (int i = 0; i < 20000; ++i) {
        std::vector<uint32_t> w = Words({5, REPLY, MSG_ACCEPTED, 0, 0, SUCCESS});
        const size_t extra = gen() % 40;
        for (size_t k = 0; k < extra; ++k) w.push_back(gen() % 4 == 0 ? htonl(gen() % 3) : gen());
        if (i % 2) w.erase(w.begin(), w.begin() + static_cast<long>(gen() % w.size()));
        std::vector<char> bytes(reinterpret_cast<const char*>(w.data()),
                                reinterpret_cast<const char*>(w.data()) + w.size() * 4 - gen() % 4);
        if (DecodeTransferReply(bytes.data(), bytes.size(), i % 3 != 0, r) && r.dataLength != 0) {
            ASSERT_GE(r.data, bytes.data());
            ASSERT_LE(r.data + r.dataLength, bytes.data() + bytes.size());
        }
    }
}

}  // namespace
