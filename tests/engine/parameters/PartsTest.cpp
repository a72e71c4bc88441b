#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "engine/NameIndex.h"
#include "engine/ParameterTables.h"

namespace com_tesk::test {
namespace {

/// When it is false, allocations of this thread fail.
thread_local bool hasMemory = true;

TEST(InputTableAlone, CountsAVersionForEachChangeOfIds) {
    InputTable inputs;
    std::vector<InputTable::Entry*> batch;
    const CSClient::InputDef definition = {"A", CSClient::TYPE_FLOAT, 1};
    ASSERT_TRUE(inputs.insert(&definition, 1, true, batch));
    auto hint = inputs.all().begin();
    EXPECT_NE(inputs.confirm(hint, 5, "A"), nullptr);
    const std::uint32_t before = inputs.version();
    EXPECT_NE(inputs.confirm(hint, 6, "A"), nullptr);
    EXPECT_NE(inputs.version(), before);
    EXPECT_EQ(inputs.confirm(hint, 7, "X"), nullptr);
    EXPECT_EQ(*inputs.nameOf(5), "A");
    EXPECT_EQ(*inputs.nameOf(6), "A");
    EXPECT_EQ(inputs.nameOf(7), nullptr);
}

constexpr std::size_t kMaxLength = 40;  // Longer than any name.

std::string textOf(std::size_t length) {
    std::string text;
    for (std::size_t i = 0; i < length; ++i) {
        text += static_cast<char>('A' + i);
    }
    return text;
}

TEST(NameBytes, OnlyEqualTextsOfOneLengthAreTheSameName) {
    for (std::size_t length = 0; length <= kMaxLength; ++length) {
        SCOPED_TRACE(length);
        // The bytes after the name differ, so reading them fails the test.
        const std::string one = textOf(length) + "after the one";
        const std::string other = textOf(length) + "AFTER THE OTHER";
        const std::string_view name(one.data(), length);
        const std::string_view sameName(other.data(), length);
        EXPECT_TRUE(names::isSame(name, sameName));
        EXPECT_EQ(names::hashOf(name), names::hashOf(sameName));
        const auto expectAnother = [](std::string_view first, std::string_view second) {
            EXPECT_FALSE(names::isSame(first, second));
            EXPECT_FALSE(names::isSame(second, first));
            EXPECT_NE(names::hashOf(first), names::hashOf(second));
        };
        expectAnother(std::string(length, '\0'), std::string(length + 1, '\0'));
        for (std::size_t position = 0; position < length; ++position) {
            SCOPED_TRACE(position);
            std::string changed(name);
            changed[position] = static_cast<char>(changed[position] ^ 0x80);
            expectAnother(name, changed);
        }
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
    hasMemory = false;
    index.add(entries[0]);
    hasMemory = true;
    EXPECT_EQ(nullptr, index.find(entries[0].name));
    for (unsigned int i = 0; i < 12; ++i) {
        index.add(entries[i]);
    }
    hasMemory = false;
    index.add(entries[12]);  // The thirteenth needs a larger table.
    hasMemory = true;
    EXPECT_EQ(nullptr, index.find(entries[12].name));
    for (unsigned int i = 0; i < 12; ++i) {
        EXPECT_EQ(&entries[i], index.find(entries[i].name)) << i;
    }
}

}  // namespace
}  // namespace com_tesk::test

void* operator new(std::size_t size) {
    if (void* const memory = com_tesk::test::hasMemory ? std::malloc(size == 0 ? 1 : size) : nullptr) {
        return memory;
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
