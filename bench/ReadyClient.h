#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

#include "bench/Measure.h"
#include "bench/Names.h"
#include "client/SimClient.h"
#include "comms/CSCommsInterfaceTCPBuffered.h"

namespace com_tesk::bench {

enum class Transport { STANDARD, BUFFERED };

/// Callbacks that let another thread wait for an event.
class WaitingCallbacks : public CSClient::CallbackIface {
  public:
    void connectionStateChanged(CSClient::State /*oldState*/, CSClient::State newState) override {
        if (newState == CSClient::STATE_DISCONNECTING) {
            apply([this] { isGone = true; });
        }
    }
    void outputParametersConfirmed(const std::vector<CSClient::OutputDef>& outputs) override {
        apply([this, &outputs] { outputsConfirmed += outputs.size(); });
    }
    void inputParametersConfirmed(const std::vector<CSClient::InputDef>& inputs) override {
        apply([this, &inputs] { inputsConfirmed += inputs.size(); });
    }
    void inputParametersUpdated(const std::vector<CSClient::Parameter>& /*parameters*/) override {}

    void waitForConfirmations(std::size_t inputs, std::size_t outputs) {
        waitUntil([this, inputs, outputs] { return inputsConfirmed >= inputs && outputsConfirmed >= outputs; });
    }

  protected:
    /// Runs `change` under the lock, and wakes the waiting threads.
    template <typename Change>
    void apply(const Change& change) {
        const std::lock_guard<std::mutex> lock(mutex);
        change();
        changed.notify_all();
    }

    template <typename Condition>
    void waitUntil(const Condition& condition) {
        std::unique_lock<std::mutex> lock(mutex);
        const bool isInTime =
            changed.wait_for(lock, std::chrono::seconds(60), [this, &condition] { return isGone || condition(); });
        check(isInTime && !isGone, "the connection ended early, or nothing more arrives");
    }

  private:
    std::mutex mutex;
    std::condition_variable changed;
    bool isGone = false;
    std::size_t inputsConfirmed = 0;
    std::size_t outputsConfirmed = 0;
};

/// A client whose parameters the host has confirmed.
inline std::unique_ptr<SimClient> readyClient(WaitingCallbacks& callbacks, unsigned int port, Transport transport,
                                              unsigned int inputs, unsigned int outputs,
                                              std::uint32_t receiveBufferSize = 0) {
    auto client = std::make_unique<SimClient>(1, CSClient::OPTION_SILENT);
    if (transport == Transport::BUFFERED) {
        client->changeCommsInterface(new CSCommsInterfaceTCPBuffered);
    }
    client->addCallbackInterface(&callbacks);
    client->registerInputParameters(inputDefinitions(inputs));
    client->registerOutputParameters(outputDefinitions(outputs));
    CSClient::ConnectionOptions options;
    options.receiveBufferSize = receiveBufferSize;
    client->open("127.0.0.1", port, &options);
    callbacks.waitForConfirmations(inputs, outputs);
    return client;
}

}  // namespace com_tesk::bench
