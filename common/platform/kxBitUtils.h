// kxBitUtils: bit counting and byte-order reversal.
//
// Each ReverseEndiannessOf returns its argument with all of its bytes in reverse order. The
// width is the argument type's: `unsigned long`, `long` and pointers are 4 bytes on the 32-bit
// target and 8 on the 64-bit one; the fixed-width overloads (uint32_t, int32_t) are 4 bytes on
// both and are what 32-bit fields of records should use.
#pragma once

#include <cstdint>

// A 64-bit file time as its two 32-bit halves, low half first.
struct t_FILETIME_UInt64 {
    uint32_t LowPart;
    uint32_t HighPart;
};

namespace kxBitUtils {

// Number of set bits, counted by clearing the lowest set bit until none is left.
unsigned long CountBitsSet(unsigned long value);

unsigned short ReverseEndiannessOf(unsigned short value);
unsigned int ReverseEndiannessOf(unsigned int value);
int ReverseEndiannessOf(int value);
unsigned long ReverseEndiannessOf(unsigned long value);
long ReverseEndiannessOf(long value);
unsigned long long ReverseEndiannessOf(unsigned long long value);
long long ReverseEndiannessOf(long long value);
// Reverses the pointer's value itself, not what it points to.
const void* ReverseEndiannessOf(const void* value);
// All 8 bytes reversed: the halves change places and each is byte-reversed.
t_FILETIME_UInt64 ReverseEndiannessOf(t_FILETIME_UInt64 value);

}  // namespace kxBitUtils
