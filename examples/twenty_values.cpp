// Publishes 20 values of three modules at 50 Hz, one frame a cycle. Warns when the host goes and comes.
//   twenty_values [host] [port] [seconds]

#include <session/Session.h>

#include <cmath>
#include <cstdlib>
#include <iostream>
#include <thread>

using namespace std::chrono_literals;
using com_tesk::Link;

/// A module declares its outputs and sets them. It may do so on a thread of its own: `set` never blocks.
class Module {
  public:
    Module(com_tesk::Session& session, const std::string& name, int count) {
        for (int i = 0; i < count; ++i) {
            outputs.push_back(session.output<float>(name + "." + std::to_string(i)));
        }
    }
    void step(double seconds) const {
        for (std::size_t i = 0; i < outputs.size(); ++i) {
            outputs[i].set(static_cast<float>(std::sin(seconds + static_cast<double>(i))));
        }
    }

  private:
    std::vector<com_tesk::Output<float>> outputs;
};

int main(int argc, char** argv) {
    com_tesk::Session::Options options;
    options.host = argc > 1 ? argv[1] : "127.0.0.1";
    options.port = argc > 2 ? static_cast<std::uint16_t>(std::strtoul(argv[2], nullptr, 10)) : 55580;
    options.log = [](auto, auto) {};  // The warnings below replace the default log.
    com_tesk::Session session(options);
    const Module modules[]{{session, "engine", 12}, {session, "gear", 3}, {session, "position", 5}};
    session.onLink([](const com_tesk::LinkEvent& event) {
        if (event.link == Link::READY || event.link <= Link::CONNECTING) {
            std::cerr << "warning: " + event.text + "\n";
        }
    });
    session.start();
    session.waitUntil(Link::READY, 5s);  // Without a host the program works too, and its newest values arrive later.
    const long cycles = argc > 3 ? 50 * std::strtol(argv[3], nullptr, 10) : 0;
    const auto begin = std::chrono::steady_clock::now();
    for (long cycle = 0; cycles == 0 || cycle < cycles; ++cycle) {
        std::this_thread::sleep_until(begin + cycle * 20ms);
        for (const Module& module : modules) {
            module.step(0.02 * static_cast<double>(cycle));
        }
        session.flush();
        session.dispatch();
    }
    return session.stop(1s) ? EXIT_SUCCESS : EXIT_FAILURE;
}
