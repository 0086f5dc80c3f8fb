// The record of calls a fake peer received, written by the peer and read by tests to check
// what went on the wire: one file, each message appended as received (its length in host byte
// order, then its bytes), read back as calls.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "kxFakePeer.h"

namespace kxfake {

// Appends one message to the record at path (written in one piece, so a reader never sees
// half).
inline bool AppendRecord(const std::string& path, const char* message, uint32_t length) {
    std::vector<char> out(reinterpret_cast<const char*>(&length),
                          reinterpret_cast<const char*>(&length) + sizeof length);
    out.insert(out.end(), message, message + length);
    FILE* f = fopen(path.c_str(), "ab");
    if (f == nullptr) return false;
    const bool ok = fwrite(out.data(), 1, out.size(), f) == out.size();
    return fclose(f) == 0 && ok;
}

// Every call recorded at path, in arrival order; empty when there is no record.
inline std::vector<Call> ReadRecord(const std::string& path) {
    std::vector<Call> calls;
    FILE* f = fopen(path.c_str(), "rb");
    if (f == nullptr) return calls;
    uint32_t length = 0;
    while (fread(&length, sizeof length, 1, f) == 1) {
        std::vector<char> message(length);
        Call call;
        if (fread(message.data(), 1, length, f) != length ||
            !Parse(message.data(), message.size(), call))
            break;
        calls.push_back(std::move(call));
    }
    fclose(f);
    return calls;
}

}  // namespace kxfake
