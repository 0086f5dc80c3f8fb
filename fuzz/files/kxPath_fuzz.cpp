// Arbitrary strings through kxPath's classifiers, splitters and rewriters, with the properties
// their contracts promise: outputs within the room given (exact heap blocks and guard bytes),
// the string forms equal to the buffer forms, a node that fits exactly its own length, the
// splitters agreeing with each other, rewrites stable when applied twice, and the relations of
// PathMatch's types.
//
// Input: two control bytes, then the path, then optionally a zero byte and a second path.
//   byte 0: bits 0-1 the separator for Append (0, '/', '\'); bits 2-4 the match type (modulo 5);
//           bit 5 case-sensitive; bit 6 the ninth allowed-character bit
//   byte 1: the first eight allowed-character bits of HasIllegalPathChars
#include <cstring>
#include <string>
#include <vector>

#include "base/KBuffer.h"
#include "base/KCString.h"
#include "files/kxPath.h"
#include "kxFuzzCheck.h"

using namespace kxPath;

namespace {

// `size` usable bytes followed by guard bytes.
struct Guarded {
    explicit Guarded(size_t n) : size(n), block(n + 16, '\xA5') {}
    char* data() { return block.data(); }
    bool Intact() const {
        for (size_t i = size; i < block.size(); ++i)
            if (block[i] != '\xA5') return false;
        return true;
    }
    size_t size;
    std::vector<char> block;
};

std::vector<char> Exact(const std::string& s) {
    return {s.c_str(), s.c_str() + s.size() + 1};
}

void CheckNode(long (*fn)(const char*, char*, unsigned long),
               long (*str)(const char*, std::string&), const char* p) {
    Guarded big(strlen(p) + 1);  // a node is never longer than the path
    KX_FUZZ_CHECK(fn(p, big.data(), big.size) == KX_OK);
    const size_t need = strlen(big.data()) + 1;
    Guarded exact(need), small(need - 1);
    KX_FUZZ_CHECK(fn(p, exact.data(), need) == KX_OK);
    KX_FUZZ_CHECK(fn(p, small.data(), need - 1) == KX_E_BUFFER_TOO_SMALL);
    KX_FUZZ_CHECK(big.Intact() && exact.Intact() && small.Intact());
    std::string s;
    KX_FUZZ_CHECK(str(p, s) == KX_OK && s == big.data());
}

void CheckSplitters(const char* p) {
    Guarded server(kMaxUncServer + 1), share(kMaxUncShare + 1), rest(kMaxUncRemainder + 1);
    Guarded server2(kMaxUncServer + 1), share2(kMaxUncShare + 1);
    const char* remainder = nullptr;
    const long s1 = SplitUnc(p, server.data(), share.data(), rest.data());
    const long s2 = SplitUnc2(p, server2.data(), share2.data(), remainder);
    KX_FUZZ_CHECK(server.Intact() && share.Intact() && rest.Intact() && server2.Intact() &&
                  share2.Intact());
    if (s1 == KX_OK) {
        KX_FUZZ_CHECK(s2 == KX_OK);
        KX_FUZZ_CHECK(strcmp(server.data(), server2.data()) == 0);
        KX_FUZZ_CHECK(strcmp(share.data(), share2.data()) == 0);
        KX_FUZZ_CHECK(strcmp(rest.data(), remainder != nullptr ? remainder : "") == 0);
    } else if (s2 == KX_OK) {  // only a remainder too long to copy makes the two differ
        KX_FUZZ_CHECK(remainder != nullptr && strlen(remainder) > kMaxUncRemainder);
    }
    if (s2 == KX_OK && remainder != nullptr)
        KX_FUZZ_CHECK(remainder >= p && remainder <= p + strlen(p));
    if (GetUncPathContents(p) > 0) KX_FUZZ_CHECK(s1 == KX_OK);
    Guarded dfsServer(kMaxUncServer + 1), dfsShare(kMaxUncShare + 1);
    SplitDfs(p, dfsServer.data(), dfsShare.data());
    KX_FUZZ_CHECK(dfsServer.Intact() && dfsShare.Intact());
}

// The in-place functions: within the room they document, and stable when applied twice.
void CheckRewrites(const std::string& s, const std::string& more, char sep) {
    Guarded buf(s.size() + 1 + more.size() + 1);
    memcpy(buf.data(), s.c_str(), s.size() + 1);
    const std::vector<char> moreCopy = Exact(more);
    std::string appended = s;
    const bool ok = Append(buf.data(), moreCopy.data(), sep);
    KX_FUZZ_CHECK(Append(appended, moreCopy.data(), sep) == ok);
    KX_FUZZ_CHECK(buf.Intact());
    KX_FUZZ_CHECK(strncmp(buf.data(), s.c_str(), s.size()) == 0);
    if (ok) KX_FUZZ_CHECK(appended == buf.data());

    for (int mode = 0; mode < 4; ++mode) {
        std::vector<char> lead = Exact(s), trail = Exact(s);
        StripLeading(lead.data(), mode & 1, mode & 2);
        StripTrailing(trail.data(), mode & 1, mode & 2);
        KX_FUZZ_CHECK(strlen(lead.data()) <= s.size());
        KX_FUZZ_CHECK(strncmp(trail.data(), s.c_str(), strlen(trail.data())) == 0);
        std::string leadString = s, trailString = s;
        StripLeading(leadString, mode & 1, mode & 2);
        StripTrailing(trailString, mode & 1, mode & 2);
        KX_FUZZ_CHECK(leadString == lead.data() && trailString == trail.data());
    }
    std::vector<char> once = Exact(s);
    std::string onceString = s;
    const bool tightened = TightenPath(once.data());
    KX_FUZZ_CHECK(TightenPath(onceString) == tightened && onceString == once.data());
    if (tightened) {
        std::vector<char> twice = once;
        KX_FUZZ_CHECK(TightenPath(twice.data()));
        KX_FUZZ_CHECK(strcmp(twice.data(), once.data()) == 0);
    } else {
        KX_FUZZ_CHECK(strcmp(once.data(), s.c_str()) == 0);
    }
    std::string n1 = s;
    Normalize(n1);
    KX_FUZZ_CHECK(n1.size() == s.size());
    std::string n2 = n1;
    Normalize(n2);
    KX_FUZZ_CHECK(n2 == n1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const uint8_t c0 = data[0], c1 = data[1];
    const char* text = reinterpret_cast<const char*>(data + 2);
    const size_t length = size - 2;
    const size_t zero = std::string(text, length).find('\0');
    const std::string s(text, zero == std::string::npos ? length : zero);
    const std::string t =
        zero == std::string::npos ? std::string() : std::string(text + zero + 1, length - zero - 1);
    const std::vector<char> p = Exact(s), q = Exact(t.c_str());

    const uint32_t f = GetFormat(p.data());
    KX_FUZZ_CHECK(f == 0 || (f <= eRemoteUnix && (f & (f - 1)) == 0));
    KX_FUZZ_CHECK(ValidateFormat(p.data(), static_cast<eFormat>(0xFF)) == (f != 0));
    int prefix = -1;
    bool isDrive = false;
    GetLongPathPrefixLen(p.data(), prefix, &isDrive);
    KX_FUZZ_CHECK(prefix == 0 || prefix == 4 || prefix == 8);
    KX_FUZZ_CHECK(isDrive == (prefix == 4));
    KCString list;
    const unsigned long allowed = c1 | ((c0 & 0x40) ? 0x100ul : 0ul);
    HasIllegalPathChars(p.data(), allowed, &list);
    KX_FUZZ_CHECK((GetNextSlash(p.data(), true) == nullptr) == (GetLastSlash(p.data()) == nullptr));

    const bool caseSensitive = c0 & 0x20;
    const bool child = PathMatch(p.data(), q.data(), eChild, caseSensitive);
    KX_FUZZ_CHECK(PathMatch(q.data(), p.data(), eParent, caseSensitive) == child);
    KX_FUZZ_CHECK(PathMatch(p.data(), q.data(), eExactOrChild, caseSensitive) ==
                  (child || PathMatch(p.data(), q.data(), eExact, caseSensitive)));
    PathMatch(p.data(), q.data(), static_cast<ePathMatchType>(((c0 >> 2) & 7) % 5), caseSensitive);

    CheckNode(&GetFirstNode, &GetFirstNode, p.data());
    CheckNode(&GetLastNode, &GetLastNode, p.data());
    CheckSplitters(p.data());
    CheckRewrites(s, t.c_str(), "\0/\\\0"[c0 & 3]);

    KBuffer storage;
    const char* out = nullptr;
    KX_FUZZ_CHECK(SetPathSpecListString(p.data(), out, storage) == KX_OK);
    if (out != nullptr) {  // the list must end inside the bytes the buffer holds
        const size_t used = storage.GetBytesUsed();
        KX_FUZZ_CHECK(used >= 1 && used <= storage.GetSize());
        size_t at = 0;
        while (out[at] != '\0') {
            at += strlen(out + at) + 1;
            KX_FUZZ_CHECK(at < used);
        }
        KX_FUZZ_CHECK(at + 1 == used);
    }
    return 0;
}
