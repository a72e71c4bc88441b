// Prints the values of inputs as they arrive, until it has printed <count> values or is stopped.
//
//   classic_follow_inputs <address> <port> <count, 0 for no end> <name> [<name> ...]

#include <client/SimClient.h>
#include <comms/CSCommsInterfaceTCPBuffered.h>

#include <cstdlib>
#include <future>
#include <iostream>
#include <string>

using com_tesk::CSClient;
using com_tesk::CSCommsInterfaceTCPBuffered;
using com_tesk::SimClient;

namespace {

/// Prints events. Callbacks run on the client's worker thread, so they do little and never wait.
class Follower : public CSClient::CallbackIface {
  public:
    explicit Follower(long count) : remaining(count) {}

    void connectionStateChanged(CSClient::State, CSClient::State newState) override {
        std::cerr << "state " + std::to_string(newState) + "\n" << std::flush;
    }

    void inputParametersConfirmed(const std::vector<CSClient::InputDef>& inputs) override {
        for (const CSClient::InputDef& input : inputs) {
            std::cerr << "subscribed to " + input.name + "\n" << std::flush;
        }
    }

    void inputParametersUpdated(const std::vector<CSClient::Parameter>& parameters) override {
        for (const CSClient::Parameter& parameter : parameters) {
            // The type that the host sends with each value says how to read its 32 bits.
            const bool isInteger = parameter.type == CSClient::TYPE_INT;
            const std::string number = isInteger ? std::to_string(parameter.value.asInt)  //
                                                 : std::to_string(parameter.value.asFloat);
            std::cout << parameter.name + " = " + number + "\n" << std::flush;
            if (--remaining == 0) {
                allHaveCome.set_value();
            }
        }
    }

    void outputParametersConfirmed(const std::vector<CSClient::OutputDef>&) override {}

    void waitForAll() { allHaveCome.get_future().wait(); }

  private:
    long remaining;  // Below zero when there is no end. Used by the worker thread.
    std::promise<void> allHaveCome;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 5) {
        std::cerr << "classic_follow_inputs <address> <port> <count, 0 for no end> <name> [<name> ...]" << std::endl;
        return EXIT_FAILURE;
    }
    // Created before the client, so that it still exists when the last callback runs.
    Follower follower(std::strtol(argv[3], nullptr, 10));
    SimClient client(/*simulatorId=*/2, CSClient::OPTION_AUTO_RECONNECT);
    client.changeCommsInterface(new CSCommsInterfaceTCPBuffered);
    client.addCallbackInterface(&follower);
    for (int index = 4; index < argc; ++index) {
        // A name of 32 or more characters is refused, and so is a name that is already registered.
        if (client.registerInputParameter({argv[index], CSClient::TYPE_FLOAT, /*subscriptionMode=*/1}) != 0) {
            return EXIT_FAILURE;
        }
    }
    if (client.open(argv[1], static_cast<unsigned int>(std::strtoul(argv[2], nullptr, 10)), nullptr) != 0) {
        return EXIT_FAILURE;
    }
    follower.waitForAll();
    client.close();
}
