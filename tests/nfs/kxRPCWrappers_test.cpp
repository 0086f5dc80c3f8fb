#include "nfs/kxRPCWrappers.h"

#include <gtest/gtest.h>

#include <memory>

using namespace kxNFSUtils;

namespace {

TEST(RPCAuth, EmptyGroupListIsRefusedAndOutputUntouched) {
    RPCAuth* out = reinterpret_cast<RPCAuth*>(0x1);
    EXPECT_EQ(KX_E_RPC_AUTH, CreateRPCAuth(out, 0, {}));
    EXPECT_EQ(reinterpret_cast<RPCAuth*>(0x1), out);
}

TEST(RPCAuth, NoneAndUnixCredentials) {
    RPCAuth* none = nullptr;
    ASSERT_EQ(KX_OK, CreateRPCAuth(none));
    std::unique_ptr<RPCAuth> n(none);
    EXPECT_EQ(static_cast<int>(AUTH_NONE), n->Handle()->ah_cred.oa_flavor);

    // More groups than the credential carries are cut, not fatal.
    std::vector<int> many;
    for (int g = 100; g < 140; ++g) many.push_back(g);
    for (const auto& gids : {std::vector<int>{1000}, many}) {
        RPCAuth* unixAuth = nullptr;
        ASSERT_EQ(KX_OK, CreateRPCAuth(unixAuth, 1000, gids));
        std::unique_ptr<RPCAuth> u(unixAuth);
        EXPECT_EQ(static_cast<int>(AUTH_UNIX), u->Handle()->ah_cred.oa_flavor);
        EXPECT_GT(u->Handle()->ah_cred.oa_length, 0u);
    }
}

}  // namespace
