// Publishes 20 values of three modules at 50 Hz, one frame a cycle. Warns when the host goes and comes.
//   classic_twenty_values [address] [port] [seconds]

#include <client/SimClient.h>
#include <comms/CSCommsInterfaceTCPBuffered.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <thread>

using namespace std::chrono_literals;
using com_tesk::CSClient;

/// A module registers its outputs and sets its part of `values`. A module on a thread of its own would need a lock.
class ClassicModule {
  public:
    ClassicModule(CSClient& client, std::vector<CSClient::Parameter>& published, const std::string& name,
                  std::size_t size)
        : values(published), first(published.size()), count(size) {
        for (std::size_t i = 0; i < count; ++i) {
            values.push_back(CSClient::Parameter::ofFloat(name + "." + std::to_string(i), 0.0F));
            client.registerOutputParameter({values.back().name, CSClient::TYPE_FLOAT});
        }
    }
    void step(double seconds) const {
        for (std::size_t i = 0; i < count; ++i) {
            values[first + i].value.asFloat = static_cast<float>(std::sin(seconds + static_cast<double>(i)));
        }
    }

  private:
    std::vector<CSClient::Parameter>& values;
    std::size_t first;
    std::size_t count;
};

/// Warns, and counts the outputs that the host has confirmed on this connection.
class Watch : public CSClient::CallbackAdapter {
  public:
    bool hasConfirmed(std::size_t outputs) const { return confirmed >= outputs; }

    void connectionStateChanged(CSClient::State, CSClient::State newState) override {
        confirmed = 0;
        if (newState == CSClient::STATE_READY) {
            std::cerr << "warning: connected to the host\n";
        } else if (newState == CSClient::STATE_RECONNECTING) {
            std::cerr << "warning: the connection to the host is lost\n";
        }
    }
    void outputParametersConfirmed(const std::vector<CSClient::OutputDef>& outputs) override {
        confirmed += outputs.size();
    }

  private:
    std::atomic<std::size_t> confirmed{0};  // The worker thread changes it, also this one when a write fails.
};

int main(int argc, char** argv) {
    const char* address = argc > 1 ? argv[1] : "127.0.0.1";
    const unsigned int port = argc > 2 ? static_cast<unsigned int>(std::strtoul(argv[2], nullptr, 10)) : 55580;
    Watch watch;  // Before the client, so that it still exists when the last callback runs.
    com_tesk::SimClient client(/*simulatorId=*/1, CSClient::OPTION_AUTO_RECONNECT | CSClient::OPTION_SILENT,
                               std::make_unique<com_tesk::CSCommsInterfaceTCPBuffered>());
    client.addCallbackInterface(&watch);
    std::vector<CSClient::Parameter> values;
    const ClassicModule modules[]{
        {client, values, "engine", 12}, {client, values, "gear", 3}, {client, values, "position", 5}};
    if (client.open(address, port) != 0) {
        return EXIT_FAILURE;
    }
    if (!client.waitForOutputsToBeRegistered(5)) {
        std::cerr << "warning: no host has confirmed the outputs\n";  // The client keeps trying to connect.
    }
    const long cycles = argc > 3 ? 50 * std::strtol(argv[3], nullptr, 10) : 0;
    const auto begin = std::chrono::steady_clock::now();
    for (long cycle = 0; cycles == 0 || cycle < cycles; ++cycle) {
        std::this_thread::sleep_until(begin + cycle * 20ms);
        for (const ClassicModule& module : modules) {
            module.step(0.02 * static_cast<double>(cycle));
        }
        // Without a connection the client stores the values. Before the host has confirmed the outputs, it would send
        // them under ids of an earlier connection.
        if (client.getConnectionState() != CSClient::STATE_READY || watch.hasConfirmed(values.size())) {
            client.publishParameters(values);
        }
    }
    return client.close() == CSClient::STATE_DISCONNECTED ? EXIT_SUCCESS : EXIT_FAILURE;
}
