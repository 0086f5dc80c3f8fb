#include "files/kxPath.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "../base/kxLogCapture.h"
#include "base/KBuffer.h"
#include "base/KCString.h"

using namespace kxPath;

namespace {

// The patterns of a double-terminated list.
std::vector<std::string> Patterns(const char* list) {
    std::vector<std::string> result;
    for (const char* p = list; p != nullptr && *p != '\0'; p += strlen(p) + 1) result.push_back(p);
    return result;
}

}  // namespace

TEST(kxPathTest, GetFormatClassifiesEverySyntax) {
    struct Case {
        const char* path;
        eFormat format;
    } cases[] = {
        {nullptr, eInvalid},
        {"", eInvalid},
        {"/usr/lib", eUnix},
        {"/", eUnix},
        {"C:\\dir", eDos},
        {"c:\\", eDos},
        {"\\\\srv\\share\\x", eUnc},
        {"\\\\srv", eUnc},
        {"\\\\?\\UNC\\srv\\s", eLongUnc},
        {"\\\\?\\unc\\srv\\s", eLongUnc},
        {"\\\\?\\D:\\x", eLongDos},
        {"\\\\?\\x", eInvalid},
        {"\\\\?/D:\\x", eInvalid},     // the prefix's own separators must be backslashes
        {"\\\\?\\UNC\\", eInvalid},    // a long UNC prefix without a server
        {"\\\\?\\UNC\\\\srv", eInvalid},
        {"srv:/x", eRemoteUnix},
        {"srv:D:\\x", eRemoteDos},
        {"srv:\\\\?\\D:\\x", eRemoteLongDos},
        {"srv:\\\\?\\UNC\\a\\b", eInvalid},
        {"srv:x", eInvalid},
        {"D:/x", eRemoteUnix},  // a drive with a forward slash reads as host "D" (deliberate)
        {"D:x", eInvalid},
        {":/x", eRemoteUnix},
        {"dir\\f", eInvalid},
        {"dir/f", eInvalid},
        {"\\single", eInvalid},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(GetFormat(c.path), c.format) << (c.path ? c.path : "(null)");
    }
}

TEST(kxPathTest, ValidateFormatNeedsEveryBitAccepted) {
    EXPECT_TRUE(ValidateFormat("/x", eUnix));
    EXPECT_TRUE(ValidateFormat("/x", eUnix | eRemoteUnix));
    EXPECT_FALSE(ValidateFormat("/x", eDos | eUnc));
    EXPECT_FALSE(ValidateFormat("dir", eInvalid));
    EXPECT_FALSE(ValidateFormat("dir", static_cast<eFormat>(0xFFFFFFFF)));
    EXPECT_TRUE(ValidateFormat("h:/x", static_cast<eFormat>(0xFF)));
}

TEST(kxPathTest, LongPathPrefixLength) {
    int length = -1;
    bool isDrive = true;
    EXPECT_TRUE(GetLongPathPrefixLen(nullptr, length, &isDrive));
    EXPECT_EQ(length, 0);
    EXPECT_FALSE(isDrive);
    EXPECT_TRUE(GetLongPathPrefixLen("\\\\?\\UnC\\srv", length, &isDrive));
    EXPECT_EQ(length, 8);
    EXPECT_FALSE(isDrive);
    EXPECT_TRUE(GetLongPathPrefixLen("\\\\?\\z:\\", length, &isDrive));
    EXPECT_EQ(length, 4);
    EXPECT_TRUE(isDrive);
    EXPECT_TRUE(GetLongPathPrefixLen("//x", length, nullptr));
    EXPECT_EQ(length, 0);
    // Starts like a prefix but is not one: malformed, length 0.
    EXPECT_FALSE(GetLongPathPrefixLen("//?/D:\\", length, nullptr));
    EXPECT_EQ(length, 0);
    EXPECT_FALSE(GetLongPathPrefixLen("\\\\?", length, nullptr));
    EXPECT_FALSE(GetLongPathPrefixLen("\\\\?\\UNC\\/srv", length, nullptr));
    EXPECT_FALSE(GetLongPathPrefixLen("\\\\?\\D:/x", length, nullptr));
}

TEST(kxPathTest, SplitUncPiecesAndRefusals) {
    char server[kMaxUncServer + 1];
    char share[kMaxUncShare + 1];
    char rest[kMaxUncRemainder + 1];
    ASSERT_EQ(SplitUnc("\\\\srv\\share\\a\\b", server, share, rest), KX_OK);
    EXPECT_STREQ(server, "srv");
    EXPECT_STREQ(share, "share");
    EXPECT_STREQ(rest, "a\\b");
    ASSERT_EQ(SplitUnc("\\\\?\\UNC\\srv/share/a", server, share, rest), KX_OK);
    EXPECT_STREQ(server, "srv");
    EXPECT_STREQ(share, "share");
    EXPECT_STREQ(rest, "a");
    ASSERT_EQ(SplitUnc("\\\\srv", server, share, rest), KX_OK);
    EXPECT_STREQ(share, "");
    EXPECT_STREQ(rest, "");
    ASSERT_EQ(SplitUnc("\\\\srv\\share\\", nullptr, nullptr, nullptr), KX_OK);

    const char* remainder = "untouched";
    ASSERT_EQ(SplitUnc2("\\\\srv\\share\\tail", nullptr, share, remainder), KX_OK);
    EXPECT_STREQ(remainder, "tail");
    ASSERT_EQ(SplitUnc2("\\\\srv\\share", server, share, remainder), KX_OK);
    EXPECT_EQ(remainder, nullptr);

    for (const char* bad : {"", "\\srv\\s", "\\\\\\srv", "\\\\/srv", "\\\\srv\\\\share",
                            "\\\\srv\\share\\\\x", "\\\\?\\D:\\x", "\\\\?x", "/srv/share",
                            "srv\\share"}) {
        remainder = "untouched";
        EXPECT_EQ(SplitUnc2(bad, server, share, remainder), KX_E_BAD_ARGUMENT) << bad;
        EXPECT_EQ(remainder, nullptr) << bad;
        EXPECT_EQ(SplitUnc(bad, server, share, rest), KX_E_BAD_ARGUMENT) << bad;
    }
    EXPECT_EQ(SplitUnc(nullptr, server, share, rest), KX_E_BAD_ARGUMENT);
}

TEST(kxPathTest, SplitUncLimitsAreInclusive) {
    char server[kMaxUncServer + 1];
    char share[kMaxUncShare + 1];
    char rest[kMaxUncRemainder + 1];
    const std::string longest = "\\\\" + std::string(kMaxUncServer, 's') + "\\" +
                                std::string(kMaxUncShare, 'h') + "\\" +
                                std::string(kMaxUncRemainder, 'r');
    ASSERT_EQ(SplitUnc(longest.c_str(), server, share, rest), KX_OK);
    EXPECT_EQ(strlen(server), kMaxUncServer);
    EXPECT_EQ(strlen(share), kMaxUncShare);
    EXPECT_EQ(strlen(rest), kMaxUncRemainder);

    const std::string bigServer = "\\\\" + std::string(kMaxUncServer + 1, 's') + "\\h";
    const std::string bigShare = "\\\\s\\" + std::string(kMaxUncShare + 1, 'h');
    const std::string bigRest = "\\\\s\\h\\" + std::string(kMaxUncRemainder + 1, 'r');
    EXPECT_EQ(SplitUnc(bigServer.c_str(), server, share, rest), KX_E_BAD_ARGUMENT);
    EXPECT_EQ(SplitUnc(bigShare.c_str(), server, share, rest), KX_E_BAD_ARGUMENT);
    EXPECT_EQ(SplitUnc(bigRest.c_str(), server, share, rest), KX_E_BAD_ARGUMENT);
    // SplitUnc2 hands the remainder back in place, so its length does not matter.
    const char* remainder = nullptr;
    EXPECT_EQ(SplitUnc2(bigRest.c_str(), server, share, remainder), KX_OK);
    EXPECT_EQ(GetUncPathContents(bigRest.c_str()), 0);
}

TEST(kxPathTest, UncPathContentsCountsPieces) {
    EXPECT_EQ(GetUncPathContents("\\\\srv"), 1);
    EXPECT_EQ(GetUncPathContents("\\\\srv\\"), 1);
    EXPECT_EQ(GetUncPathContents("\\\\srv\\share"), 2);
    EXPECT_EQ(GetUncPathContents("\\\\srv\\share\\"), 2);
    EXPECT_EQ(GetUncPathContents("\\\\srv\\share\\a/b"), 3);
    EXPECT_EQ(GetUncPathContents("\\\\?\\UNC\\srv\\share\\a"), 3);
    EXPECT_EQ(GetUncPathContents("\\\\srv\\share\\a\\\\b"), 0);
    EXPECT_EQ(GetUncPathContents("\\\\srv\\share\\a/\\"), 0);
    EXPECT_EQ(GetUncPathContents("\\\\"), 0);
    EXPECT_EQ(GetUncPathContents("C:\\x"), 0);
    EXPECT_EQ(GetUncPathContents(nullptr), 0);
}

TEST(kxPathTest, SplitDfsNeedsServerAndShare) {
    char server[kMaxUncServer + 1];
    char share[kMaxUncShare + 1];
    ASSERT_EQ(SplitDfs("\\\\dom\\root\\link\\f", server, share), KX_OK);
    EXPECT_STREQ(server, "dom");
    EXPECT_STREQ(share, "root");
    ASSERT_EQ(SplitDfs("\\\\?\\UNC\\dom\\root", server, share), KX_OK);
    EXPECT_STREQ(share, "root");
    EXPECT_EQ(SplitDfs("\\\\dom", server, share), KX_E_BAD_ARGUMENT);
    EXPECT_EQ(SplitDfs("\\\\dom\\", server, share), KX_E_BAD_ARGUMENT);
    EXPECT_EQ(SplitDfs("\\\\?\\C:\\x", server, share), KX_E_BAD_ARGUMENT);
}

TEST(kxPathTest, IllegalCharactersAndTheirList) {
    KCString list;
    EXPECT_TRUE(HasIllegalPathChars("a*b", 0, &list));
    EXPECT_STREQ(list, "\\ / : * ? \" < > |");
    EXPECT_FALSE(HasIllegalPathChars("/a/b", 2, &list));
    EXPECT_STREQ(list, "\\ : * ? \" < > |");
    EXPECT_TRUE(HasIllegalPathChars("a|b", 0xFF, &list));
    EXPECT_STREQ(list, "|");
    EXPECT_FALSE(HasIllegalPathChars("a|b", 0x1FF, &list));
    EXPECT_STREQ(list, "");
    EXPECT_TRUE(HasIllegalPathChars("C:\\x", 1, nullptr));
    EXPECT_FALSE(HasIllegalPathChars("C:\\x", 1 | 4, nullptr));
    list = "kept";
    EXPECT_FALSE(HasIllegalPathChars("", 0, &list));
    EXPECT_FALSE(HasIllegalPathChars(nullptr, 0, &list));
    EXPECT_STREQ(list, "kept");
}

TEST(kxPathTest, SlashSearches) {
    const char* p = "a/b\\c/d";
    EXPECT_EQ(GetLastSlash(p), p + 5);
    EXPECT_EQ(GetNextSlash(p, false), p + 3);
    EXPECT_EQ(GetNextSlash(p, true), p + 1);
    EXPECT_EQ(GetNextSlash("a/b", false), nullptr);
    EXPECT_EQ(GetLastSlash("abc"), nullptr);
    EXPECT_EQ(GetLastSlash(static_cast<const char*>(nullptr)), nullptr);
    EXPECT_EQ(GetNextSlash(static_cast<const char*>(nullptr), true), nullptr);
    EXPECT_TRUE(IsSlash('/') && IsSlash('\\') && !IsSlash(':'));
}

TEST(kxPathTest, FirstNodeOfEachSyntax) {
    struct Case {
        const char* path;
        const char* node;
    } cases[] = {
        {"/usr/lib", "/"},         {"C:\\dir\\f", "C:\\"},   {"\\\\srv\\share", "srv"},
        {"\\\\?\\UNC\\srv\\s", "srv"}, {"\\\\?\\D:\\x", "D:\\"}, {"host:/x", "host"},
        {"host:D:\\x", "host"},    {"D:/x", "D"},            {"dir\\f", "dir"},
        {"", ""},
    };
    for (const Case& c : cases) {
        char out[64];
        ASSERT_EQ(GetFirstNode(c.path, out, sizeof out), KX_OK) << c.path;
        EXPECT_STREQ(out, c.node) << c.path;
        std::string s = "previous";
        ASSERT_EQ(GetFirstNode(c.path, s), KX_OK);
        EXPECT_EQ(s, c.node);
    }
    // Exactly the node and its terminator fit; one byte less does not, and nothing is written.
    char out[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(GetFirstNode("C:\\dir", out, 4), KX_OK);
    EXPECT_STREQ(out, "C:\\");
    memset(out, 'x', sizeof out);
    EXPECT_EQ(GetFirstNode("C:\\dir", out, 3), KX_E_PATH_BUFFER_TOO_SMALL);
    EXPECT_EQ(out[0], 'x');
    EXPECT_EQ(GetFirstNode("/x", out, 1), KX_E_PATH_BUFFER_TOO_SMALL);
    EXPECT_EQ(GetFirstNode("", out, 0), KX_E_PATH_BUFFER_TOO_SMALL);
    EXPECT_EQ(GetFirstNode(nullptr, out, 4), KX_E_BAD_ARGUMENT);
    EXPECT_EQ(GetFirstNode("/x", nullptr, 4), KX_E_BAD_ARGUMENT);
    std::string s;
    EXPECT_EQ(GetFirstNode(nullptr, s), KX_E_BAD_ARGUMENT);
}

TEST(kxPathTest, LastNodeIgnoresOneTrailingSeparatorAndNeverTheFirstCharacter) {
    struct Case {
        const char* path;
        const char* node;
    } cases[] = {
        {"/", "/"},        {"/a/b", "b"},  {"/a/b/", "b"}, {"/a/b//", ""},
        {"C:\\d\\f", "f"}, {"/abc", "abc"}, {"abc", "bc"},  // first character dropped (kept)
        {"a", ""},         {"\\", ""},      {"", ""},       {"\\\\srv\\share\\", "share"},
    };
    for (const Case& c : cases) {
        char out[64];
        ASSERT_EQ(GetLastNode(c.path, out, sizeof out), KX_OK) << c.path;
        EXPECT_STREQ(out, c.node) << c.path;
        std::string s;
        ASSERT_EQ(GetLastNode(c.path, s), KX_OK);
        EXPECT_EQ(s, c.node);
    }
    char out[4];
    EXPECT_EQ(GetLastNode("/a/bcd", out, 4), KX_OK);
    EXPECT_EQ(GetLastNode("/a/bcde", out, 4), KX_E_PATH_BUFFER_TOO_SMALL);
    EXPECT_EQ(GetLastNode("/", out, 1), KX_E_PATH_BUFFER_TOO_SMALL);
    EXPECT_EQ(GetLastNode(nullptr, out, 4), KX_E_BAD_ARGUMENT);
}

TEST(kxPathTest, PathMatchTypes) {
    EXPECT_TRUE(PathMatch("/a/b", "/a", eChild, true));
    EXPECT_TRUE(PathMatch("/a\\b", "/a", eChild, true));
    EXPECT_FALSE(PathMatch("/ab", "/a", eChild, true));
    EXPECT_FALSE(PathMatch("/a", "/a", eChild, true));
    EXPECT_FALSE(PathMatch("/x", "/", eChild, true));  // no separator after the parent
    EXPECT_TRUE(PathMatch("/a", "/a/b", eParent, true));
    EXPECT_FALSE(PathMatch("/a/b", "/a", eParent, true));
    EXPECT_TRUE(PathMatch("/a", "/a", eExactOrChild, true));
    EXPECT_TRUE(PathMatch("/a/b", "/a", eExactOrChild, true));
    EXPECT_TRUE(PathMatch("/a", "/a", eExactOrParent, true));
    EXPECT_TRUE(PathMatch("/a", "/a/b", eExactOrParent, true));
    EXPECT_FALSE(PathMatch("/a/b", "/a", eExactOrParent, true));
    EXPECT_FALSE(PathMatch("/A/b", "/a", eChild, true));
    EXPECT_TRUE(PathMatch("/A/b", "/a", eChild, false));
    EXPECT_TRUE(PathMatch("C:\\X", "c:\\x", eExact, false));
    EXPECT_TRUE(PathMatch(nullptr, "", eExact, true));
    EXPECT_FALSE(PathMatch(nullptr, "/a", eExactOrChild, true));
    EXPECT_FALSE(PathMatch("/a", "", eExactOrParent, true));
}

TEST(kxPathTest, PathMatchLogsUnknownType) {
    kxtest::LogCapture log;
    EXPECT_FALSE(PathMatch("/a", "/a", static_cast<ePathMatchType>(5), true));
    ASSERT_EQ(log.Records().size(), 1u);
    EXPECT_EQ(log.Records()[0].code, KX_E_BAD_ARGUMENT);
    EXPECT_EQ(log.Records()[0].sev, static_cast<kxLogSev>(4));
    EXPECT_EQ(log.Records()[0].text, "kxPath::PathMatch: unknown match type 5");
}

TEST(kxPathTest, AppendChoosesAndAddsOneSeparator) {
    char buf[64];
    strcpy(buf, "/usr");
    EXPECT_TRUE(Append(buf, "lib", 0));
    EXPECT_STREQ(buf, "/usr/lib");
    strcpy(buf, "C:\\dir");
    EXPECT_TRUE(Append(buf, "/f", 0));
    EXPECT_STREQ(buf, "C:\\dir\\f");
    strcpy(buf, "host:/x/");
    EXPECT_TRUE(Append(buf, "\\\\y", 0));  // only one leading separator of `more` is dropped
    EXPECT_STREQ(buf, "host:/x/\\y");
    strcpy(buf, "/x\\");
    EXPECT_TRUE(Append(buf, nullptr, '/'));
    EXPECT_STREQ(buf, "/x\\");
    strcpy(buf, "rel");
    EXPECT_TRUE(Append(buf, "f", '/'));
    EXPECT_STREQ(buf, "rel/f");
    strcpy(buf, "");
    EXPECT_FALSE(Append(buf, "f", 0));
    EXPECT_STREQ(buf, "");
    EXPECT_TRUE(Append(buf, "f", '\\'));
    EXPECT_STREQ(buf, "\\f");
    strcpy(buf, "rel");
    EXPECT_FALSE(Append(buf, "f", 0));
    EXPECT_STREQ(buf, "rel");
    EXPECT_FALSE(Append(static_cast<char*>(nullptr), "f", '/'));

    std::string s = "\\\\srv\\share";
    EXPECT_TRUE(Append(s, "dir", 0));
    EXPECT_EQ(s, "\\\\srv\\share\\dir");
    s = "";
    EXPECT_FALSE(Append(s, "f", 0));
    EXPECT_EQ(s, "");
}

TEST(kxPathTest, StripIsAsymmetricOnPurpose) {
    char buf[32];
    strcpy(buf, "   ");
    StripLeading(buf, true, false);
    EXPECT_STREQ(buf, "   ");
    StripTrailing(buf, true, false);
    EXPECT_STREQ(buf, "");

    strcpy(buf, " \t/\\x/ ");
    StripLeading(buf, true, false);
    EXPECT_STREQ(buf, "/\\x/ ");
    StripLeading(buf, false, true);
    EXPECT_STREQ(buf, "x/ ");
    StripTrailing(buf, false, true);
    EXPECT_STREQ(buf, "x/ ");
    StripTrailing(buf, true, true);
    EXPECT_STREQ(buf, "x");

    std::string s = " //a// ";
    StripLeading(s, true, true);
    EXPECT_EQ(s, "a// ");
    StripTrailing(s, true, true);
    EXPECT_EQ(s, "a");
    s = "//";
    StripLeading(s, false, true);
    EXPECT_EQ(s, "//");
    StripTrailing(s, false, true);
    EXPECT_EQ(s, "");
    StripLeading(static_cast<char*>(nullptr), true, true);
    StripTrailing(static_cast<char*>(nullptr), true, true);
}

TEST(kxPathTest, TightenPathDropsBlanksAndKeepsRoot) {
    struct Case {
        const char* in;
        const char* out;
    } good[] = {
        {"  /a /b  ", "/a/b"},
        {"C:\\dir \\ f .txt ", "C:\\dir\\ f .txt"},
        {"\\\\srv \\share\\x", "\\\\srv\\share\\x"},
        {"\\\\?\\UNC\\srv \\s", "\\\\?\\UNC\\srv\\s"},
        {"\\\\?\\D:\\x ", "\\\\?\\D:\\x"},
        {"/a/", "/a/"},
        {"/a/   ", "/a/"},
        {"/", "/"},
        {"", ""},
        {"rel /x", "rel/x"},
    };
    for (const Case& c : good) {
        char buf[64];
        strcpy(buf, c.in);
        EXPECT_TRUE(TightenPath(buf)) << c.in;
        EXPECT_STREQ(buf, c.out) << c.in;
        std::string s = c.in;
        EXPECT_TRUE(TightenPath(s));
        EXPECT_EQ(s, c.out);
    }
    for (const char* in : {"/a//b", "/a/ /b", "\\\\\\srv", "a\\\\b", "//x/y"}) {
        char buf[64];
        strcpy(buf, in);
        EXPECT_FALSE(TightenPath(buf)) << in;
        EXPECT_STREQ(buf, in) << "left untouched";
    }
    EXPECT_FALSE(TightenPath(static_cast<char*>(nullptr)));
}

TEST(kxPathTest, NormalizeByFormat) {
    struct Case {
        const char* in;
        const char* out;
    } cases[] = {
        {"/Usr\\Lib", "/Usr/Lib"},
        {"HOST:/Dir\\F", "host:/Dir/F"},
        {"C:\\Dir/F", "c:\\dir\\f"},
        {"\\\\SRV/Share", "\\\\srv\\share"},
        {"Rel/Dir", "rel\\dir"},
        {"D:/X", "d:/X"},  // remote Unix: only the "host" is lower-cased
        {"", ""},
    };
    for (const Case& c : cases) {
        std::string s = c.in;
        Normalize(s);
        EXPECT_EQ(s, c.out) << c.in;
    }
}

TEST(kxPathTest, PathSpecListBuildsDoubleTerminatedPatterns) {
    KBuffer storage;
    const char* out = "stale";
    ASSERT_EQ(SetPathSpecListString("\"*.log\" \"tmp/\"", out, storage), KX_OK);
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(Patterns(out), (std::vector<std::string>{"*.log", "*/tmp/*"}));

    ASSERT_EQ(SetPathSpecListString("\"core\"", out, storage), KX_OK);
    EXPECT_EQ(Patterns(out), (std::vector<std::string>{"*/core", "*\\core"}));

    ASSERT_EQ(SetPathSpecListString("\"/abs/x\" \"C:\\d\\\" \"h:/y\" \"a\\b\" \"a/b\\c\" \"\"",
                                    out, storage),
              KX_OK);
    EXPECT_EQ(Patterns(out),
              (std::vector<std::string>{"/abs/x", "C:\\d\\*", "h:/y", "*\\a\\b", "*/a/b\\c",
                                        "*\\a/b\\c"}));
    // An unquoted list is one item.
    ASSERT_EQ(SetPathSpecListString("a b", out, storage), KX_OK);
    EXPECT_EQ(Patterns(out), (std::vector<std::string>{"*/a b", "*\\a b"}));

    // Many short items outgrow the initial reservation; the terminators must all be there.
    std::string many;
    std::vector<std::string> expected;
    for (int i = 0; i < 200; ++i) {
        const std::string item(1, static_cast<char>('a' + i % 26));
        many += "\"" + item + "\" ";
        expected.push_back("*/" + item);
        expected.push_back("*\\" + item);
    }
    ASSERT_EQ(SetPathSpecListString(many.c_str(), out, storage), KX_OK);
    EXPECT_EQ(Patterns(out), expected);
    const size_t bytes = storage.GetBytesUsed();
    ASSERT_GE(storage.GetSize(), bytes);
    EXPECT_EQ(out[bytes - 1], '\0');
    EXPECT_EQ(out[bytes - 2], '\0');

    ASSERT_EQ(SetPathSpecListString("", out, storage), KX_OK);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(storage.GetSize(), 0u);
    out = "stale";
    ASSERT_EQ(SetPathSpecListString(nullptr, out, storage), KX_OK);
    EXPECT_EQ(out, nullptr);
}
