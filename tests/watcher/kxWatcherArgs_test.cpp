#include "kxWatcherArgs.h"

#include <vector>

#include "gtest/gtest.h"

namespace {

kxWatcherArgs Scan(std::vector<const char*> args) {
    args.insert(args.begin(), "watcher");
    std::vector<char*> argv;
    for (const char* a : args) argv.push_back(const_cast<char*>(a));
    const int argc = static_cast<int>(argv.size());
    argv.push_back(nullptr);
    return kxScanWatcherArgs(argc, argv.data());
}

}  // namespace

TEST(WatcherArgs, DefaultsAndValuesThatAreAlwaysTheNextArgument) {
    const auto d = Scan({"/bin/prog", "-d", "7"});
    EXPECT_EQ(d.retries, 10);
    EXPECT_EQ(d.retryDelay, 5u);
    EXPECT_FALSE(d.foreground);
    EXPECT_EQ(d.programIndex, 1);

    const auto a = Scan({"-d5", "12", "-r", "-3", "-rabbit", "x9", "prog"});
    EXPECT_EQ(a.retryDelay, 12u);  // "-d5" carries nothing itself
    EXPECT_EQ(a.retries, 0);       // the last -r wins; "x9" is not a number
    EXPECT_EQ(a.programIndex, 7);

    const auto b = Scan({"-r", "-f", "prog"});  // -r swallows "-f" whatever it looks like
    EXPECT_EQ(b.retries, 0);
    EXPECT_FALSE(b.foreground);
    EXPECT_EQ(b.programIndex, 3);
}

TEST(WatcherArgs, UnknownSwitchesAreSkippedAndTheVectorEndIsRespected) {
    // Only the second character counts.
    const auto a = Scan({"-foo", "--", "-", "-zap", "prog", "-f"});
    EXPECT_TRUE(a.foreground);
    EXPECT_EQ(a.programIndex, 5);

    const auto t = Scan({"-f", "-r"});  // a trailing value switch never reads past the end
    EXPECT_EQ(t.missingValueFor, 'r');
    EXPECT_EQ(t.programIndex, 3);
    EXPECT_EQ(Scan({"-d"}).missingValueFor, 'd');
    EXPECT_EQ(Scan({}).programIndex, 1);
    EXPECT_EQ(Scan({"-f"}).programIndex, 2);
}
