// The pipelined transfer's reply decoder on refusals and hostile replies. Its calls and the
// replies of a real server are exercised by the transfer tests against one; arbitrary bytes are
// the fuzz target's part.
#include "nfs/kxNFS3Pipeline.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>
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

// Without attributes the data starts four words earlier than a real server's replies put it.
TEST(NFS3PipelineWire, ReadReplyWithoutAttributes) {
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
    EXPECT_FALSE(
        Decode(Words({5, REPLY, MSG_ACCEPTED, 0, 0, SUCCESS, NFS3_OK, 0, 8, 1, 9, 0, 0}), true, r))
        << "9 bytes need 12 with padding";
    EXPECT_FALSE(Decode(Words({5, REPLY, MSG_ACCEPTED, 0, 400, 1}), true, r));
}

}  // namespace
