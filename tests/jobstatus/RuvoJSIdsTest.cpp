#include "jobstatus/RuvoJSIds.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <set>

using RuvoService::RuvoJSIds;

TEST(RuvoJSIds, GivesTheLowestFreeId) {
    RuvoJSIds ids;
    EXPECT_EQ(ids.next(0), 1);
    EXPECT_EQ(ids.next(0), 1);  // nothing is marked by asking
    for (const int id : {1, 2, 4}) ids.take(id);
    EXPECT_EQ(ids.next(3), 3);
    ids.take(3);
    EXPECT_EQ(ids.next(4), 5);
    ids.release(3);
    EXPECT_EQ(ids.next(3), 3);
    ids.release(1);
    EXPECT_EQ(ids.next(2), 1);
}

TEST(RuvoJSIds, GivesTheLastIdWhenAllBelowAreTaken) {
    RuvoJSIds ids;
    for (int id = 1; id <= 9999; ++id) {
        ASSERT_EQ(ids.next(static_cast<std::size_t>(id - 1)), id);
        ids.take(id);
    }
    EXPECT_EQ(ids.next(9999), 10000);
    ids.take(10000);
    EXPECT_EQ(ids.next(10000), 10000);  // though it is taken
    ids.release(9999);
    EXPECT_EQ(ids.next(9999), 9999);
    ids.release(10000);
    EXPECT_EQ(ids.next(9998), 9999);
}

TEST(RuvoJSIds, GivesNoneBesideTooManyJobs) {
    RuvoJSIds ids;
    EXPECT_EQ(ids.next(10000), 1);
    EXPECT_EQ(ids.next(10001), 0);
    EXPECT_EQ(ids.next(1000000), 0);
}

TEST(RuvoJSIds, IgnoresIdsThatAreNeverLookedFor) {
    RuvoJSIds ids;
    for (const int id : {0, -1, -2147483647 - 1, 10000, 10001, 10048, 2147483647}) {
        ids.take(id);
        ids.release(id);
        ids.take(id);
    }
    for (int id = 1; id <= 9999; ++id) {
        ASSERT_EQ(ids.next(0), id);
        ids.take(id);
    }
}

TEST(RuvoJSIds, AgreesWithAWalkThroughTheTable) {
    std::mt19937 random(17);
    RuvoJSIds ids;
    std::set<std::int32_t> taken;
    for (int round = 0; round < 20000; ++round) {
        const auto id = static_cast<std::int32_t>(random() % 200 + 1);
        if (taken.erase(id) > 0) {
            ids.release(id);
        } else {
            taken.insert(id);
            ids.take(id);
        }
        std::int32_t expected = 1;
        while (taken.contains(expected)) ++expected;
        ASSERT_EQ(ids.next(taken.size()), expected);
    }
}
