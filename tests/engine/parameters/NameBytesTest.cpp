#include "engine/NameBytes.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace com_tesk::test {
namespace {

constexpr std::size_t kLongest = 40;  // Longer than any name.

/// A text that is the same for every call, at an address of its own.
std::string textOf(std::size_t length) {
    std::string text;
    for (std::size_t i = 0; i < length; ++i) {
        text += static_cast<char>('A' + i);
    }
    return text;
}

TEST(NameBytes, NamesOfTheSameCharactersAreTheSame) {
    for (std::size_t length = 0; length <= kLongest; ++length) {
        const std::string one = textOf(length);
        const std::string other = textOf(length);
        EXPECT_TRUE(names::isSame(one, other)) << length;
        EXPECT_EQ(names::hashOf(one), names::hashOf(other)) << length;
    }
}

TEST(NameBytes, OneOtherCharacterAtAnyPlaceMakesAnotherName) {
    for (std::size_t length = 1; length <= kLongest; ++length) {
        const std::string one = textOf(length);
        for (std::size_t place = 0; place < length; ++place) {
            std::string other = one;
            other[place] = static_cast<char>(other[place] ^ 0x80);
            EXPECT_FALSE(names::isSame(one, other)) << length << " characters, at " << place;
            EXPECT_NE(names::hashOf(one), names::hashOf(other)) << length << " characters, at " << place;
        }
    }
}

TEST(NameBytes, ALongerNameIsAnotherOne) {
    for (std::size_t length = 0; length < kLongest; ++length) {
        const std::string one(length, '\0');
        const std::string other(length + 1, '\0');
        EXPECT_FALSE(names::isSame(one, other)) << length;
        EXPECT_FALSE(names::isSame(other, one)) << length;
        EXPECT_NE(names::hashOf(one), names::hashOf(other)) << length;
    }
}

TEST(NameBytes, ReadsNothingBehindAName) {
    for (std::size_t length = 0; length <= kLongest; ++length) {
        const std::string one = textOf(length) + "behind the one";
        const std::string other = textOf(length) + "BEHIND THE OTHER";
        const std::string_view oneName(one.data(), length);
        const std::string_view otherName(other.data(), length);
        EXPECT_TRUE(names::isSame(oneName, otherName)) << length;
        EXPECT_EQ(names::hashOf(oneName), names::hashOf(otherName)) << length;
    }
}

/// Names as programs have them must not meet in the lower bits, by which tables are indexed.
TEST(NameBytes, NumberedNamesSpreadOverTheLowerBits) {
    constexpr unsigned int kNames = 1'000;
    constexpr std::size_t kPlaces = 4'096;
    for (const char* const prefix :
         {"", "p", "in", "out", "gear", "speed", "engine", "current", "aircraft", "cockpit/left/lamp/"}) {
        for (const char* const suffix : {"", "a", "/on", "/value", ".setpoint"}) {
            std::set<std::size_t> places;
            for (unsigned int i = 0; i < kNames; ++i) {
                places.insert(names::hashOf(prefix + std::to_string(i) + suffix) % kPlaces);
            }
            // Thrown at random they would take about 887 places.
            EXPECT_GT(places.size(), 750U) << prefix << "..." << suffix;
        }
    }
}

}  // namespace
}  // namespace com_tesk::test
