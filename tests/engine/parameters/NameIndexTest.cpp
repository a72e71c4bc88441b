#include "engine/NameIndex.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "tests/engine/parameters/Allocations.h"

namespace com_tesk::test {
namespace {

constexpr std::size_t kMaxLength = 40;  // Longer than any name.

std::string textOf(std::size_t length) {
    std::string text;
    for (std::size_t i = 0; i < length; ++i) {
        text += static_cast<char>('A' + i);
    }
    return text;
}

TEST(NameBytes, EqualTextsOfEveryLengthAreTheSameName) {
    for (std::size_t length = 0; length <= kMaxLength; ++length) {
        // The bytes after the name differ, so reading them fails the test.
        const std::string one = textOf(length) + "after the one";
        const std::string other = textOf(length) + "AFTER THE OTHER";
        const std::string_view oneName(one.data(), length);
        const std::string_view otherName(other.data(), length);
        EXPECT_TRUE(names::isSame(oneName, otherName)) << length;
        EXPECT_EQ(names::hashOf(oneName), names::hashOf(otherName)) << length;
    }
}

TEST(NameBytes, OneDifferentCharacterMakesAnotherName) {
    for (std::size_t length = 1; length <= kMaxLength; ++length) {
        const std::string one = textOf(length);
        for (std::size_t position = 0; position < length; ++position) {
            std::string other = one;
            other[position] = static_cast<char>(other[position] ^ 0x80);
            EXPECT_FALSE(names::isSame(one, other)) << length << " characters, at " << position;
            EXPECT_NE(names::hashOf(one), names::hashOf(other)) << length << " characters, at " << position;
        }
    }
}

TEST(NameBytes, ALongerNameIsAnotherName) {
    for (std::size_t length = 0; length < kMaxLength; ++length) {
        const std::string one(length, '\0');
        const std::string other(length + 1, '\0');
        EXPECT_FALSE(names::isSame(one, other)) << length;
        EXPECT_FALSE(names::isSame(other, one)) << length;
        EXPECT_NE(names::hashOf(one), names::hashOf(other)) << length;
    }
}

TEST(NameBytes, LowerBitsOfNumberedNamesDiffer) {
    constexpr unsigned int kNames = 1'000;
    constexpr std::size_t kSlots = 4'096;
    for (const char* const prefix :
         {"", "p", "in", "out", "gear", "speed", "engine", "current", "aircraft", "cockpit/left/lamp/"}) {
        for (const char* const suffix : {"", "a", "/on", "/value", ".setpoint"}) {
            std::set<std::size_t> slots;
            for (unsigned int i = 0; i < kNames; ++i) {
                slots.insert(names::hashOf(prefix + std::to_string(i) + suffix) % kSlots);
            }
            // Random hashes would need about 887 slots.
            EXPECT_GT(slots.size(), 750U) << prefix << "..." << suffix;
        }
    }
}

struct Named {
    std::string name;
};

std::vector<Named> numbered(unsigned int count) {
    std::vector<Named> entries;
    for (unsigned int i = 0; i < count; ++i) {
        entries.push_back({"entry-" + std::to_string(i)});
    }
    return entries;
}

TEST(NameIndex, FindsTheEntriesThatWereAdded) {
    std::vector<Named> entries = numbered(10'000);
    NameIndex<Named> index;
    EXPECT_EQ(nullptr, index.find(""));
    for (Named& entry : entries) {
        index.add(entry);
    }
    unsigned int missing = 0;
    for (Named& entry : entries) {
        Named* const found = index.find(entry.name);
        EXPECT_TRUE(found == &entry || found == nullptr) << entry.name;
        missing += found == nullptr ? 1 : 0;
    }
    EXPECT_LE(missing, 10U);  // Those beyond the maximum probe count.
    EXPECT_EQ(nullptr, index.find("entry-10000"));
    EXPECT_EQ(nullptr, index.find("entry-"));
}

TEST(NameIndex, IsEmptyAndUsableAfterItIsCleared) {
    std::vector<Named> entries = numbered(100);
    NameIndex<Named> index;
    for (Named& entry : entries) {
        index.add(entry);
    }
    index.clear();
    for (const Named& entry : entries) {
        EXPECT_EQ(nullptr, index.find(entry.name));
    }
    index.add(entries[7]);
    EXPECT_EQ(&entries[7], index.find(entries[7].name));
}

TEST(NameIndex, LimitsTheProbesForCollidingNames) {
    // These names have the same lower bits of their hashes in every size that the index reaches.
    std::vector<Named> entries;
    for (unsigned int i = 0; entries.size() < 200; ++i) {
        const std::string name = std::to_string(i);
        if (names::hashOf(name) % 512 == 5) {
            entries.push_back({name});
        }
    }
    NameIndex<Named> index;
    for (Named& entry : entries) {
        index.add(entry);
    }
    unsigned int found = 0;
    for (const Named& entry : entries) {
        found += index.find(entry.name) == &entry ? 1 : 0;
    }
    EXPECT_EQ(128U, found);
}

TEST(NameIndex, WithoutMemoryAnEntryIsNotAdded) {
    std::vector<Named> entries = numbered(13);
    NameIndex<Named> index;
    {
        const FailingAllocations failing(0, FailingAllocations::ALL);
        index.add(entries[0]);
    }
    EXPECT_EQ(nullptr, index.find(entries[0].name));
    for (unsigned int i = 0; i < 12; ++i) {
        index.add(entries[i]);
    }
    {
        const FailingAllocations failing(0, FailingAllocations::ALL);  // The thirteenth needs a larger table.
        index.add(entries[12]);
    }
    EXPECT_EQ(nullptr, index.find(entries[12].name));
    for (unsigned int i = 0; i < 12; ++i) {
        EXPECT_EQ(&entries[i], index.find(entries[i].name)) << i;
    }
}

}  // namespace
}  // namespace com_tesk::test
