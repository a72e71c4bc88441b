#include "tools/csmqtt/ValueTable.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/support/Seed.h"

namespace com_tesk::mqtt {

namespace {

using namespace std::chrono_literals;
using Time = ValueTable::Clock::time_point;

std::vector<ToMqtt> settings(std::size_t count, double rate = 0) {
    std::vector<ToMqtt> result(count);
    for (ToMqtt& setting : result) {
        setting.name = "n";
        setting.rate = rate;
    }
    return result;
}

constexpr Time kStart{10s};

/// Returns what the table gives at this time: "1=2.5 0=clear".
std::string drained(ValueTable& table, Time now = kStart) {
    std::string text;
    while (const auto publication = table.next(now)) {
        text += (text.empty() ? "" : " ") + std::to_string(publication->index) + '=' +
                (publication->isClear ? "clear" : std::to_string(static_cast<int>(publication->value)));
    }
    return text;
}

Counts countsOf(const ValueTable& table) {
    Counts counts;
    table.addCounts(counts);
    return counts;
}

}  // namespace

TEST(ValueTable, GivesValuesInTheOrderOfTheirArrival) {
    const auto names = settings(3);
    ValueTable table(names);
    EXPECT_EQ(drained(table), "");
    table.store(2, 1, 1, kStart);
    table.store(0, 2, 1, kStart);
    table.store(1, 3, 1, kStart);
    table.store(2, 4, 2, kStart);  // It keeps its place.
    EXPECT_EQ(drained(table), "2=4 0=2 1=3");
    EXPECT_EQ(drained(table), "");
}

TEST(ValueTable, CountsWhatWasReplaced) {
    const auto names = settings(2);
    ValueTable table(names);
    table.store(0, 1, 1, kStart);
    table.store(0, 2, 2, kStart);
    table.store(0, 3, 5, kStart);  // Two more were never seen here.
    EXPECT_EQ(drained(table), "0=3");
    const Counts counts = countsOf(table);
    EXPECT_EQ(counts.received, 5U);
    EXPECT_EQ(counts.published, 1U);
    EXPECT_EQ(counts.conflated, 4U);
}

TEST(ValueTable, GivesEverythingAgainAfterARestart) {
    const auto names = settings(3);
    ValueTable table(names);
    table.store(0, 1, 1, kStart);
    table.store(2, 2, 1, kStart);
    EXPECT_EQ(drained(table), "0=1 2=2");
    table.restart();
    table.restart();  // No slot is due twice.
    EXPECT_EQ(drained(table), "0=1 2=2");
    EXPECT_EQ(countsOf(table).conflated, 0U);
    EXPECT_EQ(countsOf(table).published, 4U);
}

TEST(ValueTable, WaitsForTheIntervalAndGivesTheNewest) {
    const auto names = settings(1, 10);
    ValueTable table(names);
    table.store(0, 1, 1, kStart);
    EXPECT_EQ(drained(table), "0=1");
    table.store(0, 2, 2, kStart + 10ms);
    EXPECT_EQ(drained(table, kStart + 10ms), "");
    EXPECT_FALSE(table.hasDue());
    EXPECT_EQ(table.nextDue(), kStart + 100ms);
    table.store(0, 3, 3, kStart + 20ms);
    EXPECT_EQ(drained(table, kStart + 100ms - 1ns), "");
    EXPECT_EQ(drained(table, kStart + 100ms), "0=3");
    EXPECT_EQ(table.nextDue(), std::nullopt);
}

TEST(ValueTable, DoesNotWaitAfterARestart) {
    const auto names = settings(2, 0.001);
    ValueTable table(names);
    table.store(0, 1, 1, kStart);
    EXPECT_EQ(drained(table), "0=1");
    table.store(0, 2, 2, kStart);
    EXPECT_EQ(drained(table), "");
    table.restart();
    EXPECT_EQ(drained(table), "0=2");
}

TEST(ValueTable, ClearsEverySlotWhenTheHostIsLost) {
    const auto names = settings(2, 0.001);
    ValueTable table(names);
    table.store(0, 1, 1, kStart);
    EXPECT_EQ(drained(table), "0=1");
    table.store(0, 2, 2, kStart);
    EXPECT_EQ(drained(table), "");
    table.loseHost(StalePolicy::CLEAR);
    table.loseHost(StalePolicy::CLEAR);
    EXPECT_EQ(drained(table), "0=clear 1=clear");
    EXPECT_EQ(countsOf(table).conflated, 1U);
    table.restart();
    EXPECT_EQ(drained(table), "0=clear 1=clear");
    EXPECT_FALSE(table.snapshot(kStart)[0].value.has_value());
    table.store(0, 2, 3, kStart + 5'000s);
    EXPECT_EQ(drained(table, kStart + 5'000s), "0=2");
}

TEST(ValueTable, KeepsValuesOfALostHost) {
    const auto names = settings(2);
    ValueTable table(names);
    table.store(0, 1, 1, kStart);
    EXPECT_TRUE(table.snapshot(kStart)[0].isCurrent);
    table.loseHost(StalePolicy::KEEP);
    EXPECT_EQ(drained(table), "0=1");
    EXPECT_EQ(table.snapshot(kStart + std::chrono::seconds(2))[0].value, 1);
    EXPECT_EQ(table.snapshot(kStart + std::chrono::seconds(2))[0].age, std::chrono::seconds(2));
    EXPECT_FALSE(table.snapshot(kStart)[0].isCurrent);
}

TEST(ValueTable, GivesAgainWhatWasPutBack) {
    const auto names = settings(1, 10);
    ValueTable table(names);
    table.store(0, 1, 1, kStart);
    auto taken = table.next(kStart);
    ASSERT_TRUE(taken.has_value());
    table.putBack(*taken);
    EXPECT_EQ(countsOf(table).published, 0U);
    taken = table.next(kStart);
    ASSERT_TRUE(taken.has_value());
    table.store(0, 2, 2, kStart);
    table.putBack(*taken);  // A newer value has arrived meanwhile.
    EXPECT_EQ(drained(table), "0=2");
    EXPECT_EQ(countsOf(table).conflated, 1U);
    EXPECT_EQ(countsOf(table).published, 1U);
}

TEST(ValueTable, LosesNoValueInRandomSequences) {
    std::mt19937_64 random(test::newSeed());
    const auto names = [] {
        auto result = settings(5);
        result[1].rate = 100;
        result[3].rate = 7;
        return result;
    }();
    ValueTable table(names);
    std::vector<std::uint64_t> sequences(names.size());
    std::vector<double> published(names.size(), -1);
    std::uint64_t first = 0;
    Time now = kStart;
    for (int step = 0; step < 20'000; ++step) {
        now += std::chrono::milliseconds(random() % 5);
        const auto index = static_cast<std::size_t>(random() % names.size());
        switch (random() % 8) {
            case 0:
                table.restart();
                break;
            case 1:
            case 2:
                if (const auto publication = table.next(now)) {
                    first += publication->isFirst ? 1 : 0;
                    published[publication->index] = publication->value;
                }
                break;
            case 3:
                if (const auto publication = table.next(now)) {
                    table.putBack(*publication);
                }
                break;
            default:
                sequences[index] += 1 + random() % 2;
                table.store(index, static_cast<double>(sequences[index]), sequences[index], now);
                break;
        }
    }
    now += 1s;
    while (const auto publication = table.next(now)) {
        first += publication->isFirst ? 1 : 0;
        published[publication->index] = publication->value;
    }
    for (std::size_t index = 0; index < names.size(); ++index) {
        EXPECT_EQ(published[index], static_cast<double>(sequences[index])) << index;
    }
    // Each value was published or counted.
    EXPECT_EQ(countsOf(table).received, first + countsOf(table).conflated);
}

}  // namespace com_tesk::mqtt
