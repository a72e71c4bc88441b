// Measures csmqtt between a host and a broker on this machine: the time from a value at the host to a subscriber of the
// broker, and the CPU time and the memory under load.

#include <mosquitto.h>
#include <unistd.h>

#include <ctime>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bench/Measure.h"
#include "bench/Processes.h"
#include "host/LoopbackHost.h"

namespace com_tesk::bench {

namespace {

constexpr unsigned int kNames = 1'000;
constexpr double kPatience = 10;

std::string nameOf(unsigned int number) {
    return "value." + std::to_string(number);
}

/// Sleeps until that time of `wallSeconds`.
void sleepUntil(double time) {
    const auto seconds = static_cast<std::time_t>(time);
    const timespec end{seconds, static_cast<long>((time - static_cast<double>(seconds)) * 1e9)};
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr);
}

/// A client of the broker that subscribes to all values.
class Subscriber {
  public:
    explicit Subscriber(unsigned int port) {
        mosquitto_lib_init();
        client.reset(mosquitto_new(nullptr, true, this));
        mosquitto_message_callback_set(client.get(), [](mosquitto*, void* self, const mosquitto_message* message) {
            static_cast<Subscriber*>(self)->receive(*message);
        });
        check(mosquitto_connect(client.get(), "127.0.0.1", static_cast<int>(port), 600) == MOSQ_ERR_SUCCESS, "broker");
        check(mosquitto_subscribe(client.get(), nullptr, "bench/v/#", 0) == MOSQ_ERR_SUCCESS, "subscription");
    }

    /// Receives until the newest value of a name is this one.
    void waitFor(const std::string& name, unsigned int value) {
        const double deadline = wallSeconds() + kPatience;
        const std::string topic = "bench/v/" + name;
        while (newest[topic] != std::to_string(value)) {
            check(wallSeconds() < deadline, "a value has not arrived");
            loop(100);
        }
    }

    /// Receives until that time of `wallSeconds`.
    void receiveUntil(double time) {
        while (wallSeconds() < time) {
            loop(1 + static_cast<int>((time - wallSeconds()) * 1e3));
        }
    }

    unsigned long count() const { return received; }

  private:
    void loop(int milliseconds) {
        check(mosquitto_loop(client.get(), milliseconds, 1) == MOSQ_ERR_SUCCESS, "subscriber");
    }

    void receive(const mosquitto_message& message) {
        ++received;
        newest[message.topic].assign(static_cast<const char*>(message.payload),
                                     static_cast<std::size_t>(message.payloadlen));
    }

    struct Destroy {
        void operator()(mosquitto* object) const { mosquitto_destroy(object); }
    };
    std::unique_ptr<mosquitto, Destroy> client;
    std::map<std::string, std::string> newest;
    unsigned long received = 0;
};

/// The configuration of the bridge. The file is removed with the object.
class Configuration {
  public:
    Configuration(unsigned int hostPort, unsigned int brokerPort)
        : path("/tmp/bench-bridge-" + std::to_string(getpid()) + ".yaml") {
        std::ofstream file(path);
        file << "host: 127.0.0.1:" << hostPort << "\nbroker: 127.0.0.1:" << brokerPort << "\nbase: bench\nto_mqtt:\n";
        for (unsigned int number = 0; number < kNames; ++number) {
            file << "  - " << nameOf(number) << '\n';
        }
    }
    Configuration(const Configuration&) = delete;
    Configuration& operator=(const Configuration&) = delete;
    ~Configuration() { unlink(path.c_str()); }

    const std::string path;
};

/// Returns the CPU time that a process has used.
double cpuSeconds(pid_t process) {
    clockid_t clock{};
    check(clock_getcpuclockid(process, &clock) == 0, "the bridge has ended");
    return secondsOf(clock);
}

double residentMegabytes(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/statm");
    double total = 0;
    double resident = 0;
    file >> total >> resident;
    return resident * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1e6;
}

/// Changes one value at a time, at so many times a second, and waits for each.
void measureLatency(LoopbackHost& host, Subscriber& subscriber, double rate, unsigned int rounds) {
    static unsigned int value = 1;
    std::vector<double> times;
    double next = wallSeconds();
    for (unsigned int round = 0; round < rounds; ++round) {
        next += 1 / rate;
        sleepUntil(next);
        const double before = wallSeconds();
        host.setValue(nameOf(0), HostValue::real(static_cast<float>(++value)));
        subscriber.waitFor(nameOf(0), value);
        times.push_back(wallSeconds() - before);
    }
    std::printf("value at the host to a subscriber, %3.0f times a second   p50 %6.0f us   p99 %6.0f us\n", rate,
                percentile(times, 0.5) * 1e6, percentile(times, 0.99) * 1e6);
}

/// Changes all values 20 times a second.
void measureLoad(LoopbackHost& host, Subscriber& subscriber, pid_t bridge) {
    constexpr double kRate = 20;
    constexpr unsigned int kRounds = 200;
    const unsigned long before = subscriber.count();
    const double cpu = cpuSeconds(bridge);
    const double start = wallSeconds();
    for (unsigned int round = 1; round <= kRounds; ++round) {
        std::vector<std::pair<std::string, HostValue>> values;
        for (unsigned int number = 0; number < kNames; ++number) {
            values.emplace_back(nameOf(number), HostValue::real(static_cast<float>(1'000'000 + round)));
        }
        host.setValues(values);
        subscriber.receiveUntil(start + round / kRate);
    }
    subscriber.waitFor(nameOf(kNames - 1), 1'000'000 + kRounds);
    const double used = (cpuSeconds(bridge) - cpu) / (wallSeconds() - start);
    const double arrived = static_cast<double>(subscriber.count() - before) / (kNames * kRounds);
    std::printf("%u values, %.0f times a second: %.1f %% of a core, %.1f MB resident; %.2f %% have arrived\n", kNames,
                kRate, used * 100, residentMegabytes(bridge), arrived * 100);
}

}  // namespace
}  // namespace com_tesk::bench

int main(int argc, char** argv) {
    using namespace com_tesk;
    using namespace com_tesk::bench;
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s CSMQTT\n", argv[0]);
        return 1;
    }
    const Server broker({"mosquitto", "-p", "PORT"});
    LoopbackHost host({});
    const Configuration configuration(host.port(), broker.port());
    const Child bridge([&] { runSilently({argv[1], "--config", configuration.path}); });
    Subscriber subscriber(broker.port());
    subscriber.waitFor(nameOf(kNames - 1), 0);
    measureLatency(host, subscriber, 100, 1'000);
    measureLatency(host, subscriber, 10, 100);
    measureLoad(host, subscriber, bridge.id());
    return 0;
}
