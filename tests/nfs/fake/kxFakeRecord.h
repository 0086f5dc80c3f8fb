// The record of calls a fake peer received, written by the peer and read by tests to check
// what went on the wire. One file, calls appended in arrival order; host byte order, since
// writer and reader run on the same machine.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "kxFakePeer.h"

namespace kxfake {

namespace record_detail {

inline void PutWord(std::vector<char>& out, uint32_t v) {
    out.insert(out.end(), reinterpret_cast<const char*>(&v),
               reinterpret_cast<const char*>(&v) + sizeof v);
}

inline void PutBytes(std::vector<char>& out, const std::vector<char>& bytes) {
    PutWord(out, static_cast<uint32_t>(bytes.size()));
    out.insert(out.end(), bytes.begin(), bytes.end());
}

inline bool GetWord(FILE* f, uint32_t& v) { return fread(&v, sizeof v, 1, f) == 1; }

inline bool GetBytes(FILE* f, std::vector<char>& bytes) {
    uint32_t n = 0;
    if (!GetWord(f, n) || n > (1u << 24)) return false;
    bytes.resize(n);
    return n == 0 || fread(bytes.data(), 1, n, f) == n;
}

}  // namespace record_detail

// Appends one call to the record at path (written in one piece, so a reader never sees half).
inline bool AppendRecord(const std::string& path, const Call& call) {
    using namespace record_detail;
    std::vector<char> out;
    for (uint32_t v : {call.xid, call.program, call.version, call.procedure, call.credFlavor})
        PutWord(out, v);
    PutBytes(out, call.cred);
    PutBytes(out, call.args);
    FILE* f = fopen(path.c_str(), "ab");
    if (f == nullptr) return false;
    const bool ok = fwrite(out.data(), 1, out.size(), f) == out.size();
    return fclose(f) == 0 && ok;
}

// Every call recorded at path, in arrival order; empty when there is no record.
inline std::vector<Call> ReadRecord(const std::string& path) {
    using namespace record_detail;
    std::vector<Call> calls;
    FILE* f = fopen(path.c_str(), "rb");
    if (f == nullptr) return calls;
    for (;;) {
        Call c;
        if (!GetWord(f, c.xid) || !GetWord(f, c.program) || !GetWord(f, c.version) ||
            !GetWord(f, c.procedure) || !GetWord(f, c.credFlavor) || !GetBytes(f, c.cred) ||
            !GetBytes(f, c.args))
            break;
        calls.push_back(std::move(c));
    }
    fclose(f);
    return calls;
}

}  // namespace kxfake
