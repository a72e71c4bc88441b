// A needle that follows a gauge of the host: needle [<host> <port>]
#include <poll.h>
#include <session/Session.h>

#include <algorithm>

#include "host_place.h"

int main(int argc, char** argv) {
    const HostPlace place(argc, argv);
    com_tesk::Session::Options options;
    options.host = place.address;
    options.port = place.port;
    com_tesk::Session session(options);
    const auto needle = session.output<float>("needle", com_tesk::Delivery::EVERY);
    const auto gauge = session.input<float>("gauge", com_tesk::Delivery::EVERY);
    gauge.onChange([needle](const com_tesk::Reading<float>& reading) {
        needle.set(std::min(reading.value, 100.0F));  // The dial ends here.
    });
    session.start();
    pollfd waiting{session.descriptor(), POLLIN, 0};
    while (poll(&waiting, 1, -1) == 1) {
        session.dispatch();
    }
}
