// Lossless text form of numbers, for keeping numeric values in XML text.
//
// The text is not a decimal number: it is the value's storage bytes in hexadecimal, most
// significant byte first, lower-case, without leading zeros ("0" for all-zero bytes). Every bit
// pattern survives a round trip exactly, NaN payloads and negative zero included.
//
//   255 as long            "ff"
//   -1 as long             "ffffffff" on the 32-bit target, "ffffffffffffffff" on 64-bit
//   true                   "1"
//   1.0 as double          "3ff0000000000000"
//
// Convention: both functions return a status (base/kxStatus.h) and never throw or log.
// Thread safety: pure functions; any thread may call them.
//
// The templates are defined for bool, long, unsigned long, long long, unsigned long long,
// float, double and long double only; any other type fails to link.
#pragma once

#include <cstddef>

#include "base/kxStatus.h"

// The text is not a well-formed number of the requested type.
constexpr long KX_E_XML_BAD_NUMBER = kxStatus(0xE0FF011A);

namespace kxXml {

// How many storage bytes the text of a T covers: sizeof(T), except for long double.
//
// long double is an 80-bit extended value (10 bytes) stored in 12 bytes on the 32-bit target and
// 16 on 64-bit. Its text covers 12 bytes on both targets: the 10 bytes of the value and the two
// after it, so the same value has the same text everywhere. Those two bytes are only padding in
// memory and may hold anything, so they are written as zeros rather than copied; text from
// elsewhere with non-zero padding digits is still read, into the padding.
//
// `long` and `unsigned long` cover sizeof(long): 4 bytes on the 32-bit target, 8 on 64-bit, so
// that no value of the native type is ever cut. Non-negative values in the 32-bit range have the
// same text on both targets; negative ones do not ("ffffffff" read on 64-bit is 4294967295).
template <typename T>
constexpr std::size_t NumberBytes = sizeof(T);
// inline: a specialisation is an ordinary variable, defined again by every file that uses it.
template <>
inline constexpr std::size_t NumberBytes<long double> = 12;

// Room, in characters and including the terminator, that NumberToString<T> may need.
template <typename T>
constexpr std::size_t NumberTextSize = 2 * NumberBytes<T> + 1;

// Writes the text form of `value` into `text`, which must have room for NumberTextSize<T>
// characters (2 x sizeof(T) + 1 is always enough). Returns 0, or KX_E_BAD_ARGUMENT for a null
// `text`.
template <typename T>
long NumberToString(const T& value, char* text);

// Reads the text form of a T. The value is zeroed first, then filled from the last character
// backwards, two hexadecimal digits (either case) per byte starting with the least significant
// byte; a lone leading digit is the low nibble of its byte. An empty text gives 0.
// Returns 0, KX_E_BAD_ARGUMENT for a null `text`, or KX_E_XML_BAD_NUMBER when a character is not
// a hexadecimal digit (a sign, blank or "0x" prefix; the bytes read before it stay in the value)
// or the text has more than 2 x NumberBytes<T> digits.
// A bool is true when its byte is non-zero: a bool must never hold another bit pattern.
template <typename T>
long NumberFromString(T& value, const char* text);

}  // namespace kxXml
