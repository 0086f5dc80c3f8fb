// Arbitrary byte strings through every path function. Run under the sanitizer build this catches
// reads past the terminator and writes past the sizes given; in every build the guard bytes
// behind each output buffer and the properties below are checked.

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "../base/kxLogCapture.h"
#include "base/KBuffer.h"
#include "base/KCString.h"
#include "files/kxPath.h"

using namespace kxPath;

namespace {

constexpr unsigned char kGuard = 0xA5;
constexpr size_t kGuardBytes = 16;

// An output buffer of exactly `size` usable bytes followed by guard bytes. The whole block is
// its own heap allocation so that the address sanitizer also sees overruns past the guards.
class GuardedBuffer {
public:
    explicit GuardedBuffer(size_t size) : size_(size), block_(size + kGuardBytes, kGuard) {}
    char* data() { return block_.data(); }
    size_t size() const { return size_; }
    bool GuardsIntact() const {
        for (size_t i = size_; i < block_.size(); ++i)
            if (static_cast<unsigned char>(block_[i]) != kGuard) return false;
        return true;
    }

private:
    size_t size_;
    std::vector<char> block_;
};

// Random strings biased towards the characters the parsers look at, seeded with fragments of
// every syntax so that the deeper branches are reached.
class PathGenerator {
public:
    explicit PathGenerator(uint32_t seed) : rng_(seed) {}

    std::string Next() {
        static const char* const fragments[] = {
            "\\\\", "\\\\?\\", "\\\\?\\UNC\\", "\\\\?\\unc\\", "C:\\", "d:", ":/", "host:",
            "//", "/", "\\", " ", "*", "\"", "..", "?", "UNC", "a", "srv", "\\\\?\\D:\\"};
        static const char alphabet[] = "\\/:?* \"<>|.aAzZcCuUnN0\t";
        std::string s;
        const int pieces = Pick(0, 12);
        for (int i = 0; i < pieces; ++i) {
            switch (Pick(0, 3)) {
                case 0: s += fragments[Pick(0, sizeof fragments / sizeof *fragments - 1)]; break;
                case 1: s += alphabet[Pick(0, sizeof alphabet - 2)]; break;
                case 2: s += static_cast<char>(Pick(1, 255)); break;
                default: s.append(static_cast<size_t>(Pick(1, 300)), static_cast<char>(Pick('a', 'c')));
            }
        }
        return s;
    }
    int Pick(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng_); }

private:
    std::mt19937 rng_;
};

// The input as a heap block of exactly its length plus terminator.
std::vector<char> Exact(const std::string& s) { return std::vector<char>(s.c_str(), s.c_str() + s.size() + 1); }

void CheckNodeFunction(long (*fn)(const char*, char*, unsigned long), const char* p,
                       PathGenerator& gen) {
    // Find the node with ample room, then ask again with exactly enough and one byte less.
    GuardedBuffer big(strlen(p) + 4);
    const long status = fn(p, big.data(), static_cast<unsigned long>(big.size()));
    ASSERT_EQ(status, KX_OK) << p;
    ASSERT_TRUE(big.GuardsIntact());
    const size_t need = strlen(big.data()) + 1;
    ASSERT_LE(need, strlen(p) + 1);

    GuardedBuffer exact(need);
    ASSERT_EQ(fn(p, exact.data(), static_cast<unsigned long>(need)), KX_OK);
    EXPECT_STREQ(exact.data(), big.data());
    EXPECT_TRUE(exact.GuardsIntact());

    GuardedBuffer small(need - 1);
    EXPECT_EQ(fn(p, small.data(), static_cast<unsigned long>(need - 1)), KX_E_PATH_BUFFER_TOO_SMALL);
    EXPECT_TRUE(small.GuardsIntact());

    const size_t any = static_cast<size_t>(gen.Pick(0, 8));
    GuardedBuffer random(any);
    fn(p, random.data(), static_cast<unsigned long>(any));
    EXPECT_TRUE(random.GuardsIntact());
}

void CheckSplitters(const char* p) {
    GuardedBuffer server(kMaxUncServer + 1), share(kMaxUncShare + 1), rest(kMaxUncRemainder + 1);
    const long s1 = SplitUnc(p, server.data(), share.data(), rest.data());
    EXPECT_TRUE(server.GuardsIntact() && share.GuardsIntact() && rest.GuardsIntact()) << p;

    GuardedBuffer server2(kMaxUncServer + 1), share2(kMaxUncShare + 1);
    const char* remainder = nullptr;
    const long s2 = SplitUnc2(p, server2.data(), share2.data(), remainder);
    EXPECT_TRUE(server2.GuardsIntact() && share2.GuardsIntact()) << p;
    if (s2 == KX_OK) {
        if (s1 == KX_OK) {
            EXPECT_STREQ(server.data(), server2.data());
            EXPECT_STREQ(share.data(), share2.data());
            EXPECT_STREQ(rest.data(), remainder != nullptr ? remainder : "");
        } else {
            // SplitUnc refuses only what SplitUnc2 accepts with a remainder too long to copy.
            ASSERT_NE(remainder, nullptr) << p;
            EXPECT_GT(strlen(remainder), kMaxUncRemainder);
        }
        EXPECT_LE(strlen(server2.data()), kMaxUncServer);
        EXPECT_LE(strlen(share2.data()), kMaxUncShare);
        if (remainder != nullptr) {
            EXPECT_GT(remainder, p);
            EXPECT_LE(remainder, p + strlen(p));
        }
    } else {
        EXPECT_EQ(s1, s2);
        EXPECT_EQ(remainder, nullptr);
    }

    GuardedBuffer dfsServer(kMaxUncServer + 1), dfsShare(kMaxUncShare + 1);
    const long s3 = SplitDfs(p, dfsServer.data(), dfsShare.data());
    EXPECT_TRUE(dfsServer.GuardsIntact() && dfsShare.GuardsIntact());
    if (s3 == KX_OK) { EXPECT_EQ(s2, KX_OK); }

    const int contents = GetUncPathContents(p);
    EXPECT_GE(contents, 0);
    EXPECT_LE(contents, 3);
    if (contents > 0) { EXPECT_EQ(s1, KX_OK); }
}

void CheckInPlace(const std::string& s, PathGenerator& gen) {
    {
        // Append: the documented room and not a byte more.
        const std::string more = gen.Next();
        GuardedBuffer buf(s.size() + 1 + more.size() + 1);
        memcpy(buf.data(), s.c_str(), s.size() + 1);
        const char sep = "\0/\\"[gen.Pick(0, 2)];
        std::vector<char> moreCopy = Exact(more);
        if (Append(buf.data(), moreCopy.data(), sep)) {
            EXPECT_EQ(strncmp(buf.data(), s.c_str(), strlen(s.c_str())), 0);
        } else {
            EXPECT_STREQ(buf.data(), s.c_str());
        }
        EXPECT_TRUE(buf.GuardsIntact()) << s;
        std::string str = s;
        Append(str, more.c_str(), sep);
        EXPECT_STREQ(str.c_str(), buf.data());
    }
    for (int mode = 0; mode < 4; ++mode) {
        const bool blanks = mode & 1, slashes = mode & 2;
        auto stripped = [&](char c) {
            return (blanks && isspace(static_cast<unsigned char>(c))) || (slashes && IsSlash(c));
        };
        std::vector<char> lead = Exact(s), trail = Exact(s);
        StripLeading(lead.data(), blanks, slashes);
        StripTrailing(trail.data(), blanks, slashes);
        const size_t n = strlen(trail.data());
        EXPECT_TRUE(n == 0 || !stripped(trail.data()[n - 1]));
        EXPECT_TRUE(lead.data()[0] == '\0' || !stripped(lead.data()[0]) ||
                    strcmp(lead.data(), s.c_str()) == 0);
    }
    {
        std::vector<char> once = Exact(s);
        if (TightenPath(once.data())) {
            EXPECT_LE(strlen(once.data()), strlen(s.c_str()));
            std::vector<char> twice = once;
            EXPECT_TRUE(TightenPath(twice.data())) << once.data();
            EXPECT_STREQ(twice.data(), once.data());
        } else {
            EXPECT_STREQ(once.data(), s.c_str());
        }
    }
    {
        std::string once = s;
        Normalize(once);
        EXPECT_EQ(once.size(), s.size());
        std::string twice = once;
        Normalize(twice);
        EXPECT_EQ(twice, once);
    }
}

void CheckQueries(const char* p, const char* q, PathGenerator& gen) {
    const eFormat f = GetFormat(p);
    EXPECT_TRUE(f == eInvalid || (f & (f - 1)) == 0) << "one bit at most";
    EXPECT_LE(static_cast<uint32_t>(f), static_cast<uint32_t>(eRemoteUnix));
    EXPECT_EQ(ValidateFormat(p, static_cast<eFormat>(0xFF)), f != eInvalid);
    int length = -1;
    bool isDrive = false;
    if (GetLongPathPrefixLen(p, length, &isDrive)) {
        EXPECT_TRUE(length == 0 || length == 4 || length == 8);
        EXPECT_EQ(isDrive, length == 4);
    } else {
        EXPECT_EQ(length, 0);
    }
    KCString list;
    HasIllegalPathChars(p, static_cast<unsigned long>(gen.Pick(0, 0x3FF)), &list);
    const char* last = GetLastSlash(p);
    if (last != nullptr) { EXPECT_TRUE(IsSlash(*last) && strpbrk(last + 1, "\\/") == nullptr); }
    const char* next = GetNextSlash(p, true);
    EXPECT_EQ(next == nullptr, last == nullptr);

    const bool exact = PathMatch(p, q, eExact, true);
    const bool child = PathMatch(p, q, eChild, true);
    EXPECT_EQ(PathMatch(p, q, eExactOrChild, true), exact || child);
    EXPECT_EQ(PathMatch(q, p, eParent, true), child);
    if (p[0] != '\0' || q[0] != '\0') {
        EXPECT_FALSE(exact && child);  // two empty paths match every way
    }
    if (child) { EXPECT_TRUE(PathMatch(p, q, eChild, false)); }
}

}  // namespace

TEST(kxPathFuzzTest, ArbitraryBytesNeverCrashOrOverrun) {
    kxtest::LogCapture log;  // keeps the unknown-match-type messages out of any real log
    PathGenerator gen(20240611);
    // How often each syntax and each splitter outcome came up: a generator that never reaches
    // the deeper branches would make this test pass for nothing.
    std::vector<int> formats(9, 0);
    int uncSplits = 0, tightened = 0;
    for (int i = 0; i < 20000; ++i) {
        const std::string s = gen.Next();
        const std::string t = gen.Next();
        const std::vector<char> p = Exact(s), q = Exact(t);
        const uint32_t f = GetFormat(p.data());
        ++formats[f == 0 ? 0 : static_cast<size_t>(__builtin_ctz(f)) + 1];
        char server[kMaxUncServer + 1], share[kMaxUncShare + 1], rest[kMaxUncRemainder + 1];
        uncSplits += SplitUnc(p.data(), server, share, rest) == KX_OK;
        std::vector<char> copy = p;
        tightened += TightenPath(copy.data());
        CheckQueries(p.data(), q.data(), gen);
        PathMatch(p.data(), q.data(), static_cast<ePathMatchType>(gen.Pick(0, 7)), gen.Pick(0, 1));
        CheckNodeFunction(&GetFirstNode, p.data(), gen);
        CheckNodeFunction(&GetLastNode, p.data(), gen);
        CheckSplitters(p.data());
        CheckInPlace(s, gen);

        KBuffer storage;
        const char* out = nullptr;
        ASSERT_EQ(SetPathSpecListString(p.data(), out, storage), KX_OK);
        if (out != nullptr) {
            // Walk the list within the bytes the buffer says it holds.
            const size_t used = storage.GetBytesUsed();
            ASSERT_GE(used, 1u);
            ASSERT_LE(used, storage.GetSize());
            EXPECT_EQ(out[used - 1], '\0');
            size_t at = 0;
            while (out[at] != '\0') {
                at += strlen(out + at) + 1;
                ASSERT_LT(at, used);
            }
            EXPECT_EQ(at + 1, used);
        }
        if (HasFatalFailure() || HasFailure()) {
            ADD_FAILURE() << "input #" << i << ": [" << s << "] [" << t << "]";
            return;
        }
    }
    for (size_t f = 0; f < formats.size(); ++f) EXPECT_GT(formats[f], 20) << "format slot " << f;
    EXPECT_GT(uncSplits, 200);
    EXPECT_GT(tightened, 2000);
}
