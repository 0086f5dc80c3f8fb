// Arbitrary byte strings through every path function. Inputs and outputs are heap blocks of
// exactly the size given, so the sanitizer build catches any read past a terminator or write
// past a buffer; guard bytes catch overruns in the other builds.

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "kxLogCapture.h"
#include "base/KBuffer.h"
#include "base/KCString.h"
#include "files/kxPath.h"

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

std::vector<char> Exact(const std::string& s) { return {s.c_str(), s.c_str() + s.size() + 1}; }

// Random strings made of fragments of every syntax, separators and arbitrary bytes, so that
// the deeper branches of the parsers are reached.
class Generator {
public:
    std::string Next() {
        static const char* const fragments[] = {"\\\\", "\\\\?\\", "\\\\?\\UNC\\", "\\\\?\\D:\\", "C:\\", "d:",
                                                ":/", "host:", "/", "\\", " ", "*", "\"", "a"};
        std::string s;
        for (int i = Pick(0, 12); i > 0; --i) {
            switch (Pick(0, 2)) {
                case 0: s += fragments[Pick(0, sizeof fragments / sizeof *fragments - 1)]; break;
                case 1: s += static_cast<char>(Pick(1, 255)); break;
                default: s.append(static_cast<size_t>(Pick(1, 300)), 'b');
            }
        }
        return s;
    }
    int Pick(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng_); }

private:
    std::mt19937 rng_{20240611};
};

void CheckNode(long (*fn)(const char*, char*, unsigned long), const char* p) {
    Guarded big(strlen(p) + 1);  // a node is never longer than the path
    ASSERT_EQ(fn(p, big.data(), big.size), KX_OK) << p;
    const size_t need = strlen(big.data()) + 1;
    Guarded exact(need), small(need - 1);
    EXPECT_EQ(fn(p, exact.data(), need), KX_OK);
    EXPECT_EQ(fn(p, small.data(), need - 1), KX_E_PATH_BUFFER_TOO_SMALL);
    EXPECT_TRUE(big.Intact() && exact.Intact() && small.Intact()) << p;
}

void CheckSplitters(const char* p) {
    Guarded server(kMaxUncServer + 1), share(kMaxUncShare + 1), rest(kMaxUncRemainder + 1);
    Guarded server2(kMaxUncServer + 1), share2(kMaxUncShare + 1);
    const char* remainder = nullptr;
    const long s1 = SplitUnc(p, server.data(), share.data(), rest.data());
    const long s2 = SplitUnc2(p, server2.data(), share2.data(), remainder);
    EXPECT_TRUE(server.Intact() && share.Intact() && rest.Intact() && server2.Intact() && share2.Intact());
    if (s1 == KX_OK) {
        EXPECT_EQ(s2, KX_OK);
        EXPECT_STREQ(server.data(), server2.data());
        EXPECT_STREQ(rest.data(), remainder != nullptr ? remainder : "");
    } else if (s2 == KX_OK) {  // only a remainder too long to copy makes the two differ
        ASSERT_NE(remainder, nullptr);
        EXPECT_GT(strlen(remainder), kMaxUncRemainder);
    }
    if (GetUncPathContents(p) > 0) {
        EXPECT_EQ(s1, KX_OK);
    }
    Guarded dfsServer(kMaxUncServer + 1), dfsShare(kMaxUncShare + 1);
    SplitDfs(p, dfsServer.data(), dfsShare.data());
    EXPECT_TRUE(dfsServer.Intact() && dfsShare.Intact());
}

// The in-place functions: within the room they document, and stable when applied twice.
void CheckRewrites(const std::string& s, const std::string& more, char sep) {
    Guarded buf(s.size() + 1 + more.size() + 1);
    memcpy(buf.data(), s.c_str(), s.size() + 1);
    const std::vector<char> moreCopy = Exact(more);
    Append(buf.data(), moreCopy.data(), sep);
    EXPECT_TRUE(buf.Intact()) << s;
    EXPECT_EQ(strncmp(buf.data(), s.c_str(), s.size()), 0);

    for (int mode = 0; mode < 4; ++mode) {
        std::vector<char> lead = Exact(s), trail = Exact(s);
        StripLeading(lead.data(), mode & 1, mode & 2);
        StripTrailing(trail.data(), mode & 1, mode & 2);
        EXPECT_LE(strlen(lead.data()), s.size());
        EXPECT_EQ(strncmp(trail.data(), s.c_str(), strlen(trail.data())), 0);
    }
    std::vector<char> once = Exact(s);
    if (TightenPath(once.data())) {
        std::vector<char> twice = once;
        EXPECT_TRUE(TightenPath(twice.data())) << once.data();
        EXPECT_STREQ(twice.data(), once.data());
    } else {
        EXPECT_STREQ(once.data(), s.c_str());
    }
    std::string n1 = s;
    Normalize(n1);
    std::string n2 = n1;
    Normalize(n2);
    EXPECT_EQ(n2, n1);
}

}  // namespace

TEST(kxPathFuzzTest, ArbitraryBytesNeverCrashOrOverrun) {
    kxtest::LogCapture log;  // the unknown-match-type messages stay here
    Generator gen;
    // Counts of what came up: a generator that never reaches a branch would pass for nothing.
    std::vector<int> formats(9, 0);
    int uncSplits = 0;
    for (int i = 0; i < 20000 && !HasFailure(); ++i) {
        const std::string s = gen.Next(), t = gen.Next();
        const std::vector<char> p = Exact(s), q = Exact(t);
        SCOPED_TRACE("input #" + std::to_string(i) + " [" + s + "] [" + t + "]");

        const uint32_t f = GetFormat(p.data());
        ASSERT_TRUE(f == 0 || (f <= eRemoteUnix && (f & (f - 1)) == 0));
        ++formats[f == 0 ? 0 : static_cast<size_t>(__builtin_ctz(f)) + 1];
        int length = 0;
        bool isDrive = false;
        GetLongPathPrefixLen(p.data(), length, &isDrive);
        KCString list;
        HasIllegalPathChars(p.data(), static_cast<unsigned long>(gen.Pick(0, 0x3FF)), &list);
        EXPECT_EQ(GetNextSlash(p.data(), true) == nullptr, GetLastSlash(p.data()) == nullptr);

        const bool child = PathMatch(p.data(), q.data(), eChild, true);
        EXPECT_EQ(PathMatch(q.data(), p.data(), eParent, true), child);
        EXPECT_EQ(PathMatch(p.data(), q.data(), eExactOrChild, true),
                  child || PathMatch(p.data(), q.data(), eExact, true));
        PathMatch(p.data(), q.data(), static_cast<ePathMatchType>(gen.Pick(0, 7)), gen.Pick(0, 1));

        CheckNode(&GetFirstNode, p.data());
        CheckNode(&GetLastNode, p.data());
        CheckSplitters(p.data());
        uncSplits += GetUncPathContents(p.data()) > 0;
        CheckRewrites(s, t, "\0/\\"[gen.Pick(0, 2)]);

        KBuffer storage;
        const char* out = nullptr;
        ASSERT_EQ(SetPathSpecListString(p.data(), out, storage), KX_OK);
        if (out != nullptr) {  // the list must end inside the bytes the buffer holds
            const size_t used = storage.GetBytesUsed();
            ASSERT_TRUE(used >= 1 && used <= storage.GetSize());
            size_t at = 0;
            while (out[at] != '\0') {
                at += strlen(out + at) + 1;
                ASSERT_LT(at, used);
            }
            EXPECT_EQ(at + 1, used);
        }
    }
    for (size_t f = 0; f < formats.size(); ++f) EXPECT_GT(formats[f], 20) << "format slot " << f;
    EXPECT_GT(uncSplits, 200);
}
