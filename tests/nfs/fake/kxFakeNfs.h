// What the fake NFS modes (kxFakeNfsModes.cpp) serve, for the tests that check it.
#pragma once

#include <cstdint>
#include <vector>

namespace kxfake {

// Byte `offset` of the file READ serves.
inline char FakeFileByte(uint64_t offset) { return static_cast<char>((offset * 131 + 7) % 251); }

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

}  // namespace kxfake
