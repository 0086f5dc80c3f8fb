// The wire format of the pipelined transfer: a call decoded back with the RPC library's own
// routines, replies laid out by hand, refusals and hostile replies. Arbitrary bytes are the fuzz
// target's part.
#include "nfs/kxNFS3Pipeline.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "nfs/kxNFSErrorMap.h"
#include "nfs/kxRPCWrappers.h"

using namespace kxNFSUtils;

namespace {

std::vector<uint32_t> Words(std::initializer_list<uint32_t> words) {
    std::vector<uint32_t> w;
    for (uint32_t v : words) w.push_back(htonl(v));
    return w;
}

bool Decode(const std::vector<uint32_t>& words, bool isRead, NFS3TransferReply& out) {
    return DecodeTransferReply(reinterpret_cast<const char*>(words.data()), words.size() * 4,
                               isRead, out);
}

// A WRITE past 4 GiB with a handle and data that both need padding.
TEST(NFS3PipelineWire, CallsDecodeWithTheRpcLibrary) {
    RPCAuth* a = nullptr;
    ASSERT_EQ(KX_OK, CreateRPCAuth(a, 1234, {56, 78}));
    std::unique_ptr<RPCAuth> auth(a);
    char handle[] = "0123456789abcdefghijklmnopqrstuvwxyzABCDEF";
    const nfs_fh3 file{{42, handle}};
    const std::string data = "seven bytes and then some: 31 of them";
    const uint32_t count = static_cast<uint32_t>(data.size());
    std::vector<char> call;
    ASSERT_TRUE(
        EncodeTransferCall(0xA1B2C3D4, auth->Handle(), true, file, 0x123456789ull, count, call));
    call.insert(call.end(), data.begin(), data.end());
    call.insert(call.end(), WritePadding(count), '\0');
    uint32_t mark;
    memcpy(&mark, call.data(), 4);
    EXPECT_EQ(0x80000000u | (call.size() - 4), ntohl(mark)) << "one last fragment";

    XDR x;
    xdrmem_create(&x, call.data() + 4, static_cast<u_int>(call.size() - 4), XDR_DECODE);
    rpc_msg msg{};
    char cred[MAX_AUTH_BYTES], verf[MAX_AUTH_BYTES];
    msg.rm_call.cb_cred.oa_base = cred;
    msg.rm_call.cb_verf.oa_base = verf;
    ASSERT_TRUE(xdr_callmsg(&x, &msg));
    EXPECT_EQ(0xA1B2C3D4u, msg.rm_xid);
    EXPECT_EQ(7u, msg.rm_call.cb_proc);
    write3args args{};
    ASSERT_TRUE(xdr_write3args(&x, &args));
    EXPECT_EQ(0x123456789ull, args.offset);
    EXPECT_EQ(count, args.count);
    EXPECT_EQ(data, std::string(args.data.data_val, args.data.data_len));
    EXPECT_EQ(std::string(handle, 42),
              std::string(args.file.data.data_val, args.file.data.data_len));
    xdr_free(reinterpret_cast<xdrproc_t>(xdr_write3args), reinterpret_cast<char*>(&args));
    EXPECT_EQ(xdr_getpos(&x), call.size() - 4) << "nothing left over";
    xdr_destroy(&x);

    nfs_fh3 tooLong = file;
    tooLong.data.data_len = NFS3_FHSIZE + 1;
    EXPECT_FALSE(EncodeTransferCall(1, auth->Handle(), false, tooLong, 0, 1, call));
    EXPECT_FALSE(EncodeTransferCall(1, nullptr, false, file, 0, 1, call));
}

// Replies without attributes: READ's data starts four words earlier than a real server's
// replies put it, and WRITE's count follows the two absent attribute sets at once.
TEST(NFS3PipelineWire, RepliesWithoutAttributes) {
    const std::vector<uint32_t> words = Words(
        {77, REPLY, MSG_ACCEPTED, 0, 0, SUCCESS, NFS3_OK, 0, 5, 0, 5, 0x66697665, 0x21000000});
    NFS3TransferReply r;
    ASSERT_TRUE(Decode(words, true, r));
    EXPECT_EQ(77u, r.xid);
    EXPECT_EQ(5u, r.count);
    EXPECT_FALSE(r.eof);
    EXPECT_EQ("five!", std::string(r.data, r.dataLength));
    for (size_t n = 0; n < words.size() * 4; ++n)
        EXPECT_FALSE(DecodeTransferReply(reinterpret_cast<const char*>(words.data()), n, true, r))
            << n;
    ASSERT_TRUE(Decode(
        Words({78, REPLY, MSG_ACCEPTED, 0, 0, SUCCESS, NFS3_OK, 0, 0, 4096, 0, 1, 2}), false, r));
    EXPECT_EQ(78u, r.xid);
    EXPECT_EQ(4096u, r.count);
}

TEST(NFS3PipelineWire, RefusalsAndHostileReplies) {
    NFS3TransferReply r;
    // Accepted but not executed, and denied: the RPC library's statuses.
    ASSERT_TRUE(Decode(Words({5, REPLY, MSG_ACCEPTED, 0, 0, PROG_UNAVAIL}), true, r));
    EXPECT_EQ(RPC_PROGUNAVAIL, r.rpc);
    ASSERT_TRUE(Decode(Words({5, REPLY, MSG_ACCEPTED, 0, 0, PROG_MISMATCH, 3, 3}), true, r));
    EXPECT_EQ(RPC_PROGVERSMISMATCH, r.rpc);
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
    EXPECT_FALSE(
        Decode(Words({5, REPLY, MSG_ACCEPTED, 0, 0, SUCCESS, NFS3_OK, 0, 8, 1, 9, 0, 0}), true, r))
        << "9 bytes need 12 with padding";
    EXPECT_FALSE(Decode(Words({5, REPLY, MSG_ACCEPTED, 0, 400, 1}), true, r));
}

}  // namespace
