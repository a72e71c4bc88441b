// The two ends of a connection whose cable `lost-link` cuts. Each runs in a network namespace of its own.
//
//   LostLink host BYTES STEP...
//       Accepts one connection, takes the steps and then reads quickly. It answers with 32 bytes when it has read BYTES.
//       A step is quiet:SECONDS (no reading), steady:SECONDS (some 600 KB/s) or trickle:SECONDS (500 bytes at a time).
//
//   LostLink client ADDRESS BYTES SEND-BUFFER AWAY SECONDS COMMAND
//       Connects, writes BYTES in one message, stays away from the transport for AWAY seconds and reads the answer. After
//       SECONDS it runs COMMAND in the shell; that is the cut. Negative SECONDS: never.
//       Prints "answered SECONDS" (since connecting) or "gone SECONDS ERROR" (since the cut) on standard output.
//
// Exit codes: 0 done, 1 no connection or a wrong command line.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "comms/CSCommsInterfaceTCPBuffered.h"
#include "message/RawMessage.h"

namespace {

using Clock = std::chrono::steady_clock;
using com_tesk::CSCommsInterfaceTCPBuffered;
using com_tesk::RawMessage;

constexpr unsigned int kPort = 4464;
constexpr unsigned int kAnswer = 32;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

void sleepFor(double seconds) {
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

int acceptOne() {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    constexpr int kOn = 1;
    constexpr int kReceiveBuffer = 65'536;  // Small, so that its window is soon closed.
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &kOn, sizeof kOn);
    setsockopt(listener, SOL_SOCKET, SO_RCVBUF, &kReceiveBuffer, sizeof kReceiveBuffer);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(kPort);
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 || listen(listener, 1) != 0) {
        throw std::system_error(errno, std::generic_category(), "host");
    }
    return accept(listener, nullptr, nullptr);
}

void runHost(std::size_t expected, const std::vector<std::string>& steps) {
    const std::map<std::string, std::size_t> pieces{{"quiet", 0}, {"steady", 32'768}, {"trickle", 500}};
    const int connection = acceptOne();
    std::vector<char> bytes(65'536);
    std::size_t received = 0;
    for (const std::string& step : steps) {
        const std::size_t colon = step.find(':');
        const std::size_t piece = pieces.at(step.substr(0, colon));
        const Clock::time_point start = Clock::now();
        while (secondsSince(start) < std::stod(step.substr(colon + 1))) {
            const ssize_t count = piece == 0 ? 0 : recv(connection, bytes.data(), piece, MSG_DONTWAIT);
            received += count > 0 ? static_cast<std::size_t>(count) : 0;
            sleepFor(0.05);
        }
    }
    bool isAnswered = expected == 0;
    for (ssize_t count = 1; count > 0;) {
        if (!isAnswered && received >= expected) {
            isAnswered = true;
            send(connection, bytes.data(), kAnswer, MSG_NOSIGNAL);
        }
        count = recv(connection, bytes.data(), bytes.size(), 0);
        received += static_cast<std::size_t>(count);
    }
}

void connectTo(CSCommsInterfaceTCPBuffered& transport, const char* address) {
    for (int attempt = 0; !transport.openConnection(address, kPort); ++attempt) {
        if (attempt == 50) {
            throw std::runtime_error("client: no connection");
        }
        sleepFor(0.1);
    }
}

/// @return 0 answered; otherwise what ended the connection, or -1 for the end of the stream.
int converse(CSCommsInterfaceTCPBuffered& transport, std::size_t bytes, double secondsAway) {
    RawMessage message(RawMessage::DATA);
    message.resize(bytes);
    if (bytes > 0 && transport.writeMessage(message) < 0) {
        return errno;
    }
    sleepFor(secondsAway);
    int result = -2;
    while (result == -2) {
        RawMessage answer(RawMessage::DATA);
        result = transport.readMessage(kAnswer, answer);
    }
    return result == static_cast<int>(kAnswer) ? 0 : result == 0 ? -1 : errno;
}

void runClient(char** words) {
    com_tesk::CSCommsInterfaceTCP::Options options;
    options.sendBufferSize = static_cast<std::uint32_t>(std::stoul(words[2]));
    CSCommsInterfaceTCPBuffered transport(options);
    connectTo(transport, words[0]);
    const Clock::time_point start = Clock::now();
    const double secondsToCut = std::stod(words[4]);
    const std::string command = words[5];
    std::atomic<Clock::rep> cut{start.time_since_epoch().count()};
    std::thread cutter([&] {
        if (secondsToCut >= 0) {
            sleepFor(secondsToCut);
            cut = Clock::now().time_since_epoch().count();
            if (std::system(command.c_str()) != 0) {
                std::fputs("client: the cut has failed\n", stderr);
            }
        }
    });
    const int error = converse(transport, std::stoul(words[1]), std::stod(words[3]));
    if (error == 0) {
        std::printf("answered %.1f\n", secondsSince(start));
    } else {
        std::printf("gone %.1f %s\n", secondsSince(Clock::time_point{Clock::duration(cut.load())}),
                    error < 0 ? "end of stream" : std::strerror(error));
    }
    std::fflush(stdout);
    cutter.join();
}

}  // namespace

int main(int count, char** words) {
    try {
        const std::string role = count > 2 ? words[1] : "";
        if (role == "host") {
            runHost(std::stoul(words[2]), std::vector<std::string>(words + 3, words + count));
        } else if (role == "client" && count == 8) {
            runClient(words + 2);
        } else {
            throw std::invalid_argument("Started by lost-link.");
        }
        return EXIT_SUCCESS;
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "%s\n", exception.what());
    }
    return EXIT_FAILURE;
}
