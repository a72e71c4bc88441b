#pragma once

#include <string>
#include <thread>
#include <utility>

#include "tests/engine/parameters/ParameterTest.h"
#include "tests/support/RecordingCallbacks.h"
#include "tests/support/Waiting.h"

namespace com_tesk::test {

/// @name Places
/// Points of the change to `STATE_READY` at which a test can act.
/// @{
constexpr const char* kConnectedCallback = "ConnectedCallback";      ///< In the callback of the change from 1 to 2.
constexpr const char* kReadyCallback = "ReadyCallback";              ///< In the callback of the change from 2 to 4.
constexpr const char* kVersionWrite = "Write1";                      ///< In the write of the version request.
constexpr const char* kAfterVersion = "AfterVersion";                ///< Before the engine counts what is registered.
constexpr const char* kAfterSnapshot = "AfterSnapshot";              ///< The inputs are collected but not written.
constexpr const char* kSecondWrite = "Write2";                       ///< In the next write, with `parameterMutex` held.
constexpr const char* kBetween = "Between";                          ///< The inputs are written, the outputs are not.
constexpr const char* kThirdWrite = "Write3";                        ///< In the next write, with `parameterMutex` held.
constexpr const char* kAfterReregistration = "AfterReregistration";  ///< Both are written.
/// @}

/// Publishes 1.5 as O.
inline int publishO(TestEngine& engine) {
    return engine.publish({floatParameter("O", 1.5F)});
}

inline Requests publicationOf(unsigned int id) {
    return publication({{id, 0, 0x3FC00000}});
}

/// A change to `STATE_READY`, as the worker makes it, on a separate thread. The thread of the test is another thread of
/// the application.
class ReadyChange : public testing::Test {
  protected:
    ReadyChange() {
        callbacks.onLine = [this](const std::string& line) {
            if (line == "state 1->2" || line == "state 2->4") {
                reach(line == "state 1->2" ? kConnectedCallback : kReadyCallback);
            }
        };
        engine.fakeTransport().onWrite = [this] { reach("Write" + std::to_string(++writes)); };
        engine.onVersionRequested = [this] { reach(kAfterVersion); };
        engine.onRegisterInputs = [this](const std::vector<CSClient::InputDef>& definitions) {
            reach(kAfterSnapshot);
            const int result = engine.registerAsTheEngine(definitions);
            reach(kBetween);
            return result;
        };
        engine.onState = [this](CSClient::State newState, const std::function<void()>& handle) {
            handle();
            if (newState == CSClient::STATE_READY) {
                reach(kAfterReregistration);
            }
        };
        engine.addCallbackInterface(&callbacks);
        engine.skipPauses();
    }
    ~ReadyChange() override {
        finish();
        engine.pretendState(CSClient::STATE_DISCONNECTED);
    }

    /// Registers the input I, which a host confirms as 9, and the output O, which it confirms as 7.
    void registerBefore(bool hasInput, bool hasOutput) {
        if (hasInput) {
            EXPECT_EQ(engine.registerInputs({input("I")}), 0);
            engine.receive(inputsConfirmed({{9, "I"}}));
        }
        if (hasOutput) {
            EXPECT_EQ(engine.registerOutputs({output("O")}), 0);
            engine.receive(outputsConfirmed({{7, "O"}}));
        }
    }

    /// Registers the input X and the output Y.
    void registerBoth() {
        EXPECT_EQ(engine.registerInputs({input("X")}), 0);
        EXPECT_EQ(engine.registerOutputs({output("Y")}), 0);
    }

    void begin() {
        changer = std::thread([this] {
            isChanging = true;
            engine.connect();
        });
    }

    /// Begins the change and returns when it has reached `place`.
    void stopAt(const std::string& place) {
        onPlace = [this, place](const std::string& reached) {
            if (reached == place) {
                gate.pass();
            }
        };
        begin();
        ASSERT_TRUE(gate.waitUntilReached());
    }

    /// Makes the whole change. Its thread runs `action` at `place`.
    void actAt(const std::string& place, std::function<void()> action) {
        onPlace = [place, action = std::move(action)](const std::string& reached) mutable {
            if (reached == place && action) {
                // Once, because the action reaches some of the places too.
                std::exchange(action, nullptr)();
            }
        };
        begin();
        finish();
    }

    /// Lets the change continue, and returns when it is complete.
    void finish() {
        gate.open();
        if (changer.joinable()) {
            changer.join();
        }
    }

    /// Called on the thread that makes the change. Set it before the change begins.
    std::function<void(const std::string& place)> onPlace;

    RecordingCallbacks callbacks;
    DerivedEngine engine{1, kSilent | kReconnect};
    Gate gate;
    std::thread changer;

  private:
    void reach(const std::string& place) const {
        if (isChanging && onPlace) {
            onPlace(place);
        }
    }

    /// True when this thread makes a change.
    static inline thread_local bool isChanging = false;
    static inline thread_local int writes = 0;
};

}  // namespace com_tesk::test
