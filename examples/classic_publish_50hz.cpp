// Publishes a sine of 0.1 Hz fifty times a second, for a number of seconds or until it is stopped.
//
//   classic_publish_50hz <address> [port] [seconds]

#include <client/SimClient.h>
#include <comms/CSCommsInterfaceTCPBuffered.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <thread>

using com_tesk::CSClient;
using com_tesk::CSCommsInterfaceTCPBuffered;
using com_tesk::SimClient;

namespace {

constexpr std::chrono::milliseconds kPeriod{20};
constexpr double kRadiansPerSecond = 0.1 * 2.0 * 3.14159265358979;
constexpr unsigned int kPatienceSeconds = 5;

int fail(const char* what) {
    std::cerr << "classic_publish_50hz: " << what << std::endl;
    return EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || argc > 4) {
        return fail("arguments: <address> [port] [seconds]");
    }
    const unsigned int port = argc > 2 ? static_cast<unsigned int>(std::strtoul(argv[2], nullptr, 10)) : 55580;
    const bool endless = argc < 4;
    const std::chrono::seconds duration{endless ? 0 : std::strtol(argv[3], nullptr, 10)};

    SimClient client(/*simulatorId=*/1, CSClient::OPTION_AUTO_RECONNECT);
    client.changeCommsInterface(new CSCommsInterfaceTCPBuffered);
    if (client.registerOutputParameter({"sine", CSClient::TYPE_FLOAT}) != 0) {
        return fail("the output was refused");
    }
    if (client.open(argv[1], port, nullptr) != 0 ||
        !client.waitForConnectionState(CSClient::STATE_READY, kPatienceSeconds)) {
        return fail("no connection");
    }
    if (!client.waitForOutputsToBeRegistered(kPatienceSeconds)) {
        return fail("the host has not confirmed the output");
    }

    // Each publish time is calculated from the start, so that delays of calls and of sleeping do not add up.
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();
    long published = 0;
    long failed = 0;
    for (long turn = 0; endless || turn * kPeriod < duration; ++turn) {
        std::this_thread::sleep_until(start + turn * kPeriod);
        const double seconds = std::chrono::duration<double>(turn * kPeriod).count();
        const auto value = static_cast<float>(std::sin(kRadiansPerSecond * seconds));
        // Result 2 means that the write failed. The value is stored, and sent after the reconnection.
        if (client.publishParameter({"sine", {value}, CSClient::TYPE_FLOAT}) == 0) {
            ++published;
        } else {
            ++failed;
        }
    }
    std::this_thread::sleep_until(start + duration);
    const std::chrono::duration<double> taken = Clock::now() - start;
    std::cout << "published " << published << " values in " << taken.count() << " s, " << failed << " failed"
              << std::endl;
    client.close();
    return failed == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
