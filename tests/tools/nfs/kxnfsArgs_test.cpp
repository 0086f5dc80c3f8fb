// The command line of kxnfs, parsed in process.
#include "kxnfsArgs.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

using namespace kxnfs;

namespace {

struct Parsed {
    ParseResult result;
    Arguments args;
    std::string error;
};

Parsed Parse(std::vector<const char*> words) {
    words.insert(words.begin(), "kxnfs");
    Parsed p;
    p.result = ParseArguments(static_cast<int>(words.size()), words.data(), p.args, p.error);
    return p;
}

bool IsUsage(const std::vector<const char*>& words) {
    const Parsed p = Parse(words);
    return p.result == ParseResult::Usage && !p.error.empty();
}

TEST(KxnfsArgsTest, RefusedCommandLinesAreUsageErrorsWithAReason) {
    // Regression: 4294967296 was taken as uid 0. Ids are 32 bits, decimal, nothing else.
    for (const char* bad : {"4294967296", "-1", "+1", " 1", "0x10", ""})
        EXPECT_TRUE(IsUsage({"-U", bad, "ping", "h"})) << "-U '" << bad << "'";
    for (const char* bad :
         {"4294967296", "1,,2", "1,", "a", "0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16"})
        EXPECT_TRUE(IsUsage({"-G", bad, "ping", "h"})) << "-G '" << bad << "'";
    // Remote paths are HOST:/PATH; a new name is one name.
    for (const char* bad : {"h", "h:", "h:relative", ":/x", "/x"})
        EXPECT_TRUE(IsUsage({"stat", bad})) << "'" << bad << "'";
    for (const char* bad : {"", "..", "a/b"})
        EXPECT_TRUE(IsUsage({"mv", "h:/d/old", bad})) << "'" << bad << "'";

    const std::vector<std::vector<const char*>> refused{
        {"ping", "h", "-U"},  // options come before the command
        {"-U"},
        {},
        {"mount", "h"},
        {"-q", "ping", "h"},
        {"-ut", "ping", "h"},
        {"ping", "h:/x"},
        {"ping", "h", "extra"},
        {"ls", "h:/d", "-l"},
        {"stat", "-l", "h:/d"},
        {"put", "h:/f", "local"},
        {"ln", "target", "h:/d/link"},  // hard links are not offered
        {"lock", "-sx", "h:/f", "true"},
        {"lock", "h:/f"},
    };
    for (const auto& words : refused)
        EXPECT_TRUE(IsUsage(words)) << ::testing::PrintToString(words);
    EXPECT_EQ(ParseResult::Help, Parse({"--help", "ping"}).result);
}

TEST(KxnfsArgsTest, OptionsAndOperandsLandInTheirFields) {
    Parsed p = Parse({"-U", "4294967295", "-G", "4294967295,0,7", "ping", "h"});
    ASSERT_EQ(ParseResult::Run, p.result) << p.error;
    EXPECT_TRUE(p.args.haveUid);
    EXPECT_EQ(4294967295u, p.args.uid);
    EXPECT_EQ((std::vector<uint32_t>{4294967295u, 0, 7}), p.args.gids);
    p = Parse({"-U0", "-G5", "ping", "h"});  // values inside the cluster
    EXPECT_EQ(0u, p.args.uid);
    EXPECT_EQ(std::vector<uint32_t>{5}, p.args.gids);
    p = Parse({"-G", "0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15", "ping", "h"});
    EXPECT_EQ(16u, p.args.gids.size()) << "sixteen groups, no more";

    p = Parse({"--", "ping", "h"});
    ASSERT_EQ(ParseResult::Run, p.result) << p.error;
    EXPECT_EQ(kxNFSUtils::eUseTCPThenUDP, p.args.protocol);
    EXPECT_FALSE(p.args.haveUid);
    EXPECT_TRUE(p.args.pipelined);
    EXPECT_EQ(kxNFSUtils::eUseUDP, Parse({"-u", "-j", "exports", "h"}).args.protocol);
    p = Parse({"-tj", "exports", "h"});
    EXPECT_EQ(kxNFSUtils::eUseTCP, p.args.protocol);
    EXPECT_TRUE(p.args.json);
    EXPECT_FALSE(Parse({"-tS", "get", "h:/f", "f"}).args.pipelined);

    p = Parse({"ls", "-la", "h:/d"});
    EXPECT_EQ(Command::Ls, p.args.command);
    EXPECT_TRUE(p.args.longFormat && p.args.all);
    p = Parse({"ls", "-a", "--", "h:/d"});
    EXPECT_TRUE(p.args.all && !p.args.longFormat);
    p = Parse({"put", "-", "h:/f"});
    EXPECT_EQ("-", p.args.local);  // standard input
    EXPECT_EQ("/f", p.args.path);
    EXPECT_EQ("new", Parse({"mv", "h:/d/old", "new"}).args.name);
    p = Parse({"ln", "-s", "../target", "h:/d/link"});
    EXPECT_EQ(Command::Symlink, p.args.command);
    EXPECT_EQ("../target", p.args.name);

    // lock: exclusive unless -s; everything after the path belongs to the command.
    p = Parse({"lock", "h:/f", "cmd", "-s", "--", "x"});
    ASSERT_EQ(ParseResult::Run, p.result) << p.error;
    EXPECT_TRUE(p.args.exclusive);
    EXPECT_EQ((std::vector<std::string>{"cmd", "-s", "--", "x"}), p.args.program);
    EXPECT_FALSE(Parse({"lock", "-s", "h:/f", "true"}).args.exclusive);
}

TEST(KxnfsArgsTest, RemotePathsAreAbsoluteAndNormalised) {
    const std::vector<std::pair<const char*, const char*>> cases{
        {"h://", "/"},
        {"h:/a//b/./c/", "/a/b/c"},
        {"h:/../../x", "/x"},  // never above the root
        {"h:/a:b/.hidden", "/a:b/.hidden"},
        {"h:/...", "/..."},
    };
    for (const auto& [given, path] : cases) {
        const Parsed p = Parse({"stat", given});
        ASSERT_EQ(ParseResult::Run, p.result) << given << ": " << p.error;
        EXPECT_EQ("h", p.args.host);
        EXPECT_EQ(path, p.args.path) << given;
    }
}

}  // namespace
