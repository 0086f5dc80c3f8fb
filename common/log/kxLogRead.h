// Reading log files back: decoding a record's payload, and reading a whole file's records
// oldest first. For tools and tests; writers never need it.
//
// Convention: functions return a status (base/kxStatus.h); nothing throws but std::bad_alloc.
// Thread safety: plain functions; the file is read through a read-only KLogStream, which takes
// the file's lock for each step, so files being written to can be read.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "log/KLogFile.h"
#include "log/KLogStream.h"

// One record, decoded into native values.
struct KLogEntry {
    KLogRecInfo info;       // stamp, pid, tid, number, flags, type (corrected)
    uint32_t offset = 0;    // where the record lies in the file
    bool isText = false;    // STRA or STRW
    long status = 0;        // text records: the status code, as a library status
    uint32_t severity = 0;  // text records
    std::string text;       // text records; wide texts as UTF-8
    uint32_t oldKB = 0;     // RESZ records
    uint32_t newKB = 0;
};

// Decodes a payload of `size` bytes for the record described by info. `opposite`: the file is
// of the other byte order. A text payload shorter than its 8-byte prefix decodes as empty text.
void kxLogDecodeEntry(const KLogRecInfo& info, const void* payload, size_t size, bool opposite,
                      KLogEntry& out);

// Reads and decodes the record under `it` into `out`, growing `buf` (the caller's scratch buffer,
// reused across calls) as the record needs. False when the record was overwritten meanwhile or
// cannot be read; `out` is then unspecified.
bool kxLogReadEntry(const KLogStream& stream, const KLogStream::iterator& it,
                    std::vector<uint8_t>& buf, KLogEntry& out);

// Appends every record of the log file at `path` to `out`, oldest first, as the walks find them.
// 0; or the read-only stream's open status (KX_E_LOG_NO_STREAM for a file that is not a log
// file). Never changes the file.
long kxLogReadFile(const char* path, std::vector<KLogEntry>& out);

// "STRA", "RESZ", ...: the four letters of a record type, or its value in hexadecimal when it
// is not printable.
std::string kxLogRecTypeName(uint32_t type);
