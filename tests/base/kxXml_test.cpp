#include "base/kxXml.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>

namespace {

template <typename T>
std::string ToText(const T& value) {
    char text[kxXml::NumberTextSize<T> + 8];
    std::memset(text, '#', sizeof(text));
    EXPECT_EQ(kxXml::NumberToString(value, text), KX_OK);
    EXPECT_LT(std::strlen(text), kxXml::NumberTextSize<T>) << "text overran its room";
    return text;
}

// Builds a value from a bit pattern without loading it into a floating-point register, which
// would quieten a signalling NaN on the 32-bit target.
template <typename T>
T FromBits(const unsigned char* bytes, std::size_t count) {
    T value;
    std::memset(static_cast<void*>(&value), 0, sizeof(T));
    std::memcpy(static_cast<void*>(&value), bytes, count);
    return value;
}

template <typename T>
void ExpectBitExactRoundTrip(const T& original, std::size_t significantBytes) {
    const std::string text = ToText(original);
    ASSERT_FALSE(text.empty());
    EXPECT_TRUE(text == "0" || text[0] != '0') << "leading zero in " << text;
    T back;
    std::memset(static_cast<void*>(&back), 0x5A, sizeof(T));
    ASSERT_EQ(kxXml::NumberFromString(back, text.c_str()), KX_OK) << text;
    EXPECT_EQ(std::memcmp(&back, &original, significantBytes), 0) << "text " << text;
}

template <typename T>
class NumberRoundTrip : public ::testing::Test {};

using AllNumberTypes = ::testing::Types<long, unsigned long, long long, unsigned long long, float,
                                        double, long double>;
TYPED_TEST_SUITE(NumberRoundTrip, AllNumberTypes);

// Random bit patterns cover NaNs with any payload, infinities, denormals and negative zero.
TYPED_TEST(NumberRoundTrip, EveryBitPatternSurvives) {
    using T = TypeParam;
    const std::size_t significant =
        std::is_same<T, long double>::value ? 10 : kxXml::NumberBytes<T>;
    std::mt19937_64 rng(12345);
    unsigned char bytes[16];
    for (int i = 0; i < 3000; ++i) {
        for (unsigned char& b : bytes)
            b = static_cast<unsigned char>(rng());
        // Short patterns too, so that texts of every length are read back.
        const std::size_t used = 1 + static_cast<std::size_t>(rng() % significant);
        std::memset(bytes + used, 0, sizeof(bytes) - used);
        ExpectBitExactRoundTrip(FromBits<T>(bytes, significant), significant);
    }
    std::memset(bytes, 0, sizeof(bytes));
    ExpectBitExactRoundTrip(FromBits<T>(bytes, significant), significant);
    std::memset(bytes, 0xFF, sizeof(bytes));
    ExpectBitExactRoundTrip(FromBits<T>(bytes, significant), significant);
    ExpectBitExactRoundTrip(std::numeric_limits<T>::max(), significant);
    ExpectBitExactRoundTrip(std::numeric_limits<T>::lowest(), significant);
}

TEST(NumberRoundTrip, BoolKeepsItsValue) {
    EXPECT_EQ(ToText(true), "1");
    EXPECT_EQ(ToText(false), "0");
    for (bool value : {false, true}) {
        bool back = !value;
        ASSERT_EQ(kxXml::NumberFromString(back, ToText(value).c_str()), KX_OK);
        EXPECT_EQ(back, value);
    }
    // Any other byte is true: a bool never holds another bit pattern.
    bool fromOther = false;
    ASSERT_EQ(kxXml::NumberFromString(fromOther, "fe"), KX_OK);
    unsigned char raw;
    std::memcpy(&raw, &fromOther, 1);
    EXPECT_EQ(raw, 1);
}

TEST(NumberRoundTrip, NaNPayloadsAndSignsAreKept) {
    const uint64_t doublePatterns[] = {
        0x7FF0000000000001ull,  // signalling NaN, smallest payload
        0x7FF4000000000000ull,  // signalling NaN
        0x7FF8000000000000ull,  // default quiet NaN
        0xFFF8DEADBEEF0001ull,  // negative quiet NaN with payload
        0x8000000000000000ull,  // negative zero
        0x0000000000000001ull,  // smallest denormal
    };
    for (uint64_t bits : doublePatterns) {
        const double value = FromBits<double>(reinterpret_cast<const unsigned char*>(&bits), 8);
        ExpectBitExactRoundTrip(value, 8);
    }
    const uint32_t floatPatterns[] = {0x7F800001u, 0x7FC00000u, 0xFFBFFFFFu, 0x80000000u};
    for (uint32_t bits : floatPatterns) {
        const float value = FromBits<float>(reinterpret_cast<const unsigned char*>(&bits), 4);
        ExpectBitExactRoundTrip(value, 4);
    }
    // Extended: sign/exponent in bytes 8-9, explicit integer bit at bit 63.
    const unsigned char extendedSignalling[10] = {1, 0, 0, 0, 0, 0, 0, 0x80, 0xFF, 0x7F};
    const unsigned char extendedQuietNeg[10] = {0xEF, 0xBE, 0xAD, 0xDE, 0, 0, 0, 0xC0, 0xFF, 0xFF};
    ExpectBitExactRoundTrip(FromBits<long double>(extendedSignalling, 10), 10);
    ExpectBitExactRoundTrip(FromBits<long double>(extendedQuietNeg, 10), 10);
}

TEST(NumberToString, WritesStorageBytesWithoutLeadingZeros) {
    EXPECT_EQ(ToText(255L), "ff");
    EXPECT_EQ(ToText(-1L), std::string(2 * sizeof(long), 'f'));
    EXPECT_EQ(ToText(0x12345678UL), "12345678");
    EXPECT_EQ(ToText(0ULL), "0");
    EXPECT_EQ(ToText(0x0100000000ULL), "100000000");
    EXPECT_EQ(ToText(-2LL), "fffffffffffffffe");
    EXPECT_EQ(ToText(1.0), "3ff0000000000000");
    EXPECT_EQ(ToText(-0.0), "8000000000000000");
    EXPECT_EQ(ToText(1.0f), "3f800000");
}

// The two bytes after the extended value are padding in memory; the text must not depend on
// them, so that one value has one text on both targets.
TEST(NumberToString, LongDoubleTextIgnoresPadding) {
    long double value;
    std::memset(static_cast<void*>(&value), 0xCC, sizeof(value));
    const unsigned char one[10] = {0, 0, 0, 0, 0, 0, 0, 0x80, 0xFF, 0x3F};  // 1.0L
    std::memcpy(static_cast<void*>(&value), one, sizeof(one));
    EXPECT_EQ(ToText(value), "3fff8000000000000000");
    EXPECT_EQ(kxXml::NumberBytes<long double>, 12u);

    // Full-width text from a writer that kept its padding: all 24 digits are accepted.
    long double back;
    ASSERT_EQ(kxXml::NumberFromString(back, "ABCD3fff8000000000000000"), KX_OK);
    EXPECT_EQ(std::memcmp(&back, one, sizeof(one)), 0);
    EXPECT_EQ(kxXml::NumberFromString(back, "1ABCD3fff8000000000000000"), KX_E_XML_BAD_NUMBER);
}

TEST(NumberFromString, AcceptsHexDigitsOfEitherCase) {
    long value = 0;
    EXPECT_EQ(kxXml::NumberFromString(value, "FF"), KX_OK);
    EXPECT_EQ(value, 255);
    EXPECT_EQ(kxXml::NumberFromString(value, "ff"), KX_OK);
    EXPECT_EQ(value, 255);
    EXPECT_EQ(kxXml::NumberFromString(value, "aBc"), KX_OK);  // lone leading digit: low nibble
    EXPECT_EQ(value, 0xABC);

    unsigned long empty = 7;
    EXPECT_EQ(kxXml::NumberFromString(empty, ""), KX_OK);
    EXPECT_EQ(empty, 0u);

    unsigned long long wide = 0;
    EXPECT_EQ(kxXml::NumberFromString(wide, "0000000000000001"), KX_OK);  // leading zeros fit
    EXPECT_EQ(wide, 1u);
}

TEST(NumberFromString, RejectsBadTextKeepingBytesReadSoFar) {
    long value = 99;
    EXPECT_EQ(kxXml::NumberFromString(value, "0x10"), KX_E_XML_BAD_NUMBER);
    EXPECT_EQ(value, 0x10);  // "10" was read before the "x"
    EXPECT_EQ(kxXml::NumberFromString(value, "-1"), KX_E_XML_BAD_NUMBER);
    EXPECT_EQ(value, 1);
    EXPECT_EQ(kxXml::NumberFromString(value, " 12"), KX_E_XML_BAD_NUMBER);
    EXPECT_EQ(value, 0x12);
    EXPECT_EQ(kxXml::NumberFromString(value, "12 "), KX_E_XML_BAD_NUMBER);
    EXPECT_EQ(value, 0);

    bool flag = true;
    EXPECT_EQ(kxXml::NumberFromString(flag, "101"), KX_E_XML_BAD_NUMBER);

    // One digit more than the type holds fails; exactly full width succeeds.
    const std::string full(2 * sizeof(unsigned long), 'f');
    unsigned long u = 0;
    EXPECT_EQ(kxXml::NumberFromString(u, full.c_str()), KX_OK);
    EXPECT_EQ(u, std::numeric_limits<unsigned long>::max());
    EXPECT_EQ(kxXml::NumberFromString(u, ("1" + full).c_str()), KX_E_XML_BAD_NUMBER);
    float f = 0;
    EXPECT_EQ(kxXml::NumberFromString(f, "3f8000000"), KX_E_XML_BAD_NUMBER);
}

TEST(NumberConversion, NullTextIsABadArgument) {
    double d = 1.0;
    EXPECT_EQ(kxXml::NumberToString(d, nullptr), KX_E_BAD_ARGUMENT);
    EXPECT_EQ(kxXml::NumberFromString(d, nullptr), KX_E_BAD_ARGUMENT);
    EXPECT_EQ(d, 0.0);
}

}  // namespace
