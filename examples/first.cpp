#include <poll.h>
#include <session/Session.h>

#include <iostream>

using namespace std::chrono_literals;

int main() {
    com_tesk::Session::Options options;  // The host is 127.0.0.1:55580 unless they say otherwise.
    com_tesk::Session session(options);
    const com_tesk::Output<float> altitude = session.output<float>("altitude");
    const com_tesk::Input<float> echo = session.input<float>("altitude");
    echo.onChange([](const com_tesk::Reading<float>& reading) { std::cout << "altitude = " << reading.value << "\n"; });
    session.onLink([](const com_tesk::LinkEvent& event) { std::cerr << event.text << "\n"; });
    session.start();
    if (!session.waitUntil(com_tesk::Link::READY, 5s)) return 1;
    altitude.set(1234.5F);
    pollfd waiting{session.descriptor(), POLLIN, 0};
    while (poll(&waiting, 1, 2000) > 0) session.dispatch();  // Callbacks run here. It ends after two quiet seconds.
}
