#include <atomic>
#include <future>
#include <limits>
#include <thread>

#include "tests/engine/parameters/ParameterTest.h"
#include "tests/support/Waiting.h"

namespace com_tesk::test {
namespace {

constexpr int kResults[] = {
    0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 0x104, -1, -4, std::numeric_limits<int>::min(),
};

/// The senders of a derived protocol may return any number. A is confirmed as 7, and B is unconfirmed.
template <typename Kind>
class SenderResult : public testing::Test {
  protected:
    void prepare(EngineOf<Kind>& engine, int result) {
        engine.add({{"A"}, {"B"}});
        engine.confirm({{7, "A"}});
        calls.clear();
        engine.onSend = [this, result](const std::string& call) {
            calls.push_back(call);
            return result;
        };
    }

    const std::string suffix = Kind::kWord + std::string("s");
    const std::vector<std::string> rows = {Kind::row("A", "id 7"), Kind::row("B")};
    std::vector<std::string> calls;
};
TYPED_TEST_SUITE(SenderResult, Kinds, KindNames);

TYPED_TEST(SenderResult, IsReturnedByRegistrationAndUnregistration) {
    for (const int result : kResults) {
        EngineOf<TypeParam> engine(kSilent);
        this->prepare(engine, result);
        EXPECT_EQ(engine.add({{"D"}, {"C"}}), result);
        EXPECT_EQ(engine.remove({"X"}), result);
        engine.reregister();
        EXPECT_THAT(this->calls, ElementsAre("register " + this->suffix + " D C", "unregister " + this->suffix,
                                             "register " + this->suffix + " A B C D"));
        EXPECT_EQ(engine.number(false), 4U) << "no result erases new entries";
    }
}

TYPED_TEST(SenderResult, OfZeroOrFourErasesTheEntries) {
    for (const int result : kResults) {
        SCOPED_TRACE(result);
        EngineOf<TypeParam> engine;
        this->prepare(engine, result);
        EXPECT_EQ(engine.remove({"B", "A"}), result);
        EXPECT_THAT(this->calls, ElementsAre("unregister " + this->suffix + " B A"));
        if (result == 0 || result == 4) {
            EXPECT_THAT(engine.table(), IsEmpty());
            EXPECT_EQ(engine.ids(), "");
        } else {
            EXPECT_EQ(engine.table(), this->rows);
            EXPECT_EQ(engine.ids(), "7=A");
            this->calls.clear();
            engine.removeAll();
            EXPECT_THAT(this->calls, ElementsAre("unregister " + this->suffix + " A B"));
            EXPECT_EQ(engine.table(), this->rows);
        }
    }
}

TYPED_TEST(SenderResult, IsNotRequestedByEmptyOrRefusedCalls) {
    EngineOf<TypeParam> engine(kSilent);
    this->prepare(engine, 5);
    EXPECT_EQ(engine.add({}), 0);
    EXPECT_EQ(engine.remove({}), 0);
    EXPECT_EQ(engine.publish({}), 0);
    EXPECT_EQ(engine.add({{"C"}, {"C"}}), 3);
    EXPECT_EQ(engine.add({{"C"}, {"A"}}), 3);
    EXPECT_EQ(engine.publish({parameter("X", 1, 1)}), 3);
    EXPECT_THAT(this->calls, IsEmpty());
}

using PublicationResult = SenderResult<Outputs>;

TEST_F(PublicationResult, IsReturnedAndKeepsTheValues) {
    for (const int result : kResults) {
        EngineOf<Outputs> engine;
        prepare(engine, result);
        EXPECT_EQ(engine.publish({parameter("B", 1, 2), parameter("A", 1, 1)}), result);
        EXPECT_THAT(calls, ElementsAre("publish mode 0 B A"));
        EXPECT_THAT(engine.outputTable(),
                    ElementsAre("A type 1 id 7 published 00000001", "B type 1 waiting published 00000002"));
    }
}

constexpr unsigned int kCount = 10'000;

template <typename Kind>
class LargeCalls : public ParameterTest<Kind> {
  protected:
    LargeCalls() {
        for (unsigned int i = 0; i < kCount; ++i) {
            names.push_back("P" + std::to_string(10'000 + i));
            definitions.push_back({names.back()});
        }
    }

    /// The requests are not printed, because they are long.
    void expectRequests(const Requests& expected) const { EXPECT_TRUE(this->engine.requests() == expected); }

    std::vector<std::string> names;  ///< "P10000" to "P19999": in name order and in number order.
    std::vector<Definition> definitions;
};
TYPED_TEST_SUITE(LargeCalls, Kinds, KindNames);

TYPED_TEST(LargeCalls, RegisterInOneRequestAndAgainInOne) {
    EXPECT_EQ(this->engine.add(this->definitions), 0);
    EXPECT_EQ(this->engine.unconfirmed(), 10'000);
    const Requests request = this->engine.request(this->definitions);
    this->expectRequests(request);
    this->engine.reregister();
    this->expectRequests(request + request);
    EXPECT_EQ(this->engine.unconfirmed(), 10'000);
}

TYPED_TEST(LargeCalls, AreRefusedAtTheirLastDefinitions) {
    struct Row {
        Definition last;
        std::string line;
        unsigned int kept;
    };
    const Row rows[] = {
        {{"P10000"}, "Parameter 'P10000' is requested more than once in the same subscription call.\n", 0},
        {{"P19998"}, "Parameter 'P19998' is requested more than once in the same subscription call.\n", 9'998},
        {{"P19999", 0}, TypeParam::invalidType("P19999"), 9'999},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.last.name);
        const CapturedStreams captured;
        EngineOf<TypeParam> fresh;
        this->definitions.back() = row.last;
        EXPECT_EQ(fresh.add(this->definitions), 3);
        EXPECT_EQ(captured.err(), row.line);
        EXPECT_EQ(fresh.number(false), row.kept);
        EXPECT_THAT(fresh.requests(), IsEmpty());
    }
}

TYPED_TEST(LargeCalls, UnregisterInOneRequest) {
    this->engine.add(this->definitions);
    EXPECT_EQ(this->engine.remove(this->names), 0);
    EXPECT_EQ(this->engine.number(false), 0U);
    this->engine.add(this->definitions);
    this->engine.removeAll();
    EXPECT_EQ(this->engine.number(false), 0U);
    this->engine.add(this->definitions);
    EXPECT_EQ(this->engine.remove(std::vector<std::string>(kCount, "P10000")), 0);
    EXPECT_EQ(this->engine.number(false), kCount - 1);
    const Requests each =
        this->engine.request(this->definitions) + this->engine.end(std::vector<unsigned int>(kCount, kUnassigned));
    this->expectRequests(each + each + each);
}

using LargePublication = LargeCalls<Outputs>;

TEST_F(LargePublication, IsOneRequestOrNone) {
    engine.add(definitions);
    engine.ignoreRequestsSoFar();
    std::vector<CSClient::Parameter> parameters;
    std::vector<SentValue> values;
    for (unsigned int i = 0; i < kCount; ++i) {
        parameters.push_back(parameter(names[i], 1, i));
        values.push_back({kUnassigned, 0, i});
    }
    EXPECT_EQ(engine.publish(parameters), 0);
    expectRequests(publication(values));
    const std::vector<std::string> table = engine.outputTable();
    for (CSClient::Parameter& each : parameters) {
        each = parameter(each.name, 1, 7);
    }
    parameters.back().name = "X";
    EXPECT_EQ(engine.publish(parameters), 3);
    EXPECT_EQ(streams.err(), "Unknown parameter ID: X\n");
    expectRequests(publication(values));
    EXPECT_TRUE(engine.outputTable() == table);
}

/// One thread publishes the output A. It waits in the write, with the lock of the tables, until the gate opens.
class BlockedWrite : public testing::Test {
  protected:
    BlockedWrite() {
        for (const char last : {'A', 'B', 'C', 'D'}) {
            engine.registerInputs({input(longName(last))});
            engine.registerOutputs({output(longName(last))});
        }
        engine.pretendState(CSClient::STATE_READY);
        engine.fakeTransport().onWrite = [this] {
            if (!isWriting.exchange(true)) {
                gate.pass();
            }
        };
        writer = std::thread([this] { engine.publish({parameter(longName('A'), 1, 5)}); });
    }
    ~BlockedWrite() override {
        gate.open();
        writer.join();
    }

    void SetUp() override { ASSERT_TRUE(gate.waitUntilReached()); }

    /// Runs each operation on a separate thread. None may end before the gate opens, and then all must end.
    void expectAllToWait(const std::vector<std::function<void()>>& operations) {
        std::atomic<std::size_t> ended{0};
        std::vector<std::thread> threads;
        for (const auto& operation : operations) {
            threads.emplace_back([&operation, &ended] {
                operation();
                ++ended;
            });
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        EXPECT_EQ(ended.load(), 0U);
        gate.open();
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(ended.load(), operations.size());
    }

    DerivedEngine engine{1, kSilent};
    Gate gate;
    std::atomic<bool> isWriting{false};
    std::thread writer;
};

TEST_F(BlockedWrite, LetsTheNamesOfInputsBeListed) {
    std::promise<std::vector<std::string>> listed;
    engine.onUnregisterInputs = [&listed](const std::vector<std::string>& names) { listed.set_value(names); };
    auto unregistering = std::async(std::launch::async, [this] { engine.unregisterAllInputParameters(); });
    auto names = listed.get_future();
    ASSERT_EQ(names.wait_for(kWaitBound), std::future_status::ready);
    EXPECT_THAT(names.get(), ElementsAre(longName('A'), longName('B'), longName('C'), longName('D')));
    EXPECT_EQ(unregistering.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout) << "it has to wait";
    gate.open();
    unregistering.get();
    EXPECT_THAT(engine.inputTable(), IsEmpty());
}

TEST_F(BlockedWrite, LetsEmptyCallsReturn) {
    const Stopwatch stopwatch;
    EXPECT_EQ(engine.registerInputs({}), 0);
    EXPECT_EQ(engine.registerOutputs({}), 0);
    EXPECT_EQ(engine.unregisterInputParameters({}), 0);
    EXPECT_EQ(engine.unregisterOutputParameters({}), 0);
    EXPECT_EQ(engine.publish({}), 0);
    EXPECT_LT(stopwatch.seconds(), 10) << "the gate opens after 20 seconds";
}

TEST_F(BlockedWrite, LetsAllUsersOfTheTablesWait) {
    const std::string name = longName('A');
    expectAllToWait({
        [&] { engine.getNumberOfInputParameters(false); },
        [&] { engine.getNumberOfOutputParameters(true); },
        [&] { engine.getNumberOfInputParametersWaitingForConfirmation(); },
        [&] { engine.getNumberOfOutputParametersWaitingForConfirmation(); },
        [&] { engine.hasInputParameter(name, false); },
        [&] { engine.hasOutputParameter(name, true); },
        [&] {
            CSClient::Parameter found;
            EXPECT_TRUE(engine.findPublishedParameter(name, found));
            EXPECT_EQ(bitsOf(found.value), 5U) << "stored before the write";
        },
        [&] {
            std::vector<CSClient::Parameter> all;
            engine.getAllPublishedParameters(all);
        },
        [&] { engine.registerInputs({input("N")}); },
        [&] { engine.registerOutputs({output("N")}); },
        [&] { engine.unregisterOutputParameters({"X"}); },
        [&] { engine.unregisterInputParameters({"X"}); },
        [&] { engine.reregisterAllInputParameters(); },
        [&] { engine.reregisterAllOutputParameters(); },
        [&] { engine.publish({parameter(name, 1, 5)}); },
        [&] {
            engine.receive(outputsConfirmed({{7, name}}));
        },
    });
}

// A separate test, because only one thread, the worker, receives frames.
TEST_F(BlockedWrite, LetsAConfirmationOfInputsWait) {
    expectAllToWait({[this] { engine.receive(inputsConfirmed({{7, longName('A')}})); }});
}

}  // namespace
}  // namespace com_tesk::test
