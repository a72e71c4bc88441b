#pragma once

#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Waiting.h"
#include "tests/engine/parameters/ParameterEngine.h"
#include "tests/support/RecordingCallbacks.h"

namespace com_tesk::test {

/// A point of the change to `STATE_READY` at which a test can hold it up.
enum class Place {
    NOWHERE,
    CONNECTED_CALLBACK,    ///< In the callback of the change from 1 to 2.
    READY_CALLBACK,        ///< In the callback of the change from 2 to 4.
    VERSION_WRITE,         ///< In the write of the version request.
    AFTER_VERSION,         ///< After it, before the engine counts what is registered.
    AFTER_SNAPSHOT,        ///< The inputs to register again are collected, and not yet written.
    INPUT_WRITE,           ///< In the write of the input re-registration, with `parameterMutex` held.
    BETWEEN,               ///< The inputs are written, the outputs not yet collected.
    OUTPUT_WRITE,          ///< In the write of the output re-registration, with `parameterMutex` held.
    AFTER_REREGISTRATION,  ///< Both are written.
};

std::string placeName(Place place);

/// An engine that tells the test when the thread that makes a change reaches a place.
class ChangingEngine : public ParameterEngine {
  public:
    ChangingEngine();

    /// Called on the thread that makes the change, at each place. Set it before the change begins.
    std::function<void(Place)> onPlace;

    int requestSimulatorVersion() override;
    int registerInputParameters(const CSClient::InputDef* definitions, unsigned int count) override;
    int sendInputSubscriptionRequest(const std::vector<InputParameterEntry*>& entries) override;
    int sendOutputSubscriptionRequest(const std::vector<OutputParameterEntry*>& entries) override;
    void handleConnectionStateChange(CSClient::State oldState, CSClient::State newState) override;

    void reach(Place place);

    /// `work`, on a thread of its own whose changes are reported.
    std::thread startChange(std::function<void()> work);

  private:
    Place nextWrite = Place::NOWHERE;
};

/// A change to `STATE_READY`, as the worker makes it, on a thread of its own that the test can hold up at a place. The
/// test's thread is another thread of the application.
class ReadyChange : public testing::Test {
  protected:
    ReadyChange();
    ~ReadyChange() override;

    /// The input I, which a host has confirmed as 9.
    void registerInputBefore();
    /// The output O, which a host has confirmed as 7.
    void registerOutputBefore();

    /// Begins the change and returns when it has reached `place`.
    void holdAt(Place place);
    /// Lets the change go on, and returns when it is complete.
    void finish();
    /// Makes the whole change; its thread runs `action` at `place`.
    void actAt(Place place, std::function<void()> action);

    /// The bodies that the host has received, in order.
    std::vector<std::string> bodies();

    class Callbacks;

    std::unique_ptr<Callbacks> callbacks;
    ChangingEngine engine;
    Gate gate;
    std::thread changer;
};

using Bodies = std::vector<std::string>;

/// The joined list.
Bodies operator+(Bodies first, const Bodies& second);

// Requests of simulator 1, as a host receives them.

Bodies versionRequest();
/// One request for all the names; without names there is none.
Bodies inputRequest(const std::vector<std::string>& names);
Bodies outputRequest(const std::vector<std::string>& names);
Bodies inputEnd(const std::string& idHex);
Bodies outputEnd(const std::string& idHex);
/// The float 1.5.
Bodies publication(const std::string& idHex);

}  // namespace com_tesk::test
