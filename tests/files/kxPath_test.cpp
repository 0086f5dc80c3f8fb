#include "files/kxPath.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "kxLogCapture.h"
#include "base/KBuffer.h"
#include "base/KCString.h"

using namespace kxPath;

TEST(kxPathTest, GetFormatClassifiesEverySyntax) {
    const std::pair<const char*, eFormat> cases[] = {
        {nullptr, eInvalid}, {"", eInvalid}, {"/usr/lib", eUnix}, {"C:\\dir", eDos},
        {"\\\\srv\\share\\x", eUnc}, {"\\\\?\\unc\\srv\\s", eLongUnc}, {"\\\\?\\D:\\x", eLongDos},
        {"\\\\?\\x", eInvalid}, {"\\\\?/D:\\x", eInvalid}, {"\\\\?\\UNC\\", eInvalid},
        {"srv:/x", eRemoteUnix}, {"srv:D:\\x", eRemoteDos}, {"srv:\\\\?\\D:\\x", eRemoteLongDos},
        {"srv:x", eInvalid}, {"D:x", eInvalid}, {"dir\\f", eInvalid},
        // A drive is one letter: "ab:" is a host followed by a path of no known syntax.
        {"ab:\\x", eInvalid}, {"srv:ab:\\x", eInvalid}, {"1:\\x", eInvalid},
        {"D:/x", eRemoteUnix},  // host "D": remote names are recognised by the colon (deliberate)
    };
    for (const auto& c : cases) EXPECT_EQ(GetFormat(c.first), c.second) << (c.first ? c.first : "null");
    EXPECT_TRUE(ValidateFormat("/x", eUnix | eRemoteUnix));
    EXPECT_FALSE(ValidateFormat("/x", eDos | eUnc));
    EXPECT_FALSE(ValidateFormat("dir", static_cast<eFormat>(0xFFFFFFFF)));

    int length = -1;
    bool isDrive = false;
    EXPECT_TRUE(GetLongPathPrefixLen("\\\\?\\UnC\\srv", length, &isDrive));
    EXPECT_EQ(length, 8);
    EXPECT_TRUE(GetLongPathPrefixLen("\\\\?\\z:\\", length, &isDrive));
    EXPECT_TRUE(length == 4 && isDrive);
    EXPECT_FALSE(GetLongPathPrefixLen("//?/D:\\", length, &isDrive));
    EXPECT_TRUE(length == 0 && !isDrive);
}

TEST(kxPathTest, SplitUncPiecesRefusalsAndLimits) {
    char server[kMaxUncServer + 1], share[kMaxUncShare + 1], rest[kMaxUncRemainder + 1];
    ASSERT_EQ(SplitUnc("\\\\?\\UNC\\srv/share\\a\\b", server, share, rest), KX_OK);
    EXPECT_STREQ(server, "srv");
    EXPECT_STREQ(share, "share");
    EXPECT_STREQ(rest, "a\\b");
    const char* remainder = "untouched";
    ASSERT_EQ(SplitUnc2("\\\\srv", nullptr, share, remainder), KX_OK);
    EXPECT_STREQ(share, "");
    EXPECT_EQ(remainder, nullptr);

    for (const char* bad : {"", "\\srv\\s", "\\\\\\srv", "\\\\/srv", "\\\\srv\\\\share",
                            "\\\\srv\\share\\\\x", "\\\\?\\D:\\x", "\\\\?x", "/srv/share"}) {
        EXPECT_EQ(SplitUnc2(bad, server, share, remainder), KX_E_BAD_ARGUMENT) << bad;
        EXPECT_EQ(remainder, nullptr);
    }
    // Each limit is inclusive; SplitUnc2 hands the remainder back in place, so it has none.
    const std::string longest = "\\\\" + std::string(kMaxUncServer, 's') + "\\" +
                                std::string(kMaxUncShare, 'h') + "\\" + std::string(kMaxUncRemainder, 'r');
    EXPECT_EQ(SplitUnc(longest.c_str(), server, share, rest), KX_OK);
    EXPECT_EQ(strlen(rest), kMaxUncRemainder);
    for (std::string big : {"\\\\" + std::string(kMaxUncServer + 1, 's'),
                            "\\\\s\\" + std::string(kMaxUncShare + 1, 'h')}) {
        EXPECT_EQ(SplitUnc2(big.c_str(), server, share, remainder), KX_E_BAD_ARGUMENT);
    }
    const std::string bigRest = longest + "r";
    EXPECT_EQ(SplitUnc(bigRest.c_str(), server, share, rest), KX_E_BAD_ARGUMENT);
    EXPECT_EQ(SplitUnc2(bigRest.c_str(), server, share, remainder), KX_OK);

    EXPECT_EQ(GetUncPathContents("\\\\srv\\"), 1);
    EXPECT_EQ(GetUncPathContents("\\\\srv\\share\\"), 2);
    EXPECT_EQ(GetUncPathContents("\\\\srv\\share\\a/b"), 3);
    EXPECT_EQ(GetUncPathContents("\\\\srv\\share\\a/\\b"), 0);
    EXPECT_EQ(GetUncPathContents("C:\\x"), 0);

    // DFS names need the namespace root as well.
    ASSERT_EQ(SplitDfs("\\\\dom\\root\\link", server, share), KX_OK);
    EXPECT_STREQ(share, "root");
    EXPECT_EQ(SplitDfs("\\\\dom\\", server, share), KX_E_BAD_ARGUMENT);
}

TEST(kxPathTest, IllegalCharactersAndTheirList) {
    KCString list;
    EXPECT_TRUE(HasIllegalPathChars("a*b", 0, &list));
    EXPECT_STREQ(list, "\\ / : * ? \" < > |");
    EXPECT_FALSE(HasIllegalPathChars("C:\\x", 1 | 4, &list));
    EXPECT_STREQ(list, "/ * ? \" < > |");
    list = "kept";
    EXPECT_FALSE(HasIllegalPathChars(nullptr, 0, &list));
    EXPECT_STREQ(list, "kept");
}

TEST(kxPathTest, NodesOfEachSyntaxAndTightBuffers) {
    const std::pair<const char*, const char*> first[] = {
        {"/usr/lib", "/"}, {"C:\\dir", "C:\\"}, {"\\\\srv\\share", "srv"},
        {"\\\\?\\D:\\x", "D:\\"}, {"host:D:\\x", "host"}, {"D:/x", "D"}, {"", ""}};
    for (const auto& c : first) {
        std::string s;
        ASSERT_EQ(GetFirstNode(c.first, s), KX_OK);
        EXPECT_EQ(s, c.second) << c.first;
    }
    // The scan for the last node never looks at the first character: "abc" gives "bc" (kept).
    const std::pair<const char*, const char*> last[] = {
        {"/", "/"}, {"/a/b/", "b"}, {"/a/b//", ""}, {"/abc", "abc"}, {"abc", "bc"}, {"\\", ""}};
    for (const auto& c : last) {
        std::string s;
        ASSERT_EQ(GetLastNode(c.first, s), KX_OK);
        EXPECT_EQ(s, c.second) << c.first;
    }
    char out[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(GetFirstNode("C:\\dir", out, 3), KX_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(out[0], 'x');
    EXPECT_EQ(GetFirstNode("C:\\dir", out, 4), KX_OK);
    EXPECT_EQ(GetLastNode("/a/bcde", out, 4), KX_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(GetLastNode("", out, 0), KX_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(GetLastNode(nullptr, out, 4), KX_E_BAD_ARGUMENT);
    EXPECT_EQ(GetFirstNode("/x", nullptr, 4), KX_E_BAD_ARGUMENT);
}

TEST(kxPathTest, PathMatchTypes) {
    EXPECT_TRUE(PathMatch("/a\\b", "/a", eChild, true));
    EXPECT_FALSE(PathMatch("/ab", "/a", eChild, true));
    EXPECT_FALSE(PathMatch("/a", "/a", eChild, true));
    EXPECT_FALSE(PathMatch("/x", "/", eChild, true));  // needs a separator after the parent
    EXPECT_TRUE(PathMatch("/a", "/a/b", eParent, true));
    EXPECT_TRUE(PathMatch("/a", "/a", eExactOrParent, true));
    EXPECT_FALSE(PathMatch("/a/b", "/a", eExactOrParent, true));
    EXPECT_TRUE(PathMatch("/a/b", "/a", eExactOrChild, true));
    EXPECT_FALSE(PathMatch("/A/b", "/a", eChild, true));
    EXPECT_TRUE(PathMatch("/A/b", "/a", eChild, false));
    EXPECT_TRUE(PathMatch(nullptr, "", eChild, true));
    EXPECT_FALSE(PathMatch(nullptr, "/a", eExactOrChild, true));

    kxtest::LogCapture log;
    EXPECT_FALSE(PathMatch("/a", "/a", static_cast<ePathMatchType>(5), true));
    EXPECT_TRUE(log.Has(KX_E_BAD_ARGUMENT, "kxPath::PathMatch: unknown match type 5"));
}

TEST(kxPathTest, AppendStripTightenNormalize) {
    std::string s = "C:\\dir";
    EXPECT_TRUE(Append(s, "/f", 0));
    EXPECT_EQ(s, "C:\\dir\\f");
    s = "host:/x/";
    EXPECT_TRUE(Append(s, "\\\\y", 0));  // one leading separator of `more` goes
    EXPECT_EQ(s, "host:/x/\\y");
    s = "";
    EXPECT_FALSE(Append(s, "f", 0));  // eInvalid: no separator to choose
    EXPECT_TRUE(Append(s, "f", '\\'));
    EXPECT_EQ(s, "\\f");

    // Deliberately asymmetric: leading stripping keeps an all-blank string, trailing empties it.
    s = "   ";
    StripLeading(s, true, false);
    EXPECT_EQ(s, "   ");
    StripTrailing(s, true, false);
    EXPECT_EQ(s, "");
    s = " \t/\\x/ ";
    StripLeading(s, true, true);
    EXPECT_EQ(s, "x/ ");
    StripTrailing(s, false, true);
    EXPECT_EQ(s, "x/ ");

    const std::pair<const char*, const char*> tight[] = {
        {"  /a /b  ", "/a/b"}, {"C:\\dir \\ f .txt ", "C:\\dir\\ f .txt"},
        {"\\\\?\\UNC\\srv \\s", "\\\\?\\UNC\\srv\\s"}, {"/a/   ", "/a/"}, {"", ""}};
    for (const auto& c : tight) {
        s = c.first;
        EXPECT_TRUE(TightenPath(s)) << c.first;
        EXPECT_EQ(s, c.second);
    }
    for (const char* in : {"/a//b", "/a/ /b", "\\\\\\srv", "//x"}) {
        char buf[16];
        strcpy(buf, in);
        EXPECT_FALSE(TightenPath(buf)) << in;
        EXPECT_STREQ(buf, in) << "left untouched";
    }

    const std::pair<const char*, const char*> norm[] = {
        {"/Usr\\Lib", "/Usr/Lib"}, {"HOST:/Dir\\F", "host:/Dir/F"}, {"C:\\Dir/F", "c:\\dir\\f"},
        {"Rel/Dir", "rel\\dir"},
        {"HOST:/Dir/A:B", "host:/Dir/A:B"}};  // the host ends at the first colon
    for (const auto& c : norm) {
        s = c.first;
        Normalize(s);
        EXPECT_EQ(s, c.second) << c.first;
    }
}

TEST(kxPathTest, PathSpecListBuildsDoubleTerminatedPatterns) {
    auto patterns = [](const char* list) {
        std::vector<std::string> result;
        for (const char* p = list; p != nullptr && *p != '\0'; p += strlen(p) + 1) result.push_back(p);
        return result;
    };
    KBuffer storage;
    const char* out = nullptr;
    ASSERT_EQ(SetPathSpecListString("\"*.log\" \"tmp/\"", out, storage), KX_OK);
    EXPECT_EQ(patterns(out), (std::vector<std::string>{"*.log", "*/tmp/*"}));
    ASSERT_EQ(SetPathSpecListString("\"core\"", out, storage), KX_OK);
    EXPECT_EQ(patterns(out), (std::vector<std::string>{"*/core", "*\\core"}));
    ASSERT_EQ(SetPathSpecListString("\"/abs\" \"C:\\d\\\" \"a\\b\" \"\"", out, storage), KX_OK);
    EXPECT_EQ(patterns(out), (std::vector<std::string>{"/abs", "C:\\d\\*", "*\\a\\b"}));

    // Many short items outgrow the first reservation; every terminator must survive growth.
    std::string many;
    for (int i = 0; i < 200; ++i) many += "\"x\" ";
    ASSERT_EQ(SetPathSpecListString(many.c_str(), out, storage), KX_OK);
    EXPECT_EQ(patterns(out).size(), 400u);
    EXPECT_EQ(storage.GetBytesUsed(), 400u * 4 + 1);

    ASSERT_EQ(SetPathSpecListString("", out, storage), KX_OK);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(storage.GetSize(), 0u);
}
