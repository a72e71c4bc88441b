#include "engine/LookupIndex.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/engine/parameters/Allocations.h"

namespace com_tesk::test {
namespace {

struct Named {
    std::string name;
};

using NameIndex = LookupIndex<Named, NameKey>;

std::vector<Named> numbered(unsigned int count) {
    std::vector<Named> entries;
    for (unsigned int i = 0; i < count; ++i) {
        entries.push_back({"entry-" + std::to_string(i)});
    }
    return entries;
}

TEST(LookupIndex, KnowsNothingAtFirst) {
    const NameIndex index;
    EXPECT_EQ(nullptr, index.find("A"));
    EXPECT_EQ(nullptr, index.find(""));
}

TEST(LookupIndex, FindsEveryOneOfManyAndNoOther) {
    std::vector<Named> entries = numbered(10'000);
    NameIndex index;
    unsigned int unknown = 0;
    for (Named& entry : entries) {
        index.add(entry);
    }
    for (Named& entry : entries) {
        Named* const found = index.find(entry.name);
        EXPECT_TRUE(found == &entry || found == nullptr) << entry.name;
        unknown += found == nullptr ? 1 : 0;
    }
    EXPECT_LE(unknown, 10U);  // Those that would stand too far behind their place.
    EXPECT_EQ(nullptr, index.find("entry-10000"));
    EXPECT_EQ(nullptr, index.find("entry-"));
}

TEST(LookupIndex, ForgetsEverythingWhenItIsCleared) {
    std::vector<Named> entries = numbered(100);
    NameIndex index;
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

/// All keys meet at one place.
struct MeetingKey {
    using Type = unsigned int;
    static Type of(const unsigned int& key) { return key; }
    static std::size_t hashOf(Type /*key*/) { return 5; }
    static bool isSame(Type one, Type other) {
        ++compared;
        return one == other;
    }
    static unsigned int compared;
};

unsigned int MeetingKey::compared = 0;

TEST(LookupIndex, KeysThatAllMeetCostLittleAndOnlyTheFirstAreKnown) {
    std::vector<unsigned int> keys;
    for (unsigned int i = 0; i < 1'000; ++i) {
        keys.push_back(i);
    }
    LookupIndex<unsigned int, MeetingKey> index;
    for (unsigned int& key : keys) {
        index.add(key);
    }
    MeetingKey::compared = 0;
    unsigned int known = 0;
    for (unsigned int& key : keys) {
        unsigned int* const found = index.find(key);
        EXPECT_TRUE(found == &key || found == nullptr);
        known += found == nullptr ? 0 : 1;
    }
    EXPECT_EQ(128U, known);
    EXPECT_LE(MeetingKey::compared, 128'000U);
}

TEST(LookupIndex, WithoutMemoryAnEntryStaysUnknown) {
    std::vector<Named> entries = numbered(13);
    NameIndex index;
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

TEST(LookupIndex, FindsElementsOfATableById) {
    using Element = const std::pair<const std::uint32_t, std::string>;
    std::vector<std::pair<const std::uint32_t, std::string>> elements;
    for (const std::uint32_t id : {1U, 2U, 0xFFFFFU, 0x10000U, 0x20000U, 0x30000U, 0x80000000U, 0xFFFFFFFFU}) {
        elements.emplace_back(id, std::to_string(id));
    }
    LookupIndex<Element, IdKey> index;
    for (Element& element : elements) {
        index.add(element);
    }
    for (Element& element : elements) {
        EXPECT_EQ(&element, index.find(element.first));
    }
    EXPECT_EQ(nullptr, index.find(0));
    EXPECT_EQ(nullptr, index.find(3));
}

}  // namespace
}  // namespace com_tesk::test
