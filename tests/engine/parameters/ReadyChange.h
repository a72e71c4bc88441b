#pragma once

#include <string>
#include <thread>

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

/// A change to `STATE_READY`, as the worker makes it, on a separate thread. The thread of the test is another thread of
/// the application.
class ReadyChange : public testing::Test {
  protected:
    ReadyChange();
    ~ReadyChange() override;

    /// Registers the input I, which a host confirms as 9, and the output O, which it confirms as 7.
    void registerBefore(bool hasInput, bool hasOutput);

    /// Begins the change and returns when it has reached `place`.
    void stopAt(const std::string& place);
    /// Makes the whole change. Its thread runs `action` at `place`.
    void actAt(const std::string& place, std::function<void()> action);
    void begin();
    /// Lets the change continue, and returns when it is complete.
    void finish();

    /// Registers the input X and the output Y.
    void registerBoth();

    /// Called on the thread that makes the change. Set it before the change begins.
    std::function<void(const std::string& place)> onPlace;

    RecordingCallbacks callbacks;
    DerivedEngine engine{1, kSilent | kReconnect};
    Gate gate;
    std::thread changer;

  private:
    void reach(const std::string& place) const;
};

/// Publishes 1.5 as O.
int publishO(TestEngine& engine);
Requests publicationOf(unsigned int id);

}  // namespace com_tesk::test
