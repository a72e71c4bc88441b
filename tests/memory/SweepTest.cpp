#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <future>
#include <iostream>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <thread>
#include <tuple>

#include "tests/client/CountedSleeps.h"
#include "tests/memory/FailingMemory.h"
#include "tests/memory/Operations.h"
#include "tests/memory/Scene.h"

namespace com_tesk::test {
namespace {

/// What an operation has come to.
struct Outcome {
    bool threw = false;
    bool succeeded = false;
    bool memoryFailed = false;
    std::string printed;
    std::string written;
    std::string state;
};

constexpr int kAllOfIt = 1'000'000;

Outcome operate(Scene& scene, const Operation& operation, int granted, FailingMemory::Kind kind) {
    Outcome outcome;
    scene.transport->written.clear();
    {
        const PrintedLines printed;
        {
            const FailingMemory memory(granted, kind);
            try {
                outcome.succeeded = operation.operate(scene);
            } catch (const std::bad_alloc&) {
                outcome.threw = true;
            }
            outcome.memoryFailed = memory.hasFailed();
        }
        outcome.printed = printed.text();
    }
    // It may not have come to a write.
    scene.transport->failNextWrite = false;
    outcome.written = scene.transport->written;
    outcome.state = scene.state();
    return outcome;
}

/// The same lines, but the connection ends for lack of memory instead of by the host's will.
std::string withReadError(std::string lines) {
    const std::string closed = "Connection closed by server.";
    const std::size_t position = lines.find(closed);
    return position == std::string::npos ? lines : lines.replace(position, closed.size(), "EXIT: Read error.");
}

/// Uses every lock of the engine, and leaves everything as it was.
void useEverything(Scene& scene) {
    MemoryEngine& engine = scene.engine;
    EXPECT_TRUE(engine.waitForStateChange());
    const CSClient::InputDef input{"probe", CSClient::TYPE_INT, 1};
    const CSClient::OutputDef output{"probe", CSClient::TYPE_INT};
    const CSClient::Parameter value{"probe", {}, CSClient::TYPE_INT, 0};
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

[[noreturn]] void endBecauseOfALock(const char* line) {
    // With a lock that nobody releases the test could not even clean up.
    std::cerr << line << std::endl;
    std::_Exit(EXIT_FAILURE);
}

void useEverythingOnAnotherThread(Scene& scene) {
    if (scene.engine.holdsAnyLock()) {
        endBecauseOfALock("a lock was left held");
    }
    std::promise<void> used;
    std::thread user([&scene, &used] {
        useEverything(scene);
        used.set_value();
    });
    if (used.get_future().wait_for(std::chrono::seconds(60)) != std::future_status::ready) {
        endBecauseOfALock("another thread waits for a lock that was left held");
    }
    user.join();
}

/// What is told is told to the interfaces that are registered, to each once.
void expectRegisteredInterfacesToBeTold(Scene& scene) {
    RawMessage response(RawMessage::DATA);
    const std::string body = outputsConfirmed(scene, 0);
    response.write(body.data(), static_cast<unsigned int>(body.size()));
    std::set<CSClient::CallbackIface*> registered;
    scene.engine.getCallbackInterfaces(registered);
    EXPECT_EQ(static_cast<std::size_t>(scene.engine.getNumCallbackInterfaces()), registered.size());
    for (CountingCallbacks& callbacks : scene.callbacks) {
        callbacks.outputConfirmations = 0;
    }
    scene.engine.handleReceivedMessage(response);
    for (CountingCallbacks& callbacks : scene.callbacks) {
        EXPECT_EQ(callbacks.outputConfirmations, registered.count(&callbacks));
    }
}

using Parameters = std::tuple<Operation, FailingMemory::Kind>;

class AllocationFailure : public testing::TestWithParam<Parameters> {
  protected:
    const Operation& operation() const { return std::get<Operation>(GetParam()); }

    std::unique_ptr<Scene> preparedScene() const {
        auto scene = std::make_unique<Scene>(operation().options);
        const PrintedLines unprinted;
        operation().prepare(*scene);
        return scene;
    }

    /// What comes of the operation when there is memory, and what may come of it when there is not.
    void lookAhead() {
        const CountedSleeps noSleeps;
        reference = operate(*preparedScene(), operation(), kAllOfIt, FailingMemory::ALL_LATER);
        EXPECT_FALSE(reference.threw);
        allowed = allowedStates();
    }

    /// The states that the operation may leave.
    std::set<std::string> allowedStates() const {
        std::set<std::string> states{preparedScene()->state(), reference.state};
        for (unsigned int number = 0; operation().leave != nullptr; ++number) {
            const auto scene = preparedScene();
            const PrintedLines unprinted;
            if (!operation().leave(*scene, number)) {
                break;
            }
            states.insert(scene->state());
        }
        return states;
    }

    /// @return whether the allocation that was to fail was reached.
    bool failOnce(int granted) {
        const CountedSleeps noSleeps;
        const auto scene = preparedScene();
        const Outcome outcome = operate(*scene, operation(), granted, std::get<FailingMemory::Kind>(GetParam()));
        if (!outcome.memoryFailed) {
            EXPECT_EQ(outcome.state, reference.state);
            return false;
        }
        if (!outcome.threw && outcome.succeeded == reference.succeeded && outcome.state == reference.state) {
            EXPECT_EQ(outcome.written, reference.written);
            EXPECT_THAT(outcome.printed, testing::AnyOf(reference.printed, withReadError(reference.printed)));
        } else {
            EXPECT_FALSE(outcome.succeeded) << outcome.state;
            EXPECT_EQ(allowed.count(outcome.state), 1U) << outcome.state;
        }
        if (outcome.threw) {
            EXPECT_EQ(outcome.written, "") << "sent, and yet not done";
        }
        if ((operation().options & CSClient::OPTION_SILENT) != 0) {
            EXPECT_EQ(outcome.printed, "");
        }
        useEverythingOnAnotherThread(*scene);
        EXPECT_EQ(scene->state(), outcome.state);
        expectRegisteredInterfacesToBeTold(*scene);

        if (operation().recover != nullptr) {
            const PrintedLines unprinted;
            operation().recover(*scene);
        }
        const Outcome again = operate(*scene, operation(), kAllOfIt, FailingMemory::ALL_LATER);
        EXPECT_FALSE(again.threw);
        EXPECT_EQ(again.succeeded, reference.succeeded);
        EXPECT_EQ(again.state, reference.state);
        return true;
    }

    Outcome reference;
    std::set<std::string> allowed;
};

TEST_P(AllocationFailure, LeavesAllOrNothingOrWhatTheOperationSays) {
    // Far more than any operation needs.
    constexpr int kBound = 1'000;
    lookAhead();

    int granted = 0;
    for (; granted < kBound; ++granted) {
        SCOPED_TRACE(granted);
        const long before = liveAllocations();
        const bool reached = failOnce(granted);
        if (HasFailure()) {
            return;
        }
        EXPECT_EQ(liveAllocations(), before) << "a leak";
        if (!reached) {
            break;
        }
    }
    EXPECT_LT(granted, kBound);
    EXPECT_EQ(granted > 0, operation().needs == Operation::MEMORY) << granted << " allocations";
    RecordProperty("allocations", granted);
}

std::string caseName(const testing::TestParamInfo<Parameters>& info) {
    return std::string(std::get<Operation>(info.param).name) +
           (std::get<FailingMemory::Kind>(info.param) == FailingMemory::ONLY_ONE ? "Once" : "ForGood");
}

constexpr FailingMemory::Kind kKinds[] = {FailingMemory::ONLY_ONE, FailingMemory::ALL_LATER};

INSTANTIATE_TEST_SUITE_P(In, AllocationFailure,
                         testing::Combine(testing::ValuesIn(parameterOperations()), testing::ValuesIn(kKinds)),
                         caseName);
INSTANTIATE_TEST_SUITE_P(OnTheWorkerIn, AllocationFailure,
                         testing::Combine(testing::ValuesIn(workerOperations()), testing::ValuesIn(kKinds)), caseName);
INSTANTIATE_TEST_SUITE_P(Elsewhere, AllocationFailure,
                         testing::Combine(testing::ValuesIn(otherOperations()), testing::ValuesIn(kKinds)), caseName);

}  // namespace
}  // namespace com_tesk::test
