// Cancels an application thread at every cancellation point of every operation of a client.

#include <gtest/gtest.h>

#include <string>

#include "tests/cancellation/Operations.h"

namespace com_tesk::test {
namespace {

/// Far more than any operation has.
constexpr int kMaxPoints = 100;

struct Case {
    SweptOperation operation;
    Situation situation;
    bool isBuffered;
    bool reconnects;

    // What a failed test prints.
    friend void PrintTo(const Case& printed, std::ostream* stream) { *stream << printed.operation.name; }
};

std::vector<Case> allCases() {
    std::vector<Case> cases;
    for (const SweptOperation& operation : sweptOperations()) {
        for (const Situation situation : operation.situations) {
            for (const bool isBuffered : {false, true}) {
                for (const bool reconnects : {false, true}) {
                    if (reconnects || situation != Situation::CONNECTING) {
                        cases.push_back({operation, situation, isBuffered, reconnects});
                    }
                }
            }
        }
    }
    return cases;
}

std::string caseName(const testing::TestParamInfo<Case>& info) {
    return std::string(info.param.operation.name) + nameOf(info.param.situation) +
           (info.param.isBuffered ? "Buffered" : "Standard") + (info.param.reconnects ? "Reconnecting" : "");
}

bool isWrite(const std::string& point) {
    return point == "write" || point == "send" || point == "poll";
}

class Cancellation : public testing::TestWithParam<Case> {
  protected:
    void prepare() {
        scene.makeClient();
        switch (GetParam().situation) {
            case Situation::READY:
            case Situation::FAILING_WRITES:
            case Situation::HALVED_WRITES:
                scene.connect();
                break;
            case Situation::CLOSED:
                break;
            case Situation::CONNECTING:
                ASSERT_EQ(scene.client->open(kHostAddress, scene.refusing.number(), nullptr), 0);
                break;
        }
        connections = scene.connections();
    }

    ThreadScript::Writes writes() const {
        switch (GetParam().situation) {
            case Situation::FAILING_WRITES:
                return ThreadScript::Writes::FAILING;
            case Situation::HALVED_WRITES:
                return ThreadScript::Writes::HALVED;
            case Situation::READY:
            case Situation::CLOSED:
            case Situation::CONNECTING:
                break;
        }
        return ThreadScript::Writes::WHOLE;
    }

    bool isConnected() const {
        return GetParam().situation != Situation::CLOSED && GetParam().situation != Situation::CONNECTING;
    }

    /// What has become of the connection.
    void expectConnection(const ApplicationThread& thread) {
        const ThreadScript& script = thread.script;
        const bool isCancelled = !thread.hasReturned();
        switch (GetParam().operation.effect) {
            case SweptOperation::OPENS:
                if (GetParam().situation == Situation::CLOSED && isCancelled) {
                    EXPECT_EQ(scene.client->getConnectionState(), CSClient::STATE_DISCONNECTED);
                }
                return;
            case SweptOperation::CLOSES:
                // The wait for a lock that the worker holds comes before the close.
                if (!isCancelled || std::string(script.lastPoint) != "nanosleep") {
                    EXPECT_TRUE(scene.waitForState(CSClient::STATE_DISCONNECTED));
                }
                return;
            case SweptOperation::NONE:
            case SweptOperation::LOSES:
                break;
        }
        if (!isConnected()) {
            return;
        }
        const bool isLost = GetParam().operation.effect == SweptOperation::LOSES ||
                            (isCancelled && isWrite(script.lastPoint)) ||
                            (writes() == ThreadScript::Writes::FAILING && script.writeCalls > 0);
        if (!isLost) {
            EXPECT_EQ(scene.connections(), connections);
        } else if (scene.reconnects()) {
            EXPECT_TRUE(waitUntil([this] { return scene.connections() > connections; })) << "no new connection";
        } else {
            EXPECT_TRUE(scene.waitForState(CSClient::STATE_DISCONNECTED)) << scene.client->getConnectionState();
            return;
        }
        scene.expectToRegisterPublishAndReceive();
    }

    /// @return whether the point was reached.
    bool cancelAt(int point) {
        prepare();
        ApplicationThread thread([this] { GetParam().operation.operate(scene); });
        thread.script.cancelAt = point;
        thread.script.writes = writes();
        thread.run();
        SCOPED_TRACE(std::string(thread.hasReturned() ? "returned after " : "cancelled at ") + thread.script.lastPoint);
        scene.expectNothingIsLeftBehind();
        expectConnection(thread);
        scene.expectToCloseAndOpenAgain();
        scene.dropClient();
        scene.expectWholeFrames();
        return thread.script.points >= point;
    }

    Scene scene{GetParam().isBuffered, GetParam().reconnects ? CSClient::OPTION_AUTO_RECONNECT : 0U};
    std::size_t connections = 0;
};

TEST_P(Cancellation, LeavesAWorkingClient) {
    const std::size_t descriptors = openDescriptors();
    int point = 1;
    while (point < kMaxPoints && cancelAt(point) && !HasFailure()) {
        ++point;
    }
    EXPECT_LT(point, kMaxPoints);
    EXPECT_FALSE(HasFailure()) << "at cancellation point " << point;
    EXPECT_TRUE(waitUntil([descriptors] { return openDescriptors() == descriptors; }))
        << descriptors << " descriptors before, " << openDescriptors() << " now";
    RecordProperty("points", point - 1);
}

INSTANTIATE_TEST_SUITE_P(Of, Cancellation, testing::ValuesIn(allCases()), caseName);

}  // namespace
}  // namespace com_tesk::test
