#include "platform/kxSysInfo.h"

#include <gtest/gtest.h>

#include "kxEnvOverride.h"
#include "platform/kxBitUtils.h"

namespace {

TEST(kxSysInfo, CurrentUserComesFromUserAndIsNeverNull) {
    {
        kxtest::EnvOverride user("USER", nullptr);
        kxSysInfo::g_VersionInfo.Fill();
        ASSERT_NE(nullptr, kxSysInfo::GetCurrentUser());
        EXPECT_STREQ("", kxSysInfo::GetCurrentUser());
    }
    {
        kxtest::EnvOverride user("USER", "someone");
        kxSysInfo::g_VersionInfo.Fill();
        EXPECT_STREQ("someone", kxSysInfo::GetCurrentUser());
    }
    kxSysInfo::g_VersionInfo.Fill();
}

TEST(kxBitUtils, CountsBitsAndReversesBytes) {
    EXPECT_EQ(0u, kxBitUtils::CountBitsSet(0));
    EXPECT_EQ(2u, kxBitUtils::CountBitsSet(0x80000001ul));
    EXPECT_EQ(sizeof(unsigned long) * 8, kxBitUtils::CountBitsSet(~0ul));

    EXPECT_EQ(0x3412, kxBitUtils::ReverseEndiannessOf(static_cast<unsigned short>(0x1234)));
    EXPECT_EQ(0x78563412u, kxBitUtils::ReverseEndiannessOf(static_cast<uint32_t>(0x12345678)));
    EXPECT_EQ(static_cast<int32_t>(0xFFFFFF80), kxBitUtils::ReverseEndiannessOf(static_cast<int32_t>(0x80FFFFFF)));
    EXPECT_EQ(0x0807060504030201ull, kxBitUtils::ReverseEndiannessOf(0x0102030405060708ull));
    if (sizeof(long) == 4) {
        EXPECT_EQ(0x78563412ul, kxBitUtils::ReverseEndiannessOf(0x12345678ul));
    } else {
        EXPECT_EQ(0x7856341200000000ul, kxBitUtils::ReverseEndiannessOf(0x12345678ul));
    }

    t_FILETIME_UInt64 ft{0x05060708, 0x01020304};  // 0x0102030405060708
    const t_FILETIME_UInt64 r = kxBitUtils::ReverseEndiannessOf(ft);
    EXPECT_EQ(0x04030201u, r.LowPart);
    EXPECT_EQ(0x08070605u, r.HighPart);
}

}  // namespace
