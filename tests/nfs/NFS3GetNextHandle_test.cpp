#include "nfs/NFS3GetNextHandle.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>

using kxNFSUtils::CookieLoopGuard;

namespace {

// Requests the guard lets through for cookies that run `tail` new values and then go round
// `loop` values for ever; 0 when it never stops them (within a bound far past the promise).
uint64_t RequestsBeforeTheStop(uint64_t tail, uint64_t loop) {
    CookieLoopGuard guard;
    for (uint64_t i = 0; i < 100000; ++i) {
        const uint64_t cookie = i < tail ? 1000000 + i : 7 + (i - tail) % loop;
        if (!guard.Next(cookie)) return i;
    }
    return 0;
}

TEST(CookieLoopGuard, StopsEveryLoopWithinThreeTimesTheLongerOfLoopAndTail) {
    for (uint64_t tail : {0, 1, 2, 5, 17})
        for (uint64_t loop : {1, 2, 3, 4, 7, 8, 9, 100, 1023}) {
            SCOPED_TRACE(testing::Message() << "tail " << tail << ", loop " << loop);
            const uint64_t requests = RequestsBeforeTheStop(tail, loop);
            // Never before every value of the loop has been asked for once.
            EXPECT_GE(requests, tail + loop);
            EXPECT_LE(requests, 3 * std::max(loop, tail + 1));
        }
}

TEST(CookieLoopGuard, ListingsThatGoOnNeverStop) {
    CookieLoopGuard guard;
    for (uint64_t cookie = 0; cookie < 1000000; ++cookie) ASSERT_TRUE(guard.Next(cookie * 3 + 1));
}

}  // namespace
