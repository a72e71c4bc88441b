// Draws a gauge ten times a second, in grey when its value cannot be relied on.
//   gauge <host> <port> <input> [seconds]

#include <session/Session.h>

#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <thread>

using namespace std::chrono_literals;

int main(int argc, char** argv) {
    if (argc < 4 || argc > 5) {
        std::cerr << "gauge <host> <port> <input> [seconds]\n";
        return EXIT_FAILURE;
    }
    com_tesk::Session::Options options;
    options.host = argv[1];
    options.port = static_cast<std::uint16_t>(std::strtoul(argv[2], nullptr, 10));
    com_tesk::Session session(options);
    const com_tesk::Input<float> input = session.input<float>(argv[3]);
    input.setMaxAge(500ms);  // The host sends this value at least twice a second.
    session.start();

    const bool isEndless = argc < 5;
    const long frames = isEndless ? 0 : 10 * std::strtol(argv[4], nullptr, 10);
    for (long frame = 0; isEndless || frame < frames; ++frame) {
        // No callback and no lock: the newest value, and whether to trust it.
        const com_tesk::Reading<float> reading = input.read();
        const bool isGrey = reading.quality != com_tesk::Quality::GOOD;
        std::cout << (isGrey ? "\033[90m" : "") << std::fixed << std::setprecision(1) << std::setw(9) << reading.value
                  << "  " << toString(reading.quality) << (isGrey ? "\033[0m" : "") << std::endl;
        std::this_thread::sleep_for(100ms);
    }
}
