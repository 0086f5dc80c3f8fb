#include "platform/kxBitUtils.h"

#include <cstring>

namespace kxBitUtils {

namespace {

template <typename T>
T Reversed(T value) {
    unsigned char bytes[sizeof(T)];
    memcpy(bytes, &value, sizeof(T));
    for (unsigned i = 0; i < sizeof(T) / 2; ++i) {
        const unsigned char swap = bytes[i];
        bytes[i] = bytes[sizeof(T) - 1 - i];
        bytes[sizeof(T) - 1 - i] = swap;
    }
    memcpy(&value, bytes, sizeof(T));
    return value;
}

}  // namespace

unsigned long CountBitsSet(unsigned long value) {
    unsigned long count = 0;
    while (value != 0) {
        value &= value - 1;
        ++count;
    }
    return count;
}

unsigned short ReverseEndiannessOf(unsigned short value) { return Reversed(value); }
unsigned int ReverseEndiannessOf(unsigned int value) { return Reversed(value); }
int ReverseEndiannessOf(int value) { return Reversed(value); }
unsigned long ReverseEndiannessOf(unsigned long value) { return Reversed(value); }
long ReverseEndiannessOf(long value) { return Reversed(value); }
unsigned long long ReverseEndiannessOf(unsigned long long value) { return Reversed(value); }
long long ReverseEndiannessOf(long long value) { return Reversed(value); }
const void* ReverseEndiannessOf(const void* value) { return Reversed(value); }

t_FILETIME_UInt64 ReverseEndiannessOf(t_FILETIME_UInt64 value) {
    t_FILETIME_UInt64 result;
    result.LowPart = Reversed(value.HighPart);
    result.HighPart = Reversed(value.LowPart);
    return result;
}

}  // namespace kxBitUtils
