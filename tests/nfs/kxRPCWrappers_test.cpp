#include "nfs/kxRPCWrappers.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

using namespace kxNFSUtils;

namespace {

TEST(RPCAuth, UnixCredentials) {
    RPCAuth* refused = reinterpret_cast<RPCAuth*>(0x1);
    EXPECT_EQ(KX_E_RPC_AUTH, CreateRPCAuth(refused, 0, {}));  // no primary group
    EXPECT_EQ(reinterpret_cast<RPCAuth*>(0x1), refused);

    // More groups than the credential carries are cut to the first 16, not refused. (What a
    // browse object sends is checked on the wire by the fake-peer tests.)
    std::vector<int> many;
    for (int g = 100; g < 140; ++g) many.push_back(g);
    RPCAuth* unixAuth = nullptr;
    ASSERT_EQ(KX_OK, CreateRPCAuth(unixAuth, 1000, many));
    std::unique_ptr<RPCAuth> u(unixAuth);
    const opaque_auth& cred = u->Handle()->ah_cred;
    ASSERT_EQ(static_cast<int>(AUTH_UNIX), cred.oa_flavor);
    authunix_parms parms{};
    XDR x;
    xdrmem_create(&x, cred.oa_base, cred.oa_length, XDR_DECODE);
    ASSERT_TRUE(xdr_authunix_parms(&x, &parms));
    EXPECT_EQ(1000u, parms.aup_uid);
    EXPECT_EQ(100u, parms.aup_gid);
    EXPECT_EQ(std::vector<gid_t>(many.begin(), many.begin() + 16),
              std::vector<gid_t>(parms.aup_gids, parms.aup_gids + parms.aup_len));
    x.x_op = XDR_FREE;
    xdr_authunix_parms(&x, &parms);
}

}  // namespace
