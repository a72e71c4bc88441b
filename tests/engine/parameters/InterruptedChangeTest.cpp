// Changes to ready that a blocked write delays, that a failed write ends, or that a derived protocol does not make.

#include <cerrno>
#include <chrono>
#include <future>

#include "tests/engine/parameters/ReadyChange.h"

namespace com_tesk::test {
namespace {

const Requests kI = inputRequest({input("I")});
const Requests kO = outputRequest({output("O")});
const Requests kX = inputRequest({input("X")});
const Requests kY = outputRequest({output("Y")});
const Requests kOAndY = outputRequest({output("O"), output("Y")});
const Requests kPublication = publicationOf(7);

int registerX(TestEngine& engine) {
    return engine.registerInputs({input("X")});
}
int registerOutputY(TestEngine& engine) {
    return engine.registerOutputs({output("Y")});
}
int unregisterI(TestEngine& engine) {
    return engine.unregisterInputParameters({"I"});
}
int unregisterO(TestEngine& engine) {
    return engine.unregisterOutputParameters({"O"});
}

/// Another thread calls `operation` while the re-registration waits in a write.
struct BlockedRow {
    const char* name;
    const char* place;
    bool hasInput;
    bool hasOutput;
    int (*operation)(TestEngine&);
    std::vector<Requests> expected;  ///< The possible orders of the requests after the version request.
};

const BlockedRow kBlockedRows[] = {
    {"InputsByAnInput", kSecondWrite, true, false, registerX, {kI + kX}},
    {"InputsByAnOutput", kSecondWrite, true, false, registerOutputY, {kI + kY}},
    {"InputsByUnregistration", kSecondWrite, true, false, unregisterI, {kI + inputEnd({kUnassigned})}},
    {"BothByPublication", kSecondWrite, true, true, publishO, {kI + kO + kPublication, kI + kPublication + kO}},
    {"BothByAnInput", kSecondWrite, true, true, registerX, {kI + kX + kO, kI + kO + kX}},
    {"BothByAnOutput", kSecondWrite, true, true, registerOutputY, {kI + kO + kY, kI + kOAndY}},
    {"OutputsByAnInput", kSecondWrite, false, true, registerX, {kO + kX}},
    {"OutputsByAnOutput", kThirdWrite, true, true, registerOutputY, {kI + kO + kY}},
    {"OutputsByPublication", kSecondWrite, false, true, publishO, {kO + kPublication}},
    {"OutputsByUnregistration", kSecondWrite, false, true, unregisterO, {kO + outputEnd({7})}},
};

class BlockedReregistration : public ReadyChange, public testing::WithParamInterface<BlockedRow> {};
INSTANTIATE_TEST_SUITE_P(Of, BlockedReregistration, testing::ValuesIn(kBlockedRows),
                         [](const auto& information) { return information.param.name; });

TEST_P(BlockedReregistration, DelaysOtherThreadsAndLosesNothing) {
    registerBefore(GetParam().hasInput, GetParam().hasOutput);
    stopAt(GetParam().place);
    auto result = std::async(std::launch::async, [this] { return GetParam().operation(engine); });
    EXPECT_EQ(result.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout) << "it has to wait";
    finish();
    ASSERT_EQ(result.wait_for(kWaitBound), std::future_status::ready);
    EXPECT_EQ(result.get(), 0);
    const std::vector<std::string> sent = engine.requests();
    ASSERT_FALSE(sent.empty());
    EXPECT_EQ(sent[0], versionRequest()[0]);
    EXPECT_THAT(GetParam().expected, testing::Contains(Requests(sent.begin() + 1, sent.end())));
}

class LostChange : public ReadyChange, public testing::WithParamInterface<const char*> {};
INSTANTIATE_TEST_SUITE_P(At, LostChange,
                         testing::Values(kConnectedCallback, kReadyCallback, kVersionWrite, kAfterVersion),
                         [](const auto& information) { return information.param; });

TEST_P(LostChange, LeavesRegistrationsToTheNextConnection) {
    registerBefore(true, false);
    stopAt(GetParam());
    // The write of the version request fails, or the next one when that is complete.
    engine.fakeTransport().failWrites(-1, ECONNRESET);
    registerBoth();
    finish();
    EXPECT_EQ(engine.requests(), GetParam() == kAfterVersion ? versionRequest() : Requests());
    EXPECT_EQ(engine.getState(), CSClient::STATE_CONNECTING);
    engine.ignoreRequestsSoFar();
    engine.connect();
    EXPECT_EQ(engine.requests(), versionRequest() + inputRequest({input("I"), input("X")}) + kY);
    EXPECT_EQ(engine.registerOutputs({output("O")}), 0) << "sent at once";
    EXPECT_EQ(engine.requests().back(), kO[0]);
}

/// A derived protocol that does not handle the change to 4, or to 2. Another thread registers in the callbacks.
struct UnhandledRow {
    const char* name;
    CSClient::State unhandled;
    const char* line;
    bool hasInput;
    bool hasOutput;
    bool areBothRegistered;
    Requests expected;
};

const UnhandledRow kUnhandledRows[] = {
    {"SendsOnceWhatWasRegisteredIn2", CSClient::STATE_READY, "state 1->2", false, false, true, kX + kY},
    {"SendsOnceWhatWasRegisteredIn4", CSClient::STATE_READY, "state 2->4", false, false, true, kX + kY},
    {"To2SendsOnceWhatWasRegistered", CSClient::STATE_CONNECTED, "state 1->2", false, false, true, kX + kY},
    {"SendsNoEarlierParameters", CSClient::STATE_READY, "no line", true, true, false, {}},
    {"SendsOnlyTheKindThatWasRegistered", CSClient::STATE_READY, "state 2->4", true, false, false, kY},
};

class UnhandledChange : public ReadyChange, public testing::WithParamInterface<UnhandledRow> {};
INSTANTIATE_TEST_SUITE_P(Of, UnhandledChange, testing::ValuesIn(kUnhandledRows),
                         [](const auto& information) { return information.param.name; });

TEST_P(UnhandledChange, SendsOnlyWhatWasRegisteredMeanwhile) {
    const UnhandledRow& row = GetParam();
    registerBefore(row.hasInput, row.hasOutput);
    engine.onState = [&row](CSClient::State newState, const std::function<void()>& handle) {
        if (newState != row.unhandled) {
            handle();
        }
    };
    callbacks.onLine = [this, &row](const std::string& line) {
        if (line == row.line) {
            std::thread([this, &row] {
                row.areBothRegistered ? registerBoth() : void(registerOutputY(engine));
            }).join();
        }
    };
    engine.connect();
    EXPECT_EQ(engine.getState(), row.unhandled);
    EXPECT_EQ(engine.requests(), row.expected);
    EXPECT_EQ(engine.registerInputs({input("Z")}), 0);
    EXPECT_EQ(engine.requests(), row.expected + inputRequest({input("Z")})) << "sent at once";
}

}  // namespace
}  // namespace com_tesk::test
