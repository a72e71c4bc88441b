// A board with a switch and a lamp. It publishes its switch as the output "switch". Its lamp follows the input "lamp",
// and is dark without a connection. Both are files that contain 0 or 1. Stops on SIGTERM and SIGINT.
//   classic_board <address> <port> <switch file> <lamp file>

#include <client/SimClient.h>
#include <comms/CSCommsInterfaceTCPBuffered.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <mutex>

using com_tesk::CSClient;

/// Values arrive on the client's worker thread, state changes on any thread. Hence the mutex.
class Lamp : public CSClient::CallbackIface {
  public:
    explicit Lamp(const char* path) : file(path) { light(false); }
    bool works() const { return file.good(); }

    void connectionStateChanged(CSClient::State, CSClient::State newState) override {
        std::cerr << "state " + std::to_string(newState) + "\n" << std::flush;
        if (newState != CSClient::STATE_READY) {
            light(false);
        }
    }
    void inputParametersUpdated(const std::vector<CSClient::Parameter>& parameters) override {
        for (const CSClient::Parameter& parameter : parameters) {
            light(parameter.value.asInt != 0);  // The lamp is the only input.
        }
    }
    void inputParametersConfirmed(const std::vector<CSClient::InputDef>&) override {}
    void outputParametersConfirmed(const std::vector<CSClient::OutputDef>&) override {}

  private:
    void light(bool isLit) {
        const std::lock_guard<std::mutex> lock(mutex);
        file.seekp(0) << isLit << std::flush;
    }
    std::mutex mutex;
    std::ofstream file;
};

int main(int argc, char** argv) {
    if (argc != 5) {
        std::cerr << "classic_board <address> <port> <switch file> <lamp file>" << std::endl;
        return EXIT_FAILURE;
    }
    // The signals are blocked in every thread and received by sigtimedwait below, so no signal handler runs.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    Lamp lamp(argv[4]);
    com_tesk::SimClient client(/*simulatorId=*/3, CSClient::OPTION_AUTO_RECONNECT);
    client.changeCommsInterface(new com_tesk::CSCommsInterfaceTCPBuffered);
    client.addCallbackInterface(&lamp);
    if (!lamp.works() || client.registerOutputParameter({"switch", CSClient::TYPE_INT}) != 0 ||
        client.registerInputParameter({"lamp", CSClient::TYPE_INT, /*subscriptionMode=*/1}) != 0 ||
        client.open(argv[1], static_cast<unsigned int>(std::strtoul(argv[2], nullptr, 10)), nullptr) != 0) {
        return EXIT_FAILURE;
    }

    // Without a host the client keeps trying to connect, and sends the latest published value once it is connected.
    CSClient::Parameter position{"switch", {}, CSClient::TYPE_INT};
    position.value.asInt = -1;
    constexpr timespec kPeriod{0, 50'000'000};
    while (sigtimedwait(&stopSignals, nullptr, &kPeriod) < 0) {
        const std::int32_t now = std::ifstream(argv[3]).get() == '1' ? 1 : 0;
        if (now != position.value.asInt) {
            position.value.asInt = now;
            std::cout << "switch " << now << ", result " << client.publishParameter(position) << std::endl;
        }
    }
    return client.close() == CSClient::STATE_DISCONNECTED ? EXIT_SUCCESS : EXIT_FAILURE;
}
