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

TEST(WatcherArgs, ScanningQuirksAndTheVectorEnd) {
    struct Case {
        std::vector<const char*> args;
        int retries;
        unsigned delay;
        bool foreground;
        int programIndex;
        char missing;
    };
    const Case cases[] = {
        {{"/bin/prog", "-d", "7"}, 10, 5, false, 1, 0},  // defaults; switches after the program
        // "-d5" carries nothing itself; the last -r wins; "x9" is not a number.
        {{"-d5", "12", "-r", "-3", "-rabbit", "x9", "prog"}, 0, 12, false, 7, 0},
        {{"-r", "-f", "prog"}, 0, 5, false, 3, 0},  // -r swallows "-f" whatever it looks like
        {{"-foo", "--", "-", "-zap", "prog", "-f"}, 10, 5, true, 5, 0},  // the second character
        {{"-f", "-r"}, 10, 5, true, 3, 'r'},  // a trailing value switch never reads past the end
    };
    for (const Case& c : cases) {
        const kxWatcherArgs a = Scan(c.args);
        SCOPED_TRACE(c.args.empty() ? "(none)" : c.args[0]);
        EXPECT_EQ(c.retries, a.retries);
        EXPECT_EQ(c.delay, a.retryDelay);
        EXPECT_EQ(c.foreground, a.foreground);
        EXPECT_EQ(c.programIndex, a.programIndex);
        EXPECT_EQ(c.missing, a.missingValueFor);
    }
}
