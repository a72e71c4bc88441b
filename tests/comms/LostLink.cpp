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
#include <stdexcept>
#include <string>
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

double secondsBetween(Clock::time_point start, Clock::time_point end) {
    return std::chrono::duration<double>(end - start).count();
}

void sleepFor(double seconds) {
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

// The host.

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
        return -1;
    }
    return accept(listener, nullptr, nullptr);
}

/// Reads `piece` bytes at most, then pauses, until the time has passed.
void readFor(double seconds, int connection, std::size_t piece, std::size_t& received) {
    const auto end = Clock::now() + std::chrono::duration<double>(seconds);
    std::vector<char> bytes(piece);
    while (Clock::now() < end) {
        const ssize_t count = recv(connection, bytes.data(), bytes.size(), MSG_DONTWAIT);
        received += count > 0 ? static_cast<std::size_t>(count) : 0;
        sleepFor(0.05);
    }
}

int runHost(std::size_t expected, const std::vector<std::string>& steps) {
    const int connection = acceptOne();
    if (connection < 0) {
        std::perror("host");
        return EXIT_FAILURE;
    }
    std::size_t received = 0;
    for (const std::string& step : steps) {
        const std::size_t colon = step.find(':');
        const double seconds = std::stod(step.substr(colon + 1));
        const std::string kind = step.substr(0, colon);
        if (kind == "quiet") {
            sleepFor(seconds);
        } else if (kind == "steady") {
            readFor(seconds, connection, 32'768, received);
        } else if (kind == "trickle") {
            readFor(seconds, connection, 500, received);
        } else {
            throw std::invalid_argument(step);
        }
    }
    std::vector<char> bytes(65'536);
    bool isAnswered = expected == 0;
    for (;;) {
        if (!isAnswered && received >= expected) {
            isAnswered = true;
            send(connection, bytes.data(), kAnswer, MSG_NOSIGNAL);
        }
        const ssize_t count = recv(connection, bytes.data(), bytes.size(), 0);
        if (count <= 0) {
            return EXIT_SUCCESS;
        }
        received += static_cast<std::size_t>(count);
    }
}

// The client.

bool connectTo(CSCommsInterfaceTCPBuffered& transport, const char* address) {
    for (int attempt = 0; attempt < 50; ++attempt) {
        if (transport.openConnection(address, kPort)) {
            return true;
        }
        sleepFor(0.1);
    }
    return false;
}

/// @return 0 answered; otherwise what ended the connection, or -1 for the end of the stream.
int converse(CSCommsInterfaceTCPBuffered& transport, std::size_t bytes, double secondsAway) {
    if (bytes > 0) {
        RawMessage message(RawMessage::DATA);
        message.resize(bytes);
        if (transport.writeMessage(message) < 0) {
            return errno;
        }
    }
    sleepFor(secondsAway);
    for (;;) {
        RawMessage answer(RawMessage::DATA);
        const int result = transport.readMessage(kAnswer, answer);
        if (result == static_cast<int>(kAnswer)) {
            return 0;
        }
        if (result != -2) {
            return result == 0 ? -1 : errno;
        }
    }
}

int runClient(char** words) {
    com_tesk::CSCommsInterfaceTCP::Options options;
    options.sendBufferSize = static_cast<std::uint32_t>(std::stoul(words[2]));
    CSCommsInterfaceTCPBuffered transport(options);
    if (!connectTo(transport, words[0])) {
        std::fputs("client: no connection\n", stderr);
        return EXIT_FAILURE;
    }
    const Clock::time_point start = Clock::now();
    const double secondsToCut = std::stod(words[4]);
    const std::string command = words[5];
    std::atomic<Clock::rep> cut{0};
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
    const Clock::time_point end = Clock::now();
    const Clock::time_point cutTime{Clock::duration(cut.load())};
    if (error == 0) {
        std::printf("answered %.1f\n", secondsBetween(start, end));
    } else {
        std::printf("gone %.1f %s\n", secondsBetween(cut == 0 ? start : cutTime, end),
                    error < 0 ? "end of stream" : std::strerror(error));
    }
    std::fflush(stdout);
    cutter.join();
    return EXIT_SUCCESS;
}

}  // namespace

int main(int count, char** words) {
    try {
        const std::string role = count > 2 ? words[1] : "";
        if (role == "host") {
            return runHost(std::stoul(words[2]), std::vector<std::string>(words + 3, words + count));
        }
        if (role == "client" && count == 8) {
            return runClient(words + 2);
        }
        std::fputs("Started by lost-link.\n", stderr);
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "%s\n", exception.what());
    }
    return EXIT_FAILURE;
}
