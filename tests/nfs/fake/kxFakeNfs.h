// What the fake NFS modes (kxFakeNfsModes.cpp) serve, for the tests that check it, and the
// attribute helpers the NFS modes share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "xdr/nfs3_prot.h"

namespace kxfake {

// Byte `offset` of the file READ serves.
inline char FakeFileByte(uint64_t offset) { return static_cast<char>((offset * 131 + 7) % 251); }

// Whether bytes are the file READ serves, from offset on.
template <typename Bytes>
bool IsFakeFile(const Bytes& bytes, uint64_t offset) {
    for (size_t i = 0; i < bytes.size(); ++i)
        if (bytes[i] != FakeFileByte(offset + i)) return false;
    return true;
}

// The cookie of directory entry i: above 2^32, so a cookie cut to 32 bits is noticed.
constexpr uint64_t kFakeCookieBase = 0x100000007ull;
inline uint64_t FakeCookie(uint64_t i) { return kFakeCookieBase + 3 * i; }

// The file handle of directory entry i.
inline std::vector<char> FakeEntryHandle(uint32_t i) {
    return {'E', 'N', 'T', static_cast<char>(i >> 16), static_cast<char>(i >> 8),
            static_cast<char>(i)};
}

// READDIRPLUS replies carry this many entries at most.
constexpr uint32_t kFakeDirBatch = 40;

// Attributes of a plausible object: mode 0755 for a directory, 0644 otherwise.
inline fattr3 FakeAttributes(ftype3 type, uint64_t size, uint64_t fileid) {
    fattr3 a{};
    a.type = type;
    a.mode = type == NF3DIR ? 0755 : 0644;
    a.nlink = 1;
    a.size = a.used = size;
    a.fsid = 77;
    a.fileid = fileid;
    a.atime = a.mtime = a.ctime = {1700000000, 500};
    return a;
}

inline post_op_attr Present(const fattr3& a) {
    post_op_attr p{};
    p.attributes_follow = TRUE;
    p.post_op_attr_u.attributes = a;
    return p;
}

}  // namespace kxfake
