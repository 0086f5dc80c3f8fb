#include "base/kxXml.h"

#include <cstring>
#include <limits>

// The long double text assumes the x87 extended format: 64-bit significand, 10 bytes of value.
static_assert(std::numeric_limits<long double>::digits == 64, "long double is not x87 extended");
static_assert(sizeof(long double) >= kxXml::NumberBytes<long double>, "long double too small");
#if KX_TARGET_32BIT
static_assert(sizeof(long double) == 12, "long double is 12 bytes on the 32-bit target");
static_assert(sizeof(long) == 4 && sizeof(unsigned long) == 4, "long is 32-bit on i386");
#endif

namespace {

constexpr std::size_t kMaxBytes = 16;
constexpr std::size_t kLongDoubleValueBytes = 10;

// Storage bytes of a value as the text covers them, least significant first (little-endian).
template <typename T>
void LoadBytes(const T& value, unsigned char* bytes) {
    std::memcpy(bytes, &value, sizeof(T));
}

template <>
void LoadBytes<long double>(const long double& value, unsigned char* bytes) {
    std::memset(bytes, 0, kxXml::NumberBytes<long double>);
    std::memcpy(bytes, &value, kLongDoubleValueBytes);
}

template <typename T>
void StoreBytes(T& value, const unsigned char* bytes) {
    std::memcpy(&value, bytes, kxXml::NumberBytes<T>);
}

template <>
void StoreBytes<bool>(bool& value, const unsigned char* bytes) {
    value = bytes[0] != 0;
}

void BytesToHex(const unsigned char* bytes, std::size_t count, char* text) {
    static const char kDigits[] = "0123456789abcdef";
    char* out = text;
    for (std::size_t i = count; i-- > 0;) {
        const unsigned nibbles[2] = {static_cast<unsigned>(bytes[i] >> 4),
                                     static_cast<unsigned>(bytes[i] & 0x0F)};
        for (unsigned nibble : nibbles) {
            if (out != text || nibble != 0)
                *out++ = kDigits[nibble];
        }
    }
    if (out == text)
        *out++ = '0';
    *out = '\0';
}

int HexDigitValue(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// Fills bytes[0..count) from the end of the text; bytes already filled stay filled on failure.
long HexToBytes(const char* text, unsigned char* bytes, std::size_t count) {
    std::memset(bytes, 0, count);
    const std::size_t length = std::strlen(text);
    for (std::size_t fromEnd = 0; fromEnd < length; ++fromEnd) {
        const std::size_t byteIndex = fromEnd / 2;
        if (byteIndex >= count)
            return KX_E_XML_BAD_NUMBER;
        const int digit = HexDigitValue(text[length - 1 - fromEnd]);
        if (digit < 0)
            return KX_E_XML_BAD_NUMBER;
        bytes[byteIndex] |= static_cast<unsigned char>(fromEnd % 2 == 0 ? digit : digit << 4);
    }
    return KX_OK;
}

}  // namespace

namespace kxXml {

template <typename T>
long NumberToString(const T& value, char* text) {
    static_assert(NumberBytes<T> <= kMaxBytes, "type too large");
    if (text == nullptr)
        return KX_E_BAD_ARGUMENT;
    unsigned char bytes[kMaxBytes];
    LoadBytes(value, bytes);
    BytesToHex(bytes, NumberBytes<T>, text);
    return KX_OK;
}

template <typename T>
long NumberFromString(T& value, const char* text) {
    static_assert(NumberBytes<T> <= kMaxBytes, "type too large");
    std::memset(static_cast<void*>(&value), 0, sizeof(T));
    if (text == nullptr)
        return KX_E_BAD_ARGUMENT;
    unsigned char bytes[kMaxBytes];
    const long status = HexToBytes(text, bytes, NumberBytes<T>);
    StoreBytes(value, bytes);
    return status;
}

#define KX_XML_INSTANTIATE(T)                                     \
    template long NumberToString<T>(const T& value, char* text); \
    template long NumberFromString<T>(T & value, const char* text);

KX_XML_INSTANTIATE(bool)
KX_XML_INSTANTIATE(long)
KX_XML_INSTANTIATE(unsigned long)
KX_XML_INSTANTIATE(long long)
KX_XML_INSTANTIATE(unsigned long long)
KX_XML_INSTANTIATE(float)
KX_XML_INSTANTIATE(double)
KX_XML_INSTANTIATE(long double)

#undef KX_XML_INSTANTIATE

}  // namespace kxXml
