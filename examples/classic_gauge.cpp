// Draws a gauge ten times a second, in grey when its value cannot be relied on.
//   classic_gauge <address> <port> <input> [seconds]

#include <client/SimClient.h>
#include <comms/CSCommsInterfaceTCPBuffered.h>

#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <mutex>
#include <optional>
#include <thread>

using namespace std::chrono_literals;
using com_tesk::CSClient;
using std::chrono::steady_clock;

/// The newest value, and whether to trust it. Callbacks run on the client's worker thread, hence the mutex.
class NewestValue : public CSClient::CallbackAdapter {
  public:
    struct Reading {
        float value;
        const char* quality;
    };
    Reading read() const {
        const std::lock_guard<std::mutex> lock(mutex);
        return {value, !received                                   ? "never"
                       : !isConnected                              ? "lost"
                       : !isConfirmed                              ? "unconfirmed"
                       : steady_clock::now() - *received > kMaxAge ? "stale"
                                                                   : "good"};
    }
    void connectionStateChanged(CSClient::State, CSClient::State newState) override {
        const std::lock_guard<std::mutex> lock(mutex);
        isConnected = newState == CSClient::STATE_READY;
        isConfirmed = false;
    }
    void inputParametersConfirmed(const std::vector<CSClient::InputDef>& inputs) override {
        const std::lock_guard<std::mutex> lock(mutex);
        isConfirmed = isConfirmed || !inputs.empty();
    }
    void inputParametersUpdated(const std::vector<CSClient::Parameter>& parameters) override {
        const std::lock_guard<std::mutex> lock(mutex);
        for (const CSClient::Parameter& parameter : parameters) {
            // The type that the host sends with each value says how to read its 32 bits.
            const bool isInteger = parameter.type == CSClient::TYPE_INT;
            value = isInteger ? static_cast<float>(parameter.value.asInt) : parameter.value.asFloat;
            received = steady_clock::now();
        }
    }

  private:
    static constexpr std::chrono::milliseconds kMaxAge{500};  // The host sends this value at least twice a second.
    mutable std::mutex mutex;
    bool isConnected = false;
    bool isConfirmed = false;  // On this connection.
    float value = 0.0F;
    std::optional<steady_clock::time_point> received;
};

int main(int argc, char** argv) {
    if (argc < 4 || argc > 5) {
        std::cerr << "classic_gauge <address> <port> <input> [seconds]\n";
        return EXIT_FAILURE;
    }
    NewestValue input;  // Before the client, so that it still exists when the last callback runs.
    com_tesk::SimClient client(/*simulatorId=*/2, CSClient::OPTION_AUTO_RECONNECT | CSClient::OPTION_SILENT,
                               std::make_unique<com_tesk::CSCommsInterfaceTCPBuffered>());
    client.addCallbackInterface(&input);
    if (client.registerInputParameter({argv[3], CSClient::TYPE_FLOAT, /*subscriptionMode=*/1}) != 0 ||
        client.open(argv[1], static_cast<unsigned int>(std::strtoul(argv[2], nullptr, 10))) != 0) {
        return EXIT_FAILURE;
    }
    const bool isEndless = argc < 5;
    const long frames = isEndless ? 0 : 10 * std::strtol(argv[4], nullptr, 10);
    for (long frame = 0; isEndless || frame < frames; ++frame) {
        const NewestValue::Reading reading = input.read();
        const bool isGrey = reading.quality != std::string("good");
        std::cout << (isGrey ? "\033[90m" : "") << std::fixed << std::setprecision(1) << std::setw(9) << reading.value
                  << "  " << reading.quality << (isGrey ? "\033[0m" : "") << std::endl;
        std::this_thread::sleep_for(100ms);
    }
}
