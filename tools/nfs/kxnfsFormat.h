// How kxnfs shows sizes, times and object records, for people and as JSON. Pure functions.
#pragma once

#include <cstdint>
#include <string>

#include "nfs/DirEntry.h"

namespace kxnfs {

// 1536 -> "1.5 KiB"; bytes below 1024 as "512 B".
std::string HumanBytes(uint64_t bytes);

// "-rw-r--r--" from the type and mode bits (set-id and sticky bits as ls shows them).
std::string ModeString(uint32_t type, uint32_t mode);
// "regular file", "directory", ... ; "type N" for an unknown one.
const char* TypeName(uint32_t type);
// "file", "directory", "symlink", "block", "char", "socket", "fifo" or "unknown": JSON's form.
const char* TypeWord(uint32_t type);

// A _FILETIME value in local time: "2024-05-01 13:45" (minutes) or
// "2024-05-01 13:45:07.1234567 +0200" (full). "-" for 0, which servers send for "unknown".
std::string LocalTime(uint64_t fileTime, bool full);
// The same instant in UTC for JSON: "2024-05-01T11:45:07.1234567Z"; "" for 0.
std::string UtcTime(uint64_t fileTime);

// One line of ls -l (without the line end): mode, links, uid, gid, size, time and name, and
// " -> target" when target is not empty. name and target are escaped for the terminal.
std::string LongLine(const kxNFSUtils::DirEntry& e, const std::string& name,
                     const std::string& target);

// One JSON object (without the line end) describing e under name; target is included
// when not empty.
std::string JsonEntry(const kxNFSUtils::DirEntry& e, const std::string& name,
                      const std::string& target);

// The stat command's block of lines, each ending in a line end.
std::string StatText(const kxNFSUtils::DirEntry& e, const std::string& where,
                     const std::string& target);

// "\"" + JSON-escaped text + "\"".
std::string JsonString(const std::string& text);

}  // namespace kxnfs
