#include <gtest/gtest.h>

#include <functional>
#include <iostream>
#include <streambuf>

#include "tests/simulator/SimulatorFixture.h"
#include "tests/support/ParameterKinds.h"

namespace com_tesk::test {
namespace {

using Records = std::vector<IdAndName>;

/// The confirmations of inputs and of outputs. The value of a confirmed input is its id, as an integer.
template <typename Kind>
class Confirmation : public ::testing::Test {
  protected:
    Confirmation() { engine.addCallbackInterface(&callbacks); }

    /// Adds an entry whose name a registration refuses.
    void addUnchecked(const std::string& name) {
        if constexpr (kIsOfInputs) {
            auto* const entry = new InputEntry(InputEntry::of(input(name)));
            engine.inputsByName()[entry->name] = entry;
        } else {
            auto* const entry = new OutputEntry(OutputEntry::of(output(name)));
            engine.outputsByName()[entry->name] = entry;
        }
    }

    static std::string message(unsigned int announced, const Records& records) {
        std::vector<std::string> texts;
        for (const auto& [id, name] : records) {
            texts.push_back(kIsOfInputs ? confirmedInput(id, 1, hexWord(id), name) : confirmedOutput(id, name));
        }
        return kIsOfInputs ? inputConfirmation(announced, texts) : outputConfirmation(announced, texts);
    }

    /// Returns the callbacks for a message that confirms these records.
    Lines confirm(const Records& records) {
        engine.receive(message(static_cast<unsigned int>(records.size()), records));
        return callbacks.newLines();
    }

    /// Returns the callbacks for these records.
    static Lines callbacksFor(const Records& records) {
        Lines lines = kIsOfInputs ? Lines{"inputs confirmed", "updated"} : Lines{"outputs confirmed"};
        for (const auto& [id, name] : records) {
            lines[0] += ' ' + name;
            if (kIsOfInputs) {
                lines[1] += ' ' + name + "=int:" + std::to_string(static_cast<int>(id));
            }
        }
        return lines;
    }

    /// Returns the lines printed for records of unknown names. Unknown inputs are not reported.
    static std::string reportOf(const Records& records) {
        std::string lines;
        for (const auto& [id, name] : records) {
            lines += kIsOfInputs ? "" : "Parameter not found: " + name + '(' + std::to_string(id) + ")\n";
        }
        return lines;
    }

    /// Returns the id of each entry, for example "A=7 B=9".
    std::string idsOfEntries() const {
        std::string text;
        for (const std::string& row : engine.table()) {
            const std::string name = row.substr(0, row.find(' '));
            const std::size_t id = row.find(" id ");
            text += (text.empty() ? "" : " ") + name + '=';
            text += id == std::string::npos ? "waiting" : row.substr(id + 4, row.find(' ', id + 4) - id - 4);
        }
        return text;
    }

    static constexpr bool kIsOfInputs = std::is_same_v<Kind, Inputs>;

    CapturedStreams streams;
    KeepingCallbacks callbacks;
    EngineOfKind<Kind> engine;
};
TYPED_TEST_SUITE(Confirmation, Kinds, KindNames);

TYPED_TEST(Confirmation, StoresTheIdsAndCallsTheInterfacesInTheOrderOfTheMessage) {
    this->engine.registerInputs({input("A", 1, 1), input("B", 2, 2), input("C", 5, ~0U)});
    this->engine.registerOutputs({output("A", 1), output("B", 2), output("C", 5)});
    this->engine.ignoreRequestsSoFar();
    const Records records = {{9, "B"}, {8, "C"}, {7, "A"}};
    EXPECT_EQ(this->confirm(records), this->callbacksFor(records));
    EXPECT_EQ(this->callbacks.definitions,
              TestFixture::kIsOfInputs ? (Lines{"B type 2 mode 2", "C type 5 mode 4294967295", "A type 1 mode 1"})
                                       : (Lines{"B type 2", "C type 5", "A type 1"}));
    EXPECT_EQ(this->idsOfEntries(), "A=7 B=9 C=8");
    EXPECT_EQ(this->engine.ids(), "7=A 8=C 9=B");
    EXPECT_TRUE(this->engine.has("A", true));
    EXPECT_EQ(this->engine.number(true), 3U);
    EXPECT_EQ(this->engine.unconfirmed(), 0);
    EXPECT_EQ(this->engine.requests(), Lines{});
    EXPECT_EQ(this->streams.out() + this->streams.err(), "");
}

TYPED_TEST(Confirmation, HasTheWholeRecordsUpToItsCount) {
    // A reader of zeros past the end would find the empty name.
    this->engine.add({{""}, {"A"}, {"B"}});
    const Records both = {{7, "A"}, {8, "B"}};
    const std::string two = this->message(2, both);
    const std::pair<std::string, Records> rows[] = {
        {this->message(0, both), {}},
        {this->message(0xFFFFFFFF, {}), {}},
        {this->message(1, both), {{7, "A"}}},
        {firstBytes(two, hex(two).size() - 1), {{7, "A"}}},
        {this->message(0xFFFFFFFF, both), both},
    };
    for (const auto& [body, records] : rows) {
        this->engine.receive(body);
        EXPECT_EQ(this->callbacks.newLines(), this->callbacksFor(records));
        EXPECT_EQ(this->engine.ids(), records.empty() ? "" : records.size() == 1 ? "7=A" : "7=A 8=B");
    }
    EXPECT_EQ(this->streams.out() + this->streams.err(), "");
}

TYPED_TEST(Confirmation, UnknownNamesAreLeftOut) {
    const std::string otherKind = "a parameter of the other kind";
    const std::string wholeField(32, 'x');
    TestFixture::kIsOfInputs ? this->engine.registerOutputs({output(otherKind)})
                             : this->engine.registerInputs({input(otherKind)});
    this->engine.add({{"A"}, {"B"}, {"C"}});
    this->engine.remove({"C"});
    const Records unknown = {{6, "a"}, {7, "C"}, {8, otherKind}, {0xFFFFFFFF, "X"}, {0, ""}, {5, wholeField}};
    Records records = unknown;
    records.insert(records.begin() + 1, {9, "A"});
    records.insert(records.begin() + 3, {10, "B"});
    EXPECT_EQ(this->confirm(records), this->callbacksFor({{9, "A"}, {10, "B"}}));
    EXPECT_EQ(this->streams.err(), this->reportOf(unknown));
    EXPECT_EQ(this->streams.errInsertions(), TestFixture::kIsOfInputs ? 0 : 6);
    EXPECT_EQ(this->streams.out(), "");
    EXPECT_EQ(this->engine.inputIds() + this->engine.outputIds(), "9=A 10=B");
    EXPECT_EQ(this->engine.number(false), 2U);
    EngineOfKind<TypeParam> silent(kSilent);
    silent.addCallbackInterface(&this->callbacks);
    silent.add({{"B"}});
    silent.receive(this->message(2, {{7, "X"}, {10, "B"}}));
    EXPECT_EQ(this->streams.err(), this->reportOf(unknown)) << "printed although silent";
    EXPECT_EQ(this->callbacks.newLines(), this->callbacksFor({{10, "B"}}));
}

TYPED_TEST(Confirmation, RepeatedIdNamesTheLastEntryAndRepeatedNameTakesTheLastId) {
    this->engine.add({{"A"}, {"B"}});
    EXPECT_EQ(this->confirm({{7, "A"}, {7, "B"}}), this->callbacksFor({{7, "A"}, {7, "B"}}));
    EXPECT_EQ(this->idsOfEntries(), "A=7 B=7");
    EXPECT_EQ(this->engine.ids(), "7=B");
    EXPECT_EQ(this->engine.unconfirmed(), 1);
    EXPECT_EQ(this->confirm({{8, "A"}, {9, "A"}}), this->callbacksFor({{8, "A"}, {9, "A"}}));
    EXPECT_EQ(this->idsOfEntries(), "A=9 B=7");
    EXPECT_EQ(this->engine.ids(), "7=B 8=A 9=A");
}

TYPED_TEST(Confirmation, ChangedIdReplacesTheEntrysAndTheOldOneStays) {
    this->engine.add({{"A"}});
    this->confirm({{7, "A"}});
    this->confirm({{9, "A"}});
    EXPECT_EQ(this->idsOfEntries(), "A=9");
    EXPECT_EQ(this->engine.ids(), "7=A 9=A");
    EXPECT_EQ(this->engine.unconfirmed(), -1);
    // The old id stays counted after its entry, until the host assigns it again.
    this->engine.remove({"A"});
    EXPECT_EQ(this->engine.number(true), 1U);
    EXPECT_EQ(this->engine.number(false), 0U);
    this->engine.add({{"B"}});
    this->engine.removeCallbackInterface(&this->callbacks);  // An entry is confirmed without an interface, too.
    this->confirm({{7, "B"}});
    EXPECT_EQ(this->engine.ids(), "7=B");
}

TYPED_TEST(Confirmation, IdsAreTakenAsTheyAre) {
    this->engine.add({{"A"}, {"B"}, {"C"}});
    this->confirm({{0, "A"}, {0xFFFFF, "B"}, {0xFFFFFFFF, "C"}});
    EXPECT_EQ(this->engine.ids(), "0=A 1048575=B 4294967295=C");
    EXPECT_EQ(this->idsOfEntries(), "A=0 B=waiting C=4294967295");
    EXPECT_TRUE(this->engine.has("A", true));
    // This id marks an entry that waits. The two definitions of "confirmed" differ.
    EXPECT_FALSE(this->engine.has("B", true));
    EXPECT_EQ(this->engine.number(true), 3U);
}

TYPED_TEST(Confirmation, NameEndsAtItsFirstZeroOrFillsItsField) {
    const std::string withZero("B\0C", 3);
    const std::string wholeField(32, 'n');
    this->addUnchecked(wholeField);
    this->engine.add({{""}, {"A"}, {withZero}, {kName31}});
    // The id of the record after the whole field is four more of the same letter.
    EXPECT_EQ(
        this->confirm({{7, wholeField}, {0x6E6E6E6E, std::string("A\0Z", 3)}, {1, withZero}, {2, ""}, {3, kName31}}),
        this->callbacksFor({{7, wholeField}, {0x6E6E6E6E, "A"}, {2, ""}, {3, kName31}}));
    EXPECT_EQ(this->engine.ids(), "2= 3=" + kName31 + " 7=" + wholeField + " 1852730990=A");
    EXPECT_EQ(this->streams.out() + this->streams.err(), this->reportOf({{1, "B"}}));
}

using OutputConfirmation = SimulatorFixture;

/// Records at each write whether the writing thread has the parameter mutex.
class LockObserver : public std::streambuf {
  public:
    explicit LockObserver(const TestEngine& observedEngine) : engine(observedEngine) {}
    std::vector<bool> held;

  protected:
    std::streamsize xsputn(const char* /*characters*/, std::streamsize count) override {
        held.push_back(engine.holdsParameterMutex());
        return count;
    }

  private:
    const TestEngine& engine;
};

TEST_F(OutputConfirmation, ReportsUnknownNamesUnderTheParameterMutexBeforeTheCallbacks) {
    LockObserver observer(engine);
    callbacks.onLine = [&](const std::string&) { EXPECT_EQ(observer.held, std::vector<bool>{true}); };
    std::streambuf* const captured = std::cerr.rdbuf(&observer);
    engine.receive(outputsConfirmed({{7, "X"}}));
    std::cerr.rdbuf(captured);
    EXPECT_EQ(newCallbacks(), Lines{"outputs confirmed"});
}

/// Three integer outputs P, Q and R that wait for their confirmation, the first two published.
class PublishAgain : public SimulatorFixture {
  protected:
    PublishAgain() { registerAll(); }

    void registerAll() {
        engine.unregisterAllLocalParameters();
        engine.registerOutputs(
            {output("P", CSClient::TYPE_INT), output("Q", CSClient::TYPE_INT), output("R", CSClient::TYPE_INT)});
        engine.publish({intParameter("P", 1), intParameter("Q", -2)});
        engine.ignoreRequestsSoFar();
    }

    void confirmAll() { engine.receive(outputsConfirmed({{9, "R"}, {8, "Q"}, {7, "P"}})); }

    const std::string p = publication({{7, 1}});
    const std::string qAndP = publication({{8, 0xFFFFFFFE}, {7, 1}});
};

TEST_F(PublishAgain, SendsThePublishedOutputsInTheOrderOfTheMessage) {
    const std::pair<std::vector<IdAndName>, Lines> rows[] = {
        {{{9, "R"}, {8, "Q"}, {7, "P"}}, {qAndP}},
        {{{7, "P"}}, {p}},
        {{{7, "P"}, {9, "R"}}, {p}},
        {{{9, "R"}}, {}},
        {{}, {}},
        {{{7, "P"}, {6, "P"}}, {publication({{6, 1}, {6, 1}})}},  // A repeated name is sent twice under its last id.
    };
    for (const bool hasInterface : {true, false}) {
        for (const auto& [records, expected] : rows) {
            engine.receive(outputsConfirmed(records));
            EXPECT_EQ(newRequests(engine), expected);
        }
        if (hasInterface) {
            engine.removeCallbackInterface(&callbacks);
        }
    }
}

TEST_F(PublishAgain, SendsTheOutputsAsTheCallbacksLeaveThem) {
    struct Row {
        const char* name;
        std::function<void()> action;
        Lines requests;
    };
    const auto registerAgain = [this](const std::string& name) {
        engine.unregisterOutputParameters({name});
        engine.registerOutputs({output(name, CSClient::TYPE_INT)});
        engine.ignoreRequestsSoFar();
    };
    const Row rows[] = {
        {"unregister Q",
         [this] { engine.unregisterOutputParameters({"Q"}); },
         {"04 02 7F FF 00 00 00 18 00 7F 00 05 00 05 00 00 00 00 00 01 00 00 00 08", p}},
        {"unregister all",
         [this] { engine.unregisterAllOutputParameters(); },
         {"04 02 7F FF 00 00 00 20 00 7F 00 05 00 05 00 00 00 00 00 03 00 00 00 07 00 00 00 08 00 00 00 09"}},
        {"register Q again, which is then unpublished", [&] { registerAgain("Q"); }, {p}},
        {"register P again, which then waits, and publish it",
         [&] {
             registerAgain("P");
             engine.publish({intParameter("P", 3)});
         },
         {publication({{0xFFFFF, 3}}), publication({{8, 0xFFFFFFFE}, {0xFFFFF, 3}})}},
        {"publish P",
         [this] { engine.publish({intParameter("P", 42)}); },
         {publication({{7, 42}}), publication({{8, 0xFFFFFFFE}, {7, 42}})}},
        {"publish R for the first time",
         [this] { engine.publish({intParameter("R", 42)}); },
         {publication({{9, 42}}), qAndP}},
        {"end the connection", [this] { engine.forceCloseConnection(); }, {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        registerAll();
        callbacks.onLine = [&row](const std::string& line) {
            if (line == "outputs confirmed R Q P") {
                row.action();
            }
        };
        confirmAll();
        EXPECT_EQ(engine.requests(), row.requests);
        EXPECT_EQ(streams.err(), "");
    }
}

TEST_F(PublishAgain, FailedWriteGivesOneLineAndOneClose) {
    engine.fakeTransport().failWrites(-1, 32);
    confirmAll();
    EXPECT_EQ(streams.err(), "Error writing to server (32) \n");
    EXPECT_EQ(newCallbacks(), (Lines{"outputs confirmed R Q P", "state 4->3"}));
    EXPECT_EQ(engine.getState(), CSClient::STATE_DISCONNECTING);
}

TEST_F(PublishAgain, UsesTheVirtualSenderWithModeZero) {
    Lines sent;
    engine.onSend = [&sent](const std::string& call) {
        sent.push_back(call);
        return 0;
    };
    engine.receive(outputsConfirmed({{8, "Q"}, {7, "P"}}));
    EXPECT_EQ(sent, Lines{"publish mode 0 Q P"});
}

}  // namespace
}  // namespace com_tesk::test
