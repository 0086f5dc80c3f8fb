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

// Builds a value from a bit pattern without a floating-point load, which would quieten a
// signalling NaN on the 32-bit target.
template <typename T>
T FromBits(const void* bytes, std::size_t count) {
    T value;
    std::memset(static_cast<void*>(&value), 0, sizeof(T));
    std::memcpy(static_cast<void*>(&value), bytes, count);
    return value;
}

// Significant bytes: the 10 of the extended value for long double, else all of them.
template <typename T>
constexpr std::size_t kValueBytes = std::is_same<T, long double>::value ? 10 : sizeof(T);

template <typename T>
void ExpectBitExactRoundTrip(const T& original) {
    const std::string text = ToText(original);
    EXPECT_TRUE(text == "0" || text[0] != '0') << "leading zero in " << text;
    T back;
    std::memset(static_cast<void*>(&back), 0x5A, sizeof(T));
    ASSERT_EQ(kxXml::NumberFromString(back, text.c_str()), KX_OK) << text;
    EXPECT_EQ(std::memcmp(&back, &original, kValueBytes<T>), 0) << "text " << text;
}

template <typename T>
class NumberRoundTrip : public ::testing::Test {};
using NumberTypes = ::testing::Types<long, unsigned long, long long, unsigned long long, float,
                                     double, long double>;
TYPED_TEST_SUITE(NumberRoundTrip, NumberTypes);

// Random bit patterns of every length cover NaNs with any payload, infinities, denormals and
// negative zero.
TYPED_TEST(NumberRoundTrip, EveryBitPatternSurvives) {
    using T = TypeParam;
    std::mt19937_64 rng(12345);
    unsigned char bytes[16];
    for (int i = 0; i < 3000; ++i) {
        for (unsigned char& b : bytes)
            b = static_cast<unsigned char>(rng());
        const std::size_t used = 1 + static_cast<std::size_t>(rng() % kValueBytes<T>);
        std::memset(bytes + used, 0, sizeof(bytes) - used);
        ExpectBitExactRoundTrip(FromBits<T>(bytes, kValueBytes<T>));
    }
    std::memset(bytes, 0xFF, sizeof(bytes));
    ExpectBitExactRoundTrip(FromBits<T>(bytes, kValueBytes<T>));
    ExpectBitExactRoundTrip(T());
    ExpectBitExactRoundTrip(std::numeric_limits<T>::lowest());
}

// Signalling NaNs, which a floating-point load on the 32-bit target would quieten.
TEST(NumberRoundTrip, SignallingNaNsAndBools) {
    const uint64_t doubleBits = 0x7FF4000000000000ull;
    ExpectBitExactRoundTrip(FromBits<double>(&doubleBits, 8));
    const uint32_t floatBits = 0x7F800001u;
    ExpectBitExactRoundTrip(FromBits<float>(&floatBits, 4));
    // Extended: explicit integer bit 63, sign and exponent in bytes 8-9.
    const unsigned char signalling[10] = {1, 0, 0, 0, 0, 0, 0, 0x80, 0xFF, 0x7F};
    ExpectBitExactRoundTrip(FromBits<long double>(signalling, 10));

    for (bool value : {false, true}) {
        bool back = !value;
        ASSERT_EQ(kxXml::NumberFromString(back, ToText(value).c_str()), KX_OK);
        EXPECT_EQ(back, value);
    }
    // Any other byte reads as true: a bool never holds another bit pattern.
    bool other = false;
    ASSERT_EQ(kxXml::NumberFromString(other, "fe"), KX_OK);
    unsigned char raw;
    std::memcpy(&raw, &other, 1);
    EXPECT_EQ(raw, 1);
}

TEST(NumberToString, WritesStorageBytesWithoutLeadingZeros) {
    EXPECT_EQ(ToText(255L), "ff");
    EXPECT_EQ(ToText(-1L), std::string(2 * sizeof(long), 'f'));
    EXPECT_EQ(ToText(true), "1");
    EXPECT_EQ(ToText(false), "0");
    EXPECT_EQ(ToText(0ULL), "0");
    EXPECT_EQ(ToText(0x0100000000ULL), "100000000");
    EXPECT_EQ(ToText(0x0F00ULL), "f00");  // zero nibbles skipped, not zero bytes
    EXPECT_EQ(ToText(1.0), "3ff0000000000000");
    EXPECT_EQ(ToText(1.0f), "3f800000");

    // The bytes after the extended value are padding: the text must not depend on them, so
    // that one value has one text on both targets.
    long double value;
    std::memset(static_cast<void*>(&value), 0xCC, sizeof(value));
    const unsigned char one[10] = {0, 0, 0, 0, 0, 0, 0, 0x80, 0xFF, 0x3F};
    std::memcpy(static_cast<void*>(&value), one, sizeof(one));
    EXPECT_EQ(ToText(value), "3fff8000000000000000");
    // Text that kept non-zero padding is read, all 24 digits of it.
    long double back;
    ASSERT_EQ(kxXml::NumberFromString(back, "ABCD3fff8000000000000000"), KX_OK);
    EXPECT_EQ(std::memcmp(&back, one, sizeof(one)), 0);
    EXPECT_EQ(kxXml::NumberFromString(back, "1ABCD3fff8000000000000000"), KX_E_XML_BAD_NUMBER);
}

TEST(NumberFromString, ReadsHexDigitsFromTheEnd) {
    long value = 0;
    EXPECT_EQ(kxXml::NumberFromString(value, "FF"), KX_OK);
    EXPECT_EQ(value, 255);
    EXPECT_EQ(kxXml::NumberFromString(value, "aBc"), KX_OK);  // lone leading digit: low nibble
    EXPECT_EQ(value, 0xABC);
    unsigned long empty = 7;
    EXPECT_EQ(kxXml::NumberFromString(empty, ""), KX_OK);
    EXPECT_EQ(empty, 0u);

    // Bad characters fail, keeping the bytes read before them.
    EXPECT_EQ(kxXml::NumberFromString(value, "0x10"), KX_E_XML_BAD_NUMBER);
    EXPECT_EQ(value, 0x10);
    EXPECT_EQ(kxXml::NumberFromString(value, "12 "), KX_E_XML_BAD_NUMBER);

    // One digit more than the type holds fails; exactly full width succeeds.
    bool flag = true;
    EXPECT_EQ(kxXml::NumberFromString(flag, "101"), KX_E_XML_BAD_NUMBER);
    const std::string full(2 * sizeof(unsigned long), 'f');
    unsigned long u = 0;
    EXPECT_EQ(kxXml::NumberFromString(u, full.c_str()), KX_OK);
    EXPECT_EQ(u, std::numeric_limits<unsigned long>::max());
    EXPECT_EQ(kxXml::NumberFromString(u, ("1" + full).c_str()), KX_E_XML_BAD_NUMBER);

    double d = 1.0;
    EXPECT_EQ(kxXml::NumberToString(d, nullptr), KX_E_BAD_ARGUMENT);
    EXPECT_EQ(kxXml::NumberFromString(d, nullptr), KX_E_BAD_ARGUMENT);
}

}  // namespace
