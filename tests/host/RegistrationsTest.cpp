#include "host/Registrations.h"

#include <gtest/gtest.h>

namespace com_tesk::host {
namespace {

TEST(IdSource, BeginsWithOne) {
    IdSource ids;
    EXPECT_EQ(ids.next(), 1U);
    EXPECT_EQ(ids.next(), 2U);
}

TEST(IdSource, LeavesOutWhatClientsTakeForUnconfirmed) {
    IdSource ids(0xFFFFD);
    EXPECT_EQ(ids.next(), 0xFFFFEU);
    EXPECT_EQ(ids.next(), 0x100000U);
}

TEST(IdSource, LeavesOutZeroWhenItStartsAgain) {
    IdSource ids(0xFFFFFFFE);
    EXPECT_EQ(ids.next(), 0xFFFFFFFFU);
    EXPECT_EQ(ids.next(), 1U);
}

TEST(Registrations, ANameKeepsItsIdWhenItIsRegisteredAgain) {
    IdSource ids;
    Registrations outputs;
    const std::uint32_t id = outputs.add("A", false, ids).id;
    outputs.add("B", false, ids);
    EXPECT_EQ(outputs.add("A", false, ids).id, id);
    EXPECT_EQ(outputs.all().size(), 2U);
}

TEST(Registrations, RegisteringAgainTakesOverTheType) {
    IdSource ids;
    Registrations outputs;
    const std::uint32_t id = outputs.add("A", false, ids).id;
    outputs.add("A", true, ids);
    EXPECT_TRUE(outputs.byId(id)->isInteger);
}

TEST(Registrations, ARemovedNameIsGoneAndComesBackUnderAFreshId) {
    IdSource ids;
    Registrations outputs;
    const std::uint32_t id = outputs.add("A", true, ids).id;
    EXPECT_EQ(outputs.remove(id)->name, "A");
    EXPECT_EQ(outputs.byId(id), nullptr);
    EXPECT_EQ(outputs.byName("A"), nullptr);
    EXPECT_FALSE(outputs.remove(id).has_value());
    EXPECT_NE(outputs.add("A", true, ids).id, id);
}

}  // namespace
}  // namespace com_tesk::host
