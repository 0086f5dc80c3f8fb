// Status codes of the library.
//
// A status is an unsigned 32-bit value handed around as `long`. On the 64-bit target the
// 32-bit pattern is sign-extended, so a status compares equal to the same constant on both
// targets and can be stored back into a 32-bit field without loss. 0 is success; 0xA....... is
// a non-error condition; 0xE....... is an error, grouped by its second byte (01 logging,
// 02 files/mutexes/compatibility layer, 03 NFS client, FF general).
//
// Each subsystem declares its own codes beside its interface; the general ones live here.
#pragma once

#include <cstdint>

// The `long` form of a 32-bit status pattern.
constexpr long kxStatus(uint32_t pattern) { return static_cast<long>(static_cast<int32_t>(pattern)); }

// The 32-bit pattern of a status, as it is stored in records and printed in hexadecimal.
constexpr uint32_t kxStatusBits(long status) { return static_cast<uint32_t>(status); }

constexpr long KX_OK = 0;
constexpr long KX_S_WAIT_TIMEOUT = kxStatus(0xA0FFFF02);    // a bounded wait ran out
constexpr long KX_E_BAD_ARGUMENT = kxStatus(0x80000003);    // an argument is out of range
constexpr long KX_E_REFUSED = kxStatus(0x80000008);         // the object refuses the operation
constexpr long KX_E_NOT_INITIALISED = kxStatus(0xE0FF0103); // object is not (or no longer) live
constexpr long KX_E_OUT_OF_MEMORY = kxStatus(0xE0FF0104);   // an allocation failed
constexpr long KX_E_UNHANDLED_EXCEPTION = kxStatus(0xE0FF010B);

// True for the 0xE....... error range (not for 0xA....... conditions nor 0x8....... codes).
constexpr bool kxIsError(long status) { return (kxStatusBits(status) & 0xF0000000u) == 0xE0000000u; }
