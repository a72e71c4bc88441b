#include <gtest/gtest.h>

#include "tests/simulator/SimulatorFixture.h"

namespace com_tesk::test {
namespace {

/// The confirmations of inputs and of outputs. The value of a confirmed input is its id, as an integer.
class Confirmation : public SimulatorFixture, public ::testing::WithParamInterface<bool> {
  protected:
    using Records = std::vector<IdAndName>;

    static bool isOfInputs() { return GetParam(); }

    void add(const std::vector<std::string>& names) {
        for (const std::string& name : names) {
            EXPECT_EQ(isOfInputs() ? engine.registerInputs({input(name)}) : engine.registerOutputs({output(name)}), 0);
        }
    }

    /// Adds an entry whose name a registration refuses.
    void addUnchecked(const std::string& name) {
        if (isOfInputs()) {
            auto* const entry = new InputEntry(InputEntry::of(input(name)));
            engine.inputsByName()[entry->name] = entry;
        } else {
            auto* const entry = new OutputEntry(OutputEntry::of(output(name)));
            engine.outputsByName()[entry->name] = entry;
        }
    }

    void remove(const std::string& name) {
        EXPECT_EQ(isOfInputs() ? engine.unregisterInputParameters({name}) : engine.unregisterOutputParameters({name}),
                  0);
    }

    static std::string message(unsigned int announced, const Records& records) {
        std::vector<std::string> texts;
        for (const auto& [id, name] : records) {
            texts.push_back(isOfInputs() ? confirmedInput(id, 1, hexWord(id), name) : confirmedOutput(id, name));
        }
        return isOfInputs() ? inputConfirmation(announced, texts) : outputConfirmation(announced, texts);
    }

    void confirm(const Records& records) {
        engine.receive(message(static_cast<unsigned int>(records.size()), records));
    }

    /// Returns the callbacks for these records.
    static Lines callbacksFor(const Records& records) {
        Lines lines = isOfInputs() ? Lines{"inputs confirmed", "updated"} : Lines{"outputs confirmed"};
        for (const auto& [id, name] : records) {
            lines[0] += ' ' + name;
            if (isOfInputs()) {
                lines[1] += ' ' + name + "=int:" + std::to_string(static_cast<int>(id));
            }
        }
        return lines;
    }

    /// Returns the lines printed for records of unknown names. Unknown inputs are not reported.
    static std::string reportOf(const Records& records) {
        std::string lines;
        for (const auto& [id, name] : records) {
            lines += isOfInputs() ? "" : "Parameter not found: " + name + '(' + std::to_string(id) + ")\n";
        }
        return lines;
    }

    /// Returns the entry of each known id, for example "7=A 9=B".
    std::string ids() const { return isOfInputs() ? engine.inputIds() : engine.outputIds(); }

    /// Returns the id of each entry, for example "A=7 B=9".
    std::string idsOfEntries() const {
        std::string text;
        const auto append = [&text](const auto& table) {
            for (const auto& [name, entry] : table) {
                text += (text.empty() ? "" : " ") + std::string(name) + '=' + std::to_string(entry->serverId);
            }
        };
        isOfInputs() ? append(engine.inputsByName()) : append(engine.outputsByName());
        return text;
    }

    bool isConfirmed(const std::string& name) const {
        return isOfInputs() ? engine.hasInputParameter(name, true) : engine.hasOutputParameter(name, true);
    }
    unsigned int count(bool confirmed) const {
        return isOfInputs() ? engine.getNumberOfInputParameters(confirmed)
                            : engine.getNumberOfOutputParameters(confirmed);
    }
    int waitingCount() const {
        return isOfInputs() ? engine.getNumberOfInputParametersWaitingForConfirmation()
                            : engine.getNumberOfOutputParametersWaitingForConfirmation();
    }
};

INSTANTIATE_TEST_SUITE_P(Of, Confirmation, ::testing::Bool(),
                         [](const auto& instance) { return instance.param ? "Inputs" : "Outputs"; });

TEST_P(Confirmation, StoresTheIdsAndCallsTheInterfacesInTheOrderOfTheMessage) {
    engine.registerInputs({input("A", CSClient::TYPE_FLOAT, 1), input("B", CSClient::TYPE_INT, 2), input("C", 5, ~0U)});
    engine.registerOutputs({output("A", CSClient::TYPE_FLOAT), output("B", CSClient::TYPE_INT), output("C", 5)});
    engine.ignoreRequestsSoFar();
    confirm({{9, "B"}, {8, "C"}, {7, "A"}});
    EXPECT_EQ(newCallbacks(), callbacksFor({{9, "B"}, {8, "C"}, {7, "A"}}));
    EXPECT_EQ(callbacks.definitions, isOfInputs()
                                         ? (Lines{"B type 2 mode 2", "C type 5 mode 4294967295", "A type 1 mode 1"})
                                         : (Lines{"B type 2", "C type 5", "A type 1"}));
    EXPECT_EQ(idsOfEntries(), "A=7 B=9 C=8");
    EXPECT_EQ(ids(), "7=A 8=C 9=B");
    EXPECT_TRUE(isConfirmed("A"));
    EXPECT_EQ(count(true), 3U);
    EXPECT_EQ(waitingCount(), 0);
    EXPECT_EQ(engine.requests(), Lines{});
    EXPECT_EQ(printed(), "");
}

TEST_P(Confirmation, HasTheWholeRecordsUpToItsCount) {
    // A reader of zeros past the end would find the empty name.
    add({"", "A", "B"});
    const Records both = {{7, "A"}, {8, "B"}};
    engine.receive(message(0, both));
    EXPECT_EQ(newCallbacks(), callbacksFor({}));
    engine.receive(message(0xFFFFFFFF, {}));
    EXPECT_EQ(newCallbacks(), callbacksFor({}));
    engine.receive(message(1, both));
    EXPECT_EQ(newCallbacks(), callbacksFor({{7, "A"}}));
    engine.receive(firstBytes(message(2, both), hex(message(2, both)).size() - 1));
    EXPECT_EQ(newCallbacks(), callbacksFor({{7, "A"}}));
    EXPECT_EQ(ids(), "7=A");
    engine.receive(message(0xFFFFFFFF, both));
    EXPECT_EQ(newCallbacks(), callbacksFor(both));
    EXPECT_EQ(ids(), "7=A 8=B");
    EXPECT_EQ(printed(), "");
}

TEST_P(Confirmation, UnknownNamesAreLeftOut) {
    const std::string otherKind = "a parameter of the other kind";
    const std::string wholeField(32, 'x');
    isOfInputs() ? engine.registerOutputs({output(otherKind)}) : engine.registerInputs({input(otherKind)});
    add({"A", "B", "C"});
    remove("C");
    const Records unknown = {{6, "a"}, {7, "C"}, {8, otherKind}, {0xFFFFFFFF, "X"}, {0, ""}, {5, wholeField}};
    Records records = unknown;
    records.insert(records.begin() + 1, {9, "A"});
    records.insert(records.begin() + 3, {10, "B"});
    confirm(records);
    EXPECT_EQ(newCallbacks(), callbacksFor({{9, "A"}, {10, "B"}}));
    EXPECT_EQ(streams.err(), reportOf(unknown));
    EXPECT_EQ(streams.errInsertions(), isOfInputs() ? 0 : 6);
    EXPECT_EQ(streams.out(), "");
    EXPECT_EQ(engine.inputIds() + engine.outputIds(), "9=A 10=B");
    EXPECT_EQ(count(false), 2U);
}

TEST_P(Confirmation, RepeatedIdNamesTheLastEntryAndRepeatedNameTakesTheLastId) {
    add({"A", "B"});
    confirm({{7, "A"}, {7, "B"}});
    EXPECT_EQ(newCallbacks(), callbacksFor({{7, "A"}, {7, "B"}}));
    EXPECT_EQ(idsOfEntries(), "A=7 B=7");
    EXPECT_EQ(ids(), "7=B");
    EXPECT_EQ(waitingCount(), 1);
    confirm({{8, "A"}, {9, "A"}});
    EXPECT_EQ(newCallbacks(), callbacksFor({{8, "A"}, {9, "A"}}));
    EXPECT_EQ(idsOfEntries(), "A=9 B=7");
    EXPECT_EQ(ids(), "7=B 8=A 9=A");
}

TEST_P(Confirmation, ChangedIdReplacesTheEntrysAndTheOldOneStays) {
    add({"A"});
    confirm({{7, "A"}});
    confirm({{9, "A"}});
    EXPECT_EQ(idsOfEntries(), "A=9");
    EXPECT_EQ(ids(), "7=A 9=A");
    EXPECT_EQ(waitingCount(), -1);
    // The old id stays counted after its entry, until the host assigns it again.
    remove("A");
    EXPECT_EQ(count(true), 1U);
    EXPECT_EQ(count(false), 0U);
    add({"B"});
    engine.removeCallbackInterface(&callbacks);  // An entry is confirmed without an interface, too.
    confirm({{7, "B"}});
    EXPECT_EQ(ids(), "7=B");
}

TEST_P(Confirmation, IdsAreTakenAsTheyAre) {
    add({"A", "B", "C"});
    confirm({{0, "A"}, {0xFFFFF, "B"}, {0xFFFFFFFF, "C"}});
    EXPECT_EQ(ids(), "0=A 1048575=B 4294967295=C");
    EXPECT_EQ(idsOfEntries(), "A=0 B=1048575 C=4294967295");
    EXPECT_TRUE(isConfirmed("A"));
    // This id marks an entry that waits. The two definitions of "confirmed" differ.
    EXPECT_FALSE(isConfirmed("B"));
    EXPECT_EQ(count(true), 3U);
}

TEST_P(Confirmation, NameEndsAtItsFirstZeroOrFillsItsField) {
    const std::string withZero("B\0C", 3);
    const std::string wholeField(32, 'n');
    addUnchecked(wholeField);
    add({"", "A", withZero, kName31});
    // The id of the record after the whole field is four more of the same letter.
    confirm({{7, wholeField}, {0x6E6E6E6E, std::string("A\0Z", 3)}, {1, withZero}, {2, ""}, {3, kName31}});
    EXPECT_EQ(newCallbacks(), callbacksFor({{7, wholeField}, {0x6E6E6E6E, "A"}, {2, ""}, {3, kName31}}));
    EXPECT_EQ(ids(), "2= 3=" + kName31 + " 7=" + wholeField + " 1852730990=A");
    EXPECT_EQ(printed(), reportOf({{1, "B"}}));
}

}  // namespace
}  // namespace com_tesk::test
