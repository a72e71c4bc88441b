// Runs several clients in one process, in a ring. Each publishes a value and waits for the value of the next one.
//   classic_several_clients <address> [port] [clients]

#include <client/SimClient.h>
#include <comms/CSCommsInterfaceTCPBuffered.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <deque>
#include <future>
#include <iostream>
#include <utility>

using com_tesk::CSClient;
constexpr unsigned int kPatienceSeconds = 5;

/// One client with its callbacks. Each client has a separate simulator id, connection and worker thread.
class Station : private CSClient::CallbackIface {
  public:
    Station(unsigned int number, unsigned int next)
        : output{"station." + std::to_string(number), {static_cast<float>(number) + 0.5F}, CSClient::TYPE_FLOAT},
          expected(static_cast<float>(next) + 0.5F),
          client(number, CSClient::OPTION_AUTO_RECONNECT) {
        client.changeCommsInterface(new com_tesk::CSCommsInterfaceTCPBuffered);
        client.addCallbackInterface(this);
        client.registerOutputParameter({output.name, output.type});
        client.registerInputParameter(
            {"station." + std::to_string(next), CSClient::TYPE_FLOAT, /*subscriptionMode=*/1});
    }
    bool open(const char* address, unsigned int port) { return client.open(address, port, nullptr) == 0; }
    bool isReady() const {
        return client.waitForConnectionState(CSClient::STATE_READY, kPatienceSeconds) &&
               client.waitForOutputsToBeRegistered(kPatienceSeconds);
    }
    bool publish() { return client.publishParameter(output) == 0; }
    bool hasReceived() {
        return received.get_future().wait_for(std::chrono::seconds(kPatienceSeconds)) == std::future_status::ready;
    }

  private:
    void inputParametersUpdated(const std::vector<CSClient::Parameter>& parameters) override {
        for (const CSClient::Parameter& parameter : parameters) {
            std::cout << output.name + " receives " + std::to_string(parameter.value.asFloat) + "\n" << std::flush;
            if (parameter.value.asFloat == expected && !std::exchange(isDone, true)) {
                received.set_value();
            }
        }
    }
    void connectionStateChanged(CSClient::State, CSClient::State) override {}
    void inputParametersConfirmed(const std::vector<CSClient::InputDef>&) override {}
    void outputParametersConfirmed(const std::vector<CSClient::OutputDef>&) override {}

    CSClient::Parameter output;
    float expected;
    bool isDone = false;  // Used by the worker thread.
    std::promise<void> received;
    com_tesk::SimClient client;  // Last, so that it is destroyed before the members that its callbacks use.
};

int main(int argc, char** argv) {
    if (argc < 2 || argc > 4) {
        std::cerr << "classic_several_clients <address> [port] [clients]" << std::endl;
        return EXIT_FAILURE;
    }
    const unsigned int port = argc > 2 ? static_cast<unsigned int>(std::strtoul(argv[2], nullptr, 10)) : 55580;
    const unsigned int count = argc > 3 ? static_cast<unsigned int>(std::strtoul(argv[3], nullptr, 10)) : 5;
    std::deque<Station> stations;
    bool isFine = true;
    for (unsigned int number = 0; number < count; ++number) {
        isFine = stations.emplace_back(number, (number + 1) % count).open(argv[1], port) && isFine;
    }
    const auto everyOne = [&stations](auto answer) { return std::all_of(stations.begin(), stations.end(), answer); };
    isFine = isFine && everyOne([](const Station& station) { return station.isReady(); }) &&
             everyOne([](Station& station) { return station.publish(); }) &&
             everyOne([](Station& station) { return station.hasReceived(); });
    std::cout << (isFine ? "every client has received the value of the next one" : "a client has failed") << std::endl;
    return isFine ? EXIT_SUCCESS : EXIT_FAILURE;
}
