#include <gtest/gtest.h>

#include <future>
#include <string>
#include <vector>

#include "engine/DuplicateNames.h"
#include "engine/ParameterTables.h"
#include "tests/support/Waiting.h"

namespace com_tesk::test {
namespace {

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

TEST(ParameterTablesAlone, DeferACloseOnlyForTheThreadThatHoldsTheLock) {
    ParameterTables tables;
    EXPECT_FALSE(tables.deferClose(3));
    const ParameterTables::Lock lock(tables, ParameterTables::Order::FIRST);
    EXPECT_TRUE(tables.deferClose(3));
    EXPECT_TRUE(tables.hasDeferredClose());
    EXPECT_EQ(tables.mutex().takeDeferred(), 3U);
    EXPECT_FALSE(tables.hasDeferredClose());
}

TEST(ParameterTablesAlone, ListNamesWhileAnotherThreadHoldsTheLock) {
    ParameterTables tables;
    std::future<std::size_t> names;
    {
        const ParameterTables::Lock lock(tables, ParameterTables::Order::FIRST);
        names =
            std::async(std::launch::async, [&] { return tables.inputNames().size() + tables.outputNames().size(); });
        EXPECT_EQ(names.wait_for(kWaitBound), std::future_status::ready);
    }
    EXPECT_EQ(names.get(), 0U);
}

TEST(DuplicateNamesAlone, KnowWhichNamesOccurAgain) {
    const std::vector<std::string> names = {"B", "A", "B", "C", "A", "B"};
    const DuplicateNames duplicates(names.size(), [&names](std::size_t i) { return std::string_view(names[i]); });
    std::string again;
    for (std::size_t i = 0; i < names.size(); ++i) {
        again += duplicates.occursAgain(i) ? '1' : '0';
    }
    EXPECT_EQ(again, "111000");
}

}  // namespace
}  // namespace com_tesk::test
