#include "tools/csmqtt/AddressFamily.h"

#include <gtest/gtest.h>

namespace com_tesk::mqtt {

TEST(FamilyCycle, TriesEachFamilyOfAName) {
    FamilyCycle cycle("localhost");
    cycle.begin();
    EXPECT_EQ(cycle.current(), AddressFamily::ANY);
    EXPECT_TRUE(cycle.fail());
    EXPECT_EQ(cycle.current(), AddressFamily::IPV4);
    EXPECT_TRUE(cycle.fail());
    EXPECT_EQ(cycle.current(), AddressFamily::IPV6);
    EXPECT_FALSE(cycle.fail());
    EXPECT_EQ(cycle.current(), AddressFamily::ANY);
}

TEST(FamilyCycle, BeginsWithTheFamilyThatHasWorked) {
    FamilyCycle cycle("localhost");
    cycle.begin();
    EXPECT_TRUE(cycle.fail());
    cycle.begin();
    EXPECT_EQ(cycle.current(), AddressFamily::IPV4);
    EXPECT_TRUE(cycle.fail());
    EXPECT_TRUE(cycle.fail());
    EXPECT_EQ(cycle.current(), AddressFamily::ANY);
    EXPECT_FALSE(cycle.fail());
}

TEST(FamilyCycle, HasOneFamilyForANumericAddress) {
    for (const char* const host : {"127.0.0.1", "::1", "fe80::1%eth0"}) {
        FamilyCycle cycle(host);
        cycle.begin();
        EXPECT_FALSE(cycle.fail()) << host;
        EXPECT_EQ(cycle.current(), AddressFamily::ANY) << host;
    }
}

}  // namespace com_tesk::mqtt
