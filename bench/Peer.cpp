#include "bench/Peer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <ctime>

#include "bench/Measure.h"

namespace com_tesk::bench {

namespace {

constexpr unsigned int kMessages = 5'000;

sockaddr_in loopback(unsigned int port) {
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_port = htons(static_cast<std::uint16_t>(port));
    name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return name;
}

/// Returns a port that was free a moment ago. It is chosen here because these servers do not report a port that they
/// choose themselves.
unsigned int freePort() {
    const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in name = loopback(0);
    socklen_t length = sizeof name;
    check(bind(descriptor, reinterpret_cast<sockaddr*>(&name), sizeof name) == 0 &&
              getsockname(descriptor, reinterpret_cast<sockaddr*>(&name), &length) == 0,
          "free port");
    ::close(descriptor);
    return ntohs(name.sin_port);
}

bool accepts(unsigned int port) {
    const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    const sockaddr_in name = loopback(port);
    const bool isAccepted = connect(descriptor, reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0;
    ::close(descriptor);
    return isAccepted;
}

/// A process that ends with the object.
class Child {
  public:
    explicit Child(const std::function<void()>& run) : id(fork()) {
        check(id >= 0, "fork");
        if (id == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            run();
            _exit(1);
        }
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child() {
        kill(id, SIGKILL);
        waitpid(id, nullptr, 0);
    }

  private:
    const pid_t id;
};

void runServer(std::vector<std::string> arguments, unsigned int port) {
    std::vector<char*> pointers;
    for (std::string& argument : arguments) {
        if (argument == "PORT") {
            argument = std::to_string(port);
        }
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);
    const int nowhere = open("/dev/null", O_WRONLY);
    dup2(nowhere, STDOUT_FILENO);
    dup2(nowhere, STDERR_FILENO);
    execvp(pointers.front(), pointers.data());
}

bool isInstalled(const std::string& program) {
    return std::system(("command -v " + program + " >/dev/null").c_str()) == 0;
}

/// Publishes `kMessages` for each byte that arrives.
void publishOnDemand(const Peer& peer, unsigned int port, int demands) {
    const std::unique_ptr<PeerClient> client = peer.connect(port);
    char demand = 0;
    while (read(demands, &demand, 1) == 1) {
        client->publish(kMessages);
    }
}

Row rowOf(const std::string& name, const std::string& work, const Effort& effort, const std::function<void()>& prepare,
          const std::function<void()>& run) {
    Row row{name, work, "ns/call"};
    std::vector<double> times;
    for (unsigned int i = 0; i < effort.rounds; ++i) {
        prepare();
        const Meter meter;
        run();
        const Usage usage = meter.stop();
        times.push_back(usage.seconds / kMessages * 1e9);
    }
    row.library = median(times);
    return row;
}

std::vector<Row> measure(const Peer& peer, const Effort& effort) {
    const unsigned int port = freePort();
    const Child server([&] { runServer(peer.server, port); });
    for (unsigned int i = 0; !accepts(port); ++i) {
        check(i < 500, "the peer's server does not start");
        constexpr timespec kPause{0, 10'000'000};
        nanosleep(&kPause, nullptr);
    }
    // Fork before this process uses the peer's library, which may have threads.
    int demands[2];
    check(pipe(demands) == 0, "pipe");
    const Child publisher([&] { publishOnDemand(peer, port, demands[0]); });

    const std::unique_ptr<PeerClient> client = peer.connect(port);
    std::vector<Row> rows;
    rows.push_back(rowOf(
        peer.name + "-publish", peer.name + ": 1 value a publish call", effort, [] {},
        [&] { client->publish(kMessages); }));
    client->subscribe();
    rows.push_back(rowOf(
        peer.name + "-receive", peer.name + ": updates of 1", effort,
        [&] { check(write(demands[1], "x", 1) == 1, "publisher"); }, [&] { client->receive(kMessages); }));
    ::close(demands[0]);
    ::close(demands[1]);
    return rows;
}

}  // namespace

std::vector<Work> workOf(const Peer& peer) {
    if (!isInstalled(peer.server.front())) {
        std::printf("Left out: %s (its server %s is not installed)\n", peer.name.c_str(), peer.server.front().c_str());
        return {};
    }
    return {{{peer.name + "-publish", peer.name + "-receive"},
             [peer](const Effort& effort) { return measure(peer, effort); }}};
}

std::vector<Work> peerWork() {
    std::vector<Work> all;
    const auto add = [&all](const Peer& peer) {
        for (const Work& work : workOf(peer)) {
            all.push_back(work);
        }
    };
#ifdef CSCLIENT_HAS_NATS
    add(natsPeer());
#else
    std::printf("Left out: nats (built without libnats-dev)\n");
#endif
#ifdef CSCLIENT_HAS_MOSQUITTO
    add(mosquittoPeer());
#else
    std::printf("Left out: mosquitto (built without libmosquitto-dev)\n");
#endif
#ifdef CSCLIENT_HAS_REDIS
    add(redisPeer());
#else
    std::printf("Left out: redis (built without libhiredis-dev)\n");
#endif
    static_cast<void>(add);
    return all;
}

}  // namespace com_tesk::bench
