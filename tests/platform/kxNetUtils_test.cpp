#include "platform/kxNetUtils.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "kxLogCapture.h"

namespace {

unsigned long Dotted(const char* s) { return static_cast<unsigned long>(inet_addr(s)); }

TEST(kxNetUtils, DottedAddressSkipsLeadingSlashesAndResolverNamesResolve) {
    kxtest::LogCapture log;
    for (const char* name : {"//127.0.0.7", "/\\/127.0.0.7"}) {
        std::vector<unsigned long> v{42};  // appended to, not replaced
        ASSERT_EQ(KX_OK, kxNetUtils::GetHostIPAddresses(name, v)) << name;
        EXPECT_EQ((std::vector<unsigned long>{42, Dotted("127.0.0.7")}), v) << name;
    }
    unsigned long a = 0;  // a name goes to the resolver
    ASSERT_EQ(KX_OK, kxNetUtils::GetHostIPAddress("localhost", a));
    EXPECT_EQ(0x7F, ntohl(static_cast<uint32_t>(a)) >> 24);

    std::vector<unsigned long> v;
    EXPECT_EQ(KX_E_BAD_ARGUMENT, kxNetUtils::GetHostIPAddresses(nullptr, v));
    EXPECT_EQ(KX_E_BAD_ARGUMENT, kxNetUtils::GetHostIPAddress("", a));
    EXPECT_TRUE(log.Records().empty());
}

TEST(kxNetUtils, UnknownHostIsLoggedWithNameAfterSlashes) {
    kxtest::LogCapture log;
    unsigned long a = 99;
    EXPECT_EQ(KX_E_HOST_NOT_FOUND, kxNetUtils::GetHostIPAddress("//no-such-host.invalid", a));
    EXPECT_EQ(99u, a);
    EXPECT_TRUE(log.Has(KX_E_HOST_NOT_FOUND, " getting IP address for 'no-such-host.invalid'"));

    // A malformed dotted name leaves the "none" marker, then the resolver refuses it too;
    // what the caller's vector held before does not count as an answer.
    std::vector<unsigned long> v{42};
    EXPECT_EQ(KX_E_HOST_NOT_FOUND, kxNetUtils::GetHostIPAddresses("1.2.3.999", v));
    EXPECT_EQ((std::vector<unsigned long>{42, 0xFFFFFFFFul}), v);
}

}  // namespace
