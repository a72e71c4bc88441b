// The two transports side by side, in one run: reads and CPU time per received update, and the cost of a publish.
//
// The host is a second process that does next to nothing: it confirms what is registered and sends updates that it has
// built beforehand, each block in one piece, because the standard transport wants frames whole.

#include <arpa/inet.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "bench/CountedCalls.h"
#include "client/SimClient.h"
#include "comms/CSCommsInterfaceTCPBuffered.h"
#include "host/Layout.h"
#include "host/Replies.h"

namespace com_tesk::bench {
namespace {

namespace layout = host::layout;

constexpr unsigned int kValuesPerRound = 600'000;
constexpr unsigned int kPublishesPerRound = 100'000;
constexpr std::size_t kBlock = 16U << 10U;

void check(bool isGood, const char* what) {
    if (!isGood) {
        std::perror(what);
        std::exit(1);
    }
}

double threadSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// The host's process.

bool receiveAll(int socket, std::uint8_t* target, std::size_t size) {
    return ::recv(socket, target, size, MSG_WAITALL) == static_cast<ssize_t>(size);
}

bool sendAll(int socket, const std::uint8_t* source, std::size_t size) {
    while (size > 0) {
        const ssize_t sent = ::send(socket, source, size, MSG_NOSIGNAL);
        if (sent <= 0) {
            return false;
        }
        source += sent;
        size -= static_cast<std::size_t>(sent);
    }
    return true;
}

/// Sends updates of `count` values until `kValuesPerRound` have gone, one block at a time.
void sendUpdates(int socket, unsigned int count) {
    std::vector<host::InputUpdate> values;
    for (unsigned int id = 1; id <= count; ++id) {
        values.push_back({id, HostValue::real(1.0F)});
    }
    const host::Bytes update = host::encodeUpdate(1, values);
    host::Bytes block;
    unsigned int updatesPerBlock = 0;
    do {
        block.insert(block.end(), update.begin(), update.end());
        ++updatesPerBlock;
    } while (block.size() + update.size() <= kBlock);
    for (unsigned int left = kValuesPerRound / count; left > 0;) {
        const unsigned int now = std::min(left, updatesPerBlock);
        if (!sendAll(socket, block.data(), now * update.size())) {
            return;
        }
        left -= now;
        int unacknowledged = 1;
        while (unacknowledged > 0 && ioctl(socket, SIOCOUTQ, &unacknowledged) == 0) {
        }
    }
}

void serve(int socket) {
    std::vector<std::uint8_t> frame;
    for (;;) {
        frame.resize(layout::kHeaderSize);
        if (!receiveAll(socket, frame.data(), frame.size())) {
            return;
        }
        const std::size_t body = host::wordFrom(frame.data()) - layout::kHeaderSize;
        frame.resize(body);
        if (!receiveAll(socket, frame.data(), body)) {
            return;
        }
        const unsigned int count = body >= layout::kRecordsOffset ? host::wordAt(frame, layout::kCountOffset) : 0;
        if (frame[layout::kCodeOffset] == layout::kSubscribeInputs) {
            std::vector<host::InputConfirmation> inputs;
            for (unsigned int i = 0; i < count; ++i) {
                inputs.push_back({i + 1, 0, 0, HostValue::real(1.0F), "value" + std::to_string(i)});
            }
            const host::Bytes reply = host::encodeInputsReply(1, inputs);
            if (!sendAll(socket, reply.data(), reply.size())) {
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            sendUpdates(socket, count);
        } else if (frame[layout::kCodeOffset] == layout::kRegisterOutputs) {
            const host::Bytes reply = host::encodeOutputsReply(1, {{1, 0, 0, "value0"}});
            if (!sendAll(socket, reply.data(), reply.size())) {
                return;
            }
        }
    }
}

class HostProcess {
  public:
    HostProcess() {
        const int listener = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in name{};
        name.sin_family = AF_INET;
        name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof name;
        check(bind(listener, reinterpret_cast<sockaddr*>(&name), sizeof name) == 0 && listen(listener, 8) == 0 &&
                  getsockname(listener, reinterpret_cast<sockaddr*>(&name), &length) == 0,
              "host");
        portNumber = ntohs(name.sin_port);
        child = fork();
        check(child >= 0, "fork");
        if (child == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            for (;;) {
                const int accepted = accept(listener, nullptr, nullptr);
                constexpr int kOn = 1;
                setsockopt(accepted, IPPROTO_TCP, TCP_NODELAY, &kOn, sizeof kOn);
                serve(accepted);
                ::close(accepted);
            }
        }
        ::close(listener);
    }
    HostProcess(const HostProcess&) = delete;
    HostProcess& operator=(const HostProcess&) = delete;
    ~HostProcess() {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    unsigned int port() const { return portNumber; }

  private:
    unsigned int portNumber = 0;
    pid_t child = -1;
};

// The client's process.

/// Notes when the first and the last update came, and what the worker had used by then.
class Receiver : public CSClient::CallbackIface {
  public:
    explicit Receiver(unsigned int valuesExpected) : expected(valuesExpected) {}

    void connectionStateChanged(CSClient::State /*oldState*/, CSClient::State newState) override {
        if (newState == CSClient::STATE_DISCONNECTING) {
            isOver = true;
        }
    }
    void outputParametersConfirmed(const std::vector<CSClient::OutputDef>& /*outputs*/) override { isOver = true; }
    void inputParametersConfirmed(const std::vector<CSClient::InputDef>& /*inputs*/) override {}
    void inputParametersUpdated(const std::vector<CSClient::Parameter>& parameters) override {
        if (!isConfirmed) {  // The values that come with the confirmation.
            isConfirmed = true;
            return;
        }
        if (received == 0) {
            cpu = -threadSeconds();
            reads = 0 - countedReads();
        }
        received += static_cast<unsigned int>(parameters.size());
        ++updates;
        if (received >= expected) {
            cpu += threadSeconds();
            reads += countedReads();
            isOver = true;
        }
    }

    void wait() const {
        while (!isOver) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    bool isComplete() const { return received >= expected; }

    double cpu = 0;
    unsigned long reads = 0;
    unsigned int updates = 0;

  private:
    const unsigned int expected;
    unsigned int received = 0;
    bool isConfirmed = false;
    std::atomic<bool> isOver{false};
};

std::unique_ptr<SimClient> newClient(bool isBuffered) {
    auto client = std::make_unique<SimClient>(1, CSClient::OPTION_SILENT);
    if (isBuffered) {
        client->changeCommsInterface(new CSCommsInterfaceTCPBuffered);
    }
    return client;
}

/// What one round has measured, by name.
using Figures = std::vector<std::pair<std::string, double>>;

constexpr double kMicroseconds = 1e6;

Figures receiveRound(const HostProcess& host, bool isBuffered, unsigned int valuesPerUpdate) {
    const auto client = newClient(isBuffered);
    Receiver receiver(kValuesPerRound / valuesPerUpdate * valuesPerUpdate);
    client->addCallbackInterface(&receiver);
    std::vector<CSClient::InputDef> inputs;
    for (unsigned int i = 0; i < valuesPerUpdate; ++i) {
        inputs.push_back({"value" + std::to_string(i), CSClient::TYPE_FLOAT, 1});
    }
    client->registerInputParameters(inputs);
    client->open("127.0.0.1", host.port(), nullptr);
    receiver.wait();
    check(receiver.isComplete(), "the connection ended early");
    const std::string what = " per update of " + std::to_string(valuesPerUpdate);
    return {{"reads" + what, static_cast<double>(receiver.reads) / receiver.updates},
            {"worker CPU" + what + ", us", receiver.cpu / receiver.updates * kMicroseconds}};
}

Figures publishRound(const HostProcess& host, bool isBuffered) {
    const auto client = newClient(isBuffered);
    Receiver receiver(1);
    client->addCallbackInterface(&receiver);
    client->registerOutputParameter({"value0", CSClient::TYPE_FLOAT});
    client->open("127.0.0.1", host.port(), nullptr);
    receiver.wait();
    std::vector<double> times(kPublishesPerRound);
    CSClient::Parameter parameter{"value0", {1.0F}, CSClient::TYPE_FLOAT};
    const unsigned long writes = countedWrites();
    const double cpu = threadSeconds();
    for (double& time : times) {
        const auto before = std::chrono::steady_clock::now();
        client->publishParameter(parameter);
        time = std::chrono::duration<double>(std::chrono::steady_clock::now() - before).count();
    }
    const double cpuPerCall = (threadSeconds() - cpu) / kPublishesPerRound;
    const double writesPerCall = static_cast<double>(countedWrites() - writes) / kPublishesPerRound;
    std::sort(times.begin(), times.end());
    return {{"writes per publish call", writesPerCall},
            {"CPU per publish call, us", cpuPerCall * kMicroseconds},
            {"publish call, p50, us", times[times.size() / 2] * kMicroseconds},
            {"publish call, p99, us", times[times.size() * 99 / 100] * kMicroseconds}};
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

/// Prints the medians over the rounds, in which the two transports take turns.
template <typename Round>
void compare(unsigned int rounds, const Round& round) {
    std::vector<Figures> standard;
    std::vector<Figures> buffered;
    for (unsigned int i = 0; i < rounds; ++i) {
        standard.push_back(round(false));
        buffered.push_back(round(true));
    }
    for (std::size_t figure = 0; figure < standard.front().size(); ++figure) {
        std::vector<double> before;
        std::vector<double> after;
        std::vector<double> ratios;
        for (unsigned int i = 0; i < rounds; ++i) {
            before.push_back(standard[i][figure].second);
            after.push_back(buffered[i][figure].second);
            ratios.push_back(after.back() / before.back());
        }
        std::printf("%-40s %10.3f %10.3f %8.3f\n", standard.front()[figure].first.c_str(), median(before),
                    median(after), median(ratios));
    }
    std::fflush(stdout);
}

}  // namespace
}  // namespace com_tesk::bench

int main(int argc, char** argv) {
    using namespace com_tesk::bench;
    const unsigned int rounds = argc > 1 ? static_cast<unsigned int>(std::max(1, std::atoi(argv[1]))) : 5;
    const HostProcess host;
    std::printf("%-40s %10s %10s %8s   medians of %u rounds\n", "", "standard", "buffered", "ratio", rounds);
    compare(rounds, [&host](bool isBuffered) { return receiveRound(host, isBuffered, 1); });
    compare(rounds, [&host](bool isBuffered) { return receiveRound(host, isBuffered, 1'000); });
    compare(rounds, [&host](bool isBuffered) { return publishRound(host, isBuffered); });
}
