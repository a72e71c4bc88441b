// Makes every allocation of every operation fail once.

#include <gmock/gmock.h>

#include <memory>
#include <new>
#include <set>
#include <string>
#include <tuple>

#include "tests/reliability/MemoryFixture.h"
#include "tests/support/Allocations.h"

namespace com_tesk::test {

namespace {

constexpr int kAllGranted = 1'000'000;

struct Outcome {
    bool threw = false;
    bool succeeded = false;
    bool memoryFailed = false;
    std::string printed;
    std::string written;
    std::string state;
};

Outcome run(MemoryFixture& fixture, const MemoryOperation& operation, int granted, FailingMemory::Kind kind) {
    Outcome outcome;
    outcome.printed.reserve(4096);
    fixture.transport->written.clear();
    {
        const RedirectedStreams printed(
            [&outcome](const char* text, std::size_t size) { outcome.printed.append(text, size); });
        const FailingMemory memory(granted, kind);
        try {
            outcome.succeeded = operation.call(fixture);
        } catch (const std::bad_alloc&) {
            outcome.threw = true;
        }
        outcome.memoryFailed = memory.hasFailed();
    }
    // The operation may have ended before its write.
    fixture.transport->failNextWrite = false;
    outcome.written = fixture.transport->written;
    outcome.state = fixture.state();
    return outcome;
}

/// Returns the same lines for a connection that ends for lack of memory instead of at the host's end.
std::string withReadError(std::string lines) {
    const std::string closed = "Connection closed by server.";
    const std::size_t position = lines.find(closed);
    return position == std::string::npos ? lines : lines.replace(position, closed.size(), "EXIT: Read error.");
}

/// Expects that no lock is still held and that every table works. Leaves everything as it was.
void expectWorkingEngine(MemoryEngine& engine) {
    // This thread would not notice a lock of its own below.
    ASSERT_FALSE(engine.holdsAnyLock());
    ASSERT_TRUE(engine.waitForStateChange());
    const CSClient::InputDef input{"probe", CSClient::TYPE_INT, 1};
    const CSClient::OutputDef output{"probe", CSClient::TYPE_INT};
    const CSClient::Parameter value = intParameter("probe", 0);
    EXPECT_EQ(engine.registerInputParameters(&input, 1), 0);
    EXPECT_EQ(engine.registerOutputParameters(&output, 1), 0);
    EXPECT_EQ(engine.publishParameters(&value, 1, CSClientProtocol::PUBLISH_DEFAULT), 0);
    EXPECT_TRUE(engine.hasInputParameter("probe", false));
    EXPECT_EQ(engine.unregisterInputParameters({"probe"}), 0);
    EXPECT_EQ(engine.unregisterOutputParameters({"probe"}), 0);
    CountingCallbacks callbacks;
    EXPECT_EQ(engine.addCallbackInterface(&callbacks), 1U);
    EXPECT_EQ(engine.removeCallbackInterface(&callbacks), 0);
    engine.getServerVersion();
}

/// Expects that each registered interface is notified once, and no other one.
void expectOneNotification(MemoryFixture& fixture) {
    std::set<CSClient::CallbackIface*> registered;
    fixture.engine.getCallbackInterfaces(registered);
    EXPECT_EQ(static_cast<std::size_t>(fixture.engine.getNumCallbackInterfaces()), registered.size());
    for (CountingCallbacks& each : fixture.callbacks) {
        each.outputConfirmations = 0;
    }
    fixture.handle(fixture.confirmation(ParameterKind::OUTPUTS, 0));
    for (CountingCallbacks& each : fixture.callbacks) {
        EXPECT_EQ(each.outputConfirmations, registered.count(&each));
    }
}

class AllocationFailure : public testing::TestWithParam<std::tuple<MemoryOperation, FailingMemory::Kind>> {
  protected:
    AllocationFailure() {
        const auto prepared = preparedFixture();
        permittedStates.insert(prepared->state());
        reference = run(*prepared, operation(), kAllGranted, FailingMemory::ALL_LATER);
        EXPECT_FALSE(reference.threw);
        permittedStates.insert(reference.state);
        for (unsigned int number = 0; number < operation().partialStates; ++number) {
            const auto fixture = preparedFixture();
            const RedirectedStreams unprinted;
            operation().leave(*fixture, number);
            permittedStates.insert(fixture->state());
        }
    }

    static const MemoryOperation& operation() { return std::get<MemoryOperation>(GetParam()); }

    static std::unique_ptr<MemoryFixture> preparedFixture() {
        auto fixture = std::make_unique<MemoryFixture>(operation().options);
        const RedirectedStreams unprinted;
        operation().prepare(*fixture);
        return fixture;
    }

    /// Returns whether the operation has the allocation that is to fail.
    bool failAfter(int granted) const {
        const auto fixture = preparedFixture();
        const Outcome outcome = run(*fixture, operation(), granted, std::get<FailingMemory::Kind>(GetParam()));
        if (!outcome.memoryFailed) {
            EXPECT_EQ(outcome.state, reference.state);
            return false;
        }
        if (!outcome.threw && outcome.succeeded == reference.succeeded && outcome.state == reference.state) {
            EXPECT_EQ(outcome.written, reference.written);
            EXPECT_THAT(outcome.printed, testing::AnyOf(reference.printed, withReadError(reference.printed)));
        } else {
            EXPECT_FALSE(outcome.succeeded) << outcome.state;
            EXPECT_EQ(permittedStates.count(outcome.state), 1U) << outcome.state;
        }
        if (outcome.threw) {
            EXPECT_EQ(outcome.written, "") << "sent, although the operation failed";
        }
        if ((operation().options & CSClient::OPTION_SILENT) != 0) {
            EXPECT_EQ(outcome.printed, "");
        }
        // First, because a change of the callback interfaces renews their list.
        expectOneNotification(*fixture);
        expectWorkingEngine(fixture->engine);
        EXPECT_EQ(fixture->state(), outcome.state);

        if (operation().recover) {
            const RedirectedStreams unprinted;
            operation().recover(*fixture);
        }
        const Outcome again = run(*fixture, operation(), kAllGranted, FailingMemory::ALL_LATER);
        EXPECT_FALSE(again.threw);
        EXPECT_EQ(again.succeeded, reference.succeeded);
        EXPECT_EQ(again.state, reference.state);
        return true;
    }

    Outcome reference;
    std::set<std::string> permittedStates;
};

TEST_P(AllocationFailure, LeavesAllOrNothingOrAPermittedState) {
    constexpr int kMaxAllocations = 1'000;  // Far more than any operation makes.
    int granted = 0;
    for (bool isReached = true; isReached && granted < kMaxAllocations; granted += isReached ? 1 : 0) {
        SCOPED_TRACE(granted);
        const long before = liveAllocations();
        isReached = failAfter(granted);
        ASSERT_FALSE(HasFailure());
        EXPECT_EQ(liveAllocations(), before) << "a leak";
    }
    EXPECT_LT(granted, kMaxAllocations);
    EXPECT_EQ(granted > 0, operation().allocates) << granted << " allocations";
    RecordProperty("allocations", granted);
}

std::vector<MemoryOperation> allOperations() {
    std::vector<MemoryOperation> all = tableOperations();
    for (const auto& operations : {workerOperations(), otherOperations()}) {
        all.insert(all.end(), operations.begin(), operations.end());
    }
    return all;
}

INSTANTIATE_TEST_SUITE_P(In, AllocationFailure,
                         testing::Combine(testing::ValuesIn(allOperations()),
                                          testing::Values(FailingMemory::ONLY_ONE, FailingMemory::ALL_LATER)),
                         [](const auto& tested) {
                             return std::get<MemoryOperation>(tested.param).name +
                                    (std::get<FailingMemory::Kind>(tested.param) == FailingMemory::ONLY_ONE
                                         ? "Once"
                                         : "ForGood");
                         });

}  // namespace
}  // namespace com_tesk::test
