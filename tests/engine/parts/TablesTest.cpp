#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "comms/CSLockGuard.h"
#include "engine/CallbackRegistry.h"
#include "engine/DuplicateNames.h"
#include "engine/ParameterTables.h"

namespace com_tesk::test {
namespace {

using testing::ElementsAre;

/// The tables without an engine. One thread: the lock is not needed.
class TablesAlone : public testing::Test {
  protected:
    InputTable inputs;
    OutputTable outputs;
    std::vector<InputTable::Entry*> inputBatch;
    std::vector<OutputTable::Entry*> outputBatch;

    bool insertInputs(const std::vector<CSClient::InputDef>& definitions) {
        return inputs.insert(definitions.data(), static_cast<unsigned int>(definitions.size()), true, inputBatch);
    }
    bool insertOutputs(const std::vector<CSClient::OutputDef>& definitions) {
        return outputs.insert(definitions.data(), static_cast<unsigned int>(definitions.size()), true, outputBatch);
    }
};

TEST_F(TablesAlone, InsertionStopsAtTheFirstRefusedDefinitionAndKeepsThoseBefore) {
    EXPECT_FALSE(insertOutputs({{"B", CSClient::TYPE_INT}, {"A", CSClient::TYPE_INT}, {"B", CSClient::TYPE_INT}}));
    EXPECT_THAT(outputs.names(), ElementsAre()) << "the first B is refused, because it occurs again";
    EXPECT_FALSE(insertOutputs({{"B", CSClient::TYPE_INT}, {"A", CSClient::TYPE_UNDEFINED}}));
    EXPECT_THAT(outputs.names(), ElementsAre("B"));
}

TEST_F(TablesAlone, NamesAreInAscendingOrderAndBatchesInTheOrderOfTheCall) {
    ASSERT_TRUE(insertInputs({{"C", 1, 1}, {"A", 1, 1}, {"B", 1, 1}}));
    EXPECT_THAT(inputs.names(), ElementsAre("A", "B", "C"));
    ASSERT_EQ(inputBatch.size(), 3U);
    EXPECT_EQ(inputBatch[0]->name, "C");
}

TEST_F(TablesAlone, AConfirmedInputIsFoundByEveryIdThatItHad) {
    ASSERT_TRUE(insertInputs({{"A", 1, 1}}));
    auto hint = inputs.all().begin();
    EXPECT_NE(inputs.confirm(hint, 5, "A"), nullptr);
    const std::uint32_t before = inputs.version();
    EXPECT_NE(inputs.confirm(hint, 6, "A"), nullptr);
    EXPECT_NE(inputs.version(), before);
    EXPECT_EQ(inputs.confirm(hint, 7, "X"), nullptr);
    EXPECT_EQ(*inputs.nameOf(5), "A");
    EXPECT_EQ(*inputs.nameOf(6), "A");
    EXPECT_EQ(inputs.nameOf(7), nullptr);
    EXPECT_EQ(inputs.size(true), 2U);
}

TEST_F(TablesAlone, TakenInputsAreRestoredUnlessTheyAreThereAgain) {
    ASSERT_TRUE(insertInputs({{"A", 1, 1}, {"B", 1, 1}}));
    InputTable::Entries taken;
    inputs.takeAll(taken);
    EXPECT_TRUE(inputs.all().isEmpty());
    ASSERT_TRUE(insertInputs({{"A", 2, 3}}));
    inputs.restore(taken);
    EXPECT_THAT(inputs.names(), ElementsAre("A", "B"));
    EXPECT_EQ(inputs.all().find("A")->type, 2U);
    EXPECT_EQ(taken.size(), 1U);
}

TEST_F(TablesAlone, ValuesAreStoredForAllRecordsOrForNone) {
    ASSERT_TRUE(insertOutputs({{"A", CSClient::TYPE_FLOAT}}));
    const std::vector<CSClient::Parameter> records = {{"A", {1.5F}, CSClient::TYPE_FLOAT, 0},
                                                      {"X", {2.5F}, CSClient::TYPE_FLOAT, 0}};
    std::vector<OutputTable::Entry*> batch;
    EXPECT_FALSE(outputs.storeValues(records.data(), 2, true, batch));
    EXPECT_FALSE(outputs.all().find("A")->published);
    EXPECT_TRUE(outputs.storeValues(records.data(), 1, true, batch));
    EXPECT_TRUE(outputs.all().find("A")->published);
    EXPECT_EQ(outputs.all().find("A")->value.asFloat, 1.5F);
}

TEST_F(TablesAlone, ErasedOutputsLeaveNoId) {
    ASSERT_TRUE(insertOutputs({{"A", CSClient::TYPE_FLOAT}, {"B", CSClient::TYPE_FLOAT}}));
    auto hint = outputs.all().begin();
    outputs.confirm(hint, 5, "A");
    outputs.confirm(hint, 6, "B");
    const auto found = outputs.all().findAll({"A", "X", "A"});
    EXPECT_EQ(found.batch.size(), 2U);
    outputs.erase(found);
    EXPECT_THAT(outputs.names(), ElementsAre("B"));
    EXPECT_EQ(outputs.size(true), 1U);
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
