// Pure helpers of the NFS version 3 object operations: an attribute selection as the protocol's
// sattr3, _FILETIME values as NFS times, object names, and the paths Open walks.
//
// No remote calls, no logging, no state: internal to the NFS client.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "nfs/DirEntry.h"
#include "xdr/nfs3_prot.h"

namespace kxNFSUtils {

// A _FILETIME value as an NFS time: value - 116444736000000000 ticks, then whole seconds and
// the rest in nanoseconds, in unsigned 64-bit arithmetic. A time before 1970 wraps (and the
// seconds are cut to the 32 bits the protocol carries); kept, nothing clamps it.
void FileTimeToNFSTime(uint64_t fileTime, nfstime3& out);

// Fills every field of out from entry: a field whose selection bit (NFSBrowse::kSetMode ...)
// is clear is left unset, so the server keeps its value; times go as client times.
void EntryToSattr3(const DirEntry& entry, sattr3& out, uint32_t selection);

// The name of an object: the part of serverPath behind its last '/', or all of it.
std::string ObjectName(const std::string& serverPath);

// dir "/" name, without doubling the '/' when dir already ends in one (the export "/").
std::string JoinPath(const std::string& dir, const std::string& name);

// KX_E_NOT_INITIALISED unless every entry carries DirEntry::kMagic; else KX_OK.
long CheckEntries(std::initializer_list<const DirEntry*> entries);

// name in dir as the directory operations take it. The result points into both arguments and
// is only encoded, never written through.
diropargs3 Where(const DirEntry& dir, const std::string& name);

// Checks one name before it goes on the wire as a single directory entry name:
// KX_OK; KX_E_NFS_NO_NAME when it is empty; KX_E_BAD_ARGUMENT when it holds a '/' or a zero
// byte, or is "..", or is "." unless allowDot (a LOOKUP of "." is harmless, no object can be
// made, removed or renamed under that name).
long CheckName(const std::string& name, bool allowDot);

// The checks of an operation on the object `entry` in `dir`: both entries initialised and the
// object's name (ObjectName of its serverPath, stored in name) one the wire can carry
// (CheckName without "."). The first failure, or KX_OK.
long CheckObjectInDir(const DirEntry& dir, const DirEntry& entry, std::string& name);

// The names of a server path, for the walk of Open: empty names (from "//" or a trailing '/')
// and "." are dropped; ".." refuses the whole path with KX_E_BAD_ARGUMENT, since resolving it
// by text would disagree with the server wherever a name is a symbolic link, and sending it
// would step out of the export. A zero byte in the path also gives KX_E_BAD_ARGUMENT.
// On success `clean` is the path rebuilt from the names: "/" between them and a leading "/"
// when `path` had one (so "/a//b/./c/" becomes "/a/b/c", "/" stays "/").
long SplitServerPath(const std::string& path, std::vector<std::string>& names,
                     std::string& clean);

}  // namespace kxNFSUtils
