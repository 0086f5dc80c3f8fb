// Status codes of the library.
//
// A status is an unsigned 32-bit value handed around as `long`. On the 64-bit target the
// 32-bit pattern is sign-extended, so a status compares equal to the same constant on both
// targets and can be stored back into a 32-bit field without loss. 0 is success; 0xA....... is
// a non-error condition; 0xE....... is an error, grouped by its second byte (01 logging,
// 02 files/mutexes/compatibility layer, 03 NFS client, FF general).
//
// Each subsystem declares its own codes beside its interface; the general ones, and those that
// more than one layer returns, live here. Every value has exactly one name.
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
constexpr long KX_E_BUFFER_TOO_SMALL = kxStatus(0xE0FF0101); // the caller's buffer cannot hold it
// What was looked for is not there: a file, a configured directory (neither KX_LOG_DIR nor
// HOME), a free name (every candidate of a unique name taken).
constexpr long KX_E_NOT_FOUND = kxStatus(0xE0FF0108);
// A name that cannot be used: too long for the record it must fit in, or empty where one is
// needed (KX_LOG_DIR set but empty).
constexpr long KX_E_BAD_NAME = kxStatus(0xE0FF0109);

// Informational records that report no failure (logging starting and stopping, the allocation
// trace, progress of the file utilities).
constexpr long KX_S_INFORMATION = kxStatus(0x60FFFF01);

// File-system codes that the file handles, the log start-up and the file utilities share.
constexpr long KX_E_FILE_FIND = kxStatus(0xE0020107);  // looking a path up (stat) failed
constexpr long KX_E_DIRECTORY = kxStatus(0xE0020109);  // making or removing a directory failed
