// The command line of kxnfs, parsed in process.
#include "kxnfsArgs.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

using namespace kxnfs;

namespace {

struct Parsed {
    ParseResult result;
    Arguments args;
    std::string error;
};

Parsed Parse(std::initializer_list<const char*> words) {
    std::vector<const char*> argv{"kxnfs"};
    argv.insert(argv.end(), words);
    Parsed p;
    p.result = ParseArguments(static_cast<int>(argv.size()), argv.data(), p.args, p.error);
    return p;
}

bool IsUsage(std::initializer_list<const char*> words) {
    const Parsed p = Parse(words);
    return p.result == ParseResult::Usage && !p.error.empty();
}

TEST(KxnfsArgsTest, IdsAreThirtyTwoBitsExactly) {
    Parsed p = Parse({"-U", "4294967295", "-G", "4294967295,0,7", "ping", "h"});
    ASSERT_EQ(ParseResult::Run, p.result) << p.error;
    EXPECT_TRUE(p.args.haveUid);
    EXPECT_EQ(4294967295u, p.args.uid);
    EXPECT_EQ((std::vector<uint32_t>{4294967295u, 0, 7}), p.args.gids);

    p = Parse({"-U0", "-G5", "ping", "h"});  // values inside the cluster
    ASSERT_EQ(ParseResult::Run, p.result) << p.error;
    EXPECT_EQ(0u, p.args.uid);
    EXPECT_EQ(std::vector<uint32_t>{5}, p.args.gids);

    // Regression: 4294967296 was taken as uid 0.
    for (const char* bad : {"4294967296", "99999999999", "-1", "+1", "", " 1", "1 ", "0x10", "1e3"})
        EXPECT_TRUE(IsUsage({"-U", bad, "ping", "h"})) << "-U '" << bad << "'";
    for (const char* bad : {"4294967296", "1,,2", "1,", ",1", "", "a", "1,-2"})
        EXPECT_TRUE(IsUsage({"-G", bad, "ping", "h"})) << "-G '" << bad << "'";
    EXPECT_EQ(ParseResult::Run,
              Parse({"-G", "0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15", "ping", "h"}).result);
    EXPECT_TRUE(IsUsage({"-G", "0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16", "ping", "h"}));
    EXPECT_TRUE(IsUsage({"ping", "h", "-U"}));  // options come before the command
    EXPECT_TRUE(IsUsage({"-U"}));
}

TEST(KxnfsArgsTest, HostAndTransportRules) {
    Parsed p = Parse({"ping", "h"});
    ASSERT_EQ(ParseResult::Run, p.result);
    EXPECT_EQ(kxNFSUtils::eUseTCPThenUDP, p.args.protocol);
    EXPECT_FALSE(p.args.haveUid);
    EXPECT_TRUE(p.args.gids.empty());
    EXPECT_EQ(kxNFSUtils::eUseUDP, Parse({"-u", "-j", "exports", "h"}).args.protocol);
    EXPECT_EQ(kxNFSUtils::eUseTCP, Parse({"-tj", "exports", "h"}).args.protocol);
    EXPECT_TRUE(Parse({"-tj", "exports", "h"}).args.json);
    EXPECT_TRUE(p.args.pipelined);
    EXPECT_FALSE(Parse({"-tS", "get", "h:/f", "f"}).args.pipelined);

    EXPECT_TRUE(IsUsage({"ping", ""}));  // was "cannot reach the server"
    EXPECT_TRUE(IsUsage({"-t", "-u", "ping", "h"}));
    EXPECT_TRUE(IsUsage({"-ut", "ping", "h"}));
    EXPECT_TRUE(IsUsage({"ping", "h:/x"}));
    EXPECT_TRUE(IsUsage({"ping"}));
    EXPECT_TRUE(IsUsage({"ping", "h", "extra"}));
    EXPECT_TRUE(IsUsage({"mount", "h"}));
    EXPECT_TRUE(IsUsage({"-q", "ping", "h"}));
    EXPECT_TRUE(IsUsage({}));
    EXPECT_EQ(ParseResult::Help, Parse({"-h"}).result);
    EXPECT_EQ(ParseResult::Help, Parse({"--help", "ping"}).result);
    EXPECT_EQ(ParseResult::Run, Parse({"--", "ping", "h"}).result);
}

TEST(KxnfsArgsTest, RemotePathsAreAbsoluteAndNormalised) {
    struct Case {
        const char* given;
        const char* path;
    } cases[] = {
        {"h:/", "/"},
        {"h://", "/"},
        {"h:/a//b/./c/", "/a/b/c"},
        {"h:/a/b/../c", "/a/c"},
        {"h:/../../x", "/x"},  // never above the root
        {"h:/a/..", "/"},
        {"h:/a:b/.hidden", "/a:b/.hidden"},
        {"h:/...", "/..."},
    };
    for (const Case& c : cases) {
        const Parsed p = Parse({"stat", c.given});
        ASSERT_EQ(ParseResult::Run, p.result) << c.given << ": " << p.error;
        EXPECT_EQ("h", p.args.host);
        EXPECT_EQ(c.path, p.args.path) << c.given;
    }
    for (const char* bad : {"h", "h:", "h:relative", ":/x", "/x", ""})
        EXPECT_TRUE(IsUsage({"stat", bad})) << "'" << bad << "'";
}

TEST(KxnfsArgsTest, CommandsTakeTheirOperandsAndOptions) {
    Parsed p = Parse({"ls", "-la", "h:/d"});
    ASSERT_EQ(ParseResult::Run, p.result) << p.error;
    EXPECT_EQ(Command::Ls, p.args.command);
    EXPECT_TRUE(p.args.longFormat);
    EXPECT_TRUE(p.args.all);
    p = Parse({"ls", "-a", "--", "h:/d"});
    EXPECT_TRUE(p.args.all);
    EXPECT_FALSE(p.args.longFormat);
    EXPECT_TRUE(IsUsage({"ls", "-x", "h:/d"}));
    EXPECT_TRUE(IsUsage({"ls", "h:/d", "-l"}));
    EXPECT_TRUE(IsUsage({"stat", "-l", "h:/d"}));

    p = Parse({"get", "h:/f", "local"});
    EXPECT_EQ("/f", p.args.path);
    EXPECT_EQ("local", p.args.local);
    p = Parse({"put", "-", "h:/f"});
    ASSERT_EQ(ParseResult::Run, p.result) << p.error;
    EXPECT_EQ("-", p.args.local);  // standard input
    EXPECT_TRUE(IsUsage({"get", "h:/f"}));
    EXPECT_TRUE(IsUsage({"get", "h:/f", ""}));
    EXPECT_TRUE(IsUsage({"put", "h:/f", "local"}));

    EXPECT_EQ("new", Parse({"mv", "h:/d/old", "new"}).args.name);
    for (const char* bad : {"", ".", "..", "a/b", "/b"})
        EXPECT_TRUE(IsUsage({"mv", "h:/d/old", bad})) << "'" << bad << "'";

    p = Parse({"ln", "-s", "../target", "h:/d/link"});
    ASSERT_EQ(ParseResult::Run, p.result) << p.error;
    EXPECT_EQ(Command::Symlink, p.args.command);
    EXPECT_EQ("../target", p.args.name);
    EXPECT_EQ("/d/link", p.args.path);
    EXPECT_TRUE(IsUsage({"ln", "target", "h:/d/link"}));  // hard links are not offered
    EXPECT_TRUE(IsUsage({"ln", "-s", "", "h:/d/link"}));

    // lock: exclusive unless -s; everything after the path belongs to the command.
    p = Parse({"lock", "h:/f", "cmd", "-s", "--", "x"});
    ASSERT_EQ(ParseResult::Run, p.result) << p.error;
    EXPECT_TRUE(p.args.exclusive);
    EXPECT_EQ((std::vector<std::string>{"cmd", "-s", "--", "x"}), p.args.program);
    EXPECT_FALSE(Parse({"lock", "-s", "h:/f", "true"}).args.exclusive);
    EXPECT_TRUE(Parse({"lock", "-x", "h:/f", "true"}).args.exclusive);
    EXPECT_TRUE(IsUsage({"lock", "-sx", "h:/f", "true"}));
    EXPECT_TRUE(IsUsage({"lock", "h:/f"}));
    EXPECT_TRUE(IsUsage({"lock", "h:/f", ""}));
}

}  // namespace
