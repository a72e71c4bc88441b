// A panel with an epoll loop. A line of input presses its button, the end of the input ends it:
//   classic_panel [<address> <port>]
// With PANEL_TRANSPORT=standard it uses the standard transport.
#include "classic_panel.h"

#include <sys/epoll.h>

#include <iostream>

#include "host_place.h"

/// Returns the transport for production, unless the environment says otherwise.
static std::unique_ptr<com_tesk::CSCommsInterfaceTCP> wantedTransport() {
    const char* const wanted = std::getenv("PANEL_TRANSPORT");
    const bool isStandard = wanted != nullptr && wanted == std::string("standard");
    return isStandard ? nullptr : std::make_unique<com_tesk::CSCommsInterfaceTCPBuffered>();
}

int main(int argc, char** argv) {
    ClassicPanel panel([](const auto& part, const auto& text) { std::cout << part << ' ' << text << std::endl; },
                       wantedTransport());

    const int loop = epoll_create1(EPOLL_CLOEXEC);
    for (const int descriptor : {STDIN_FILENO, panel.descriptor()}) {
        epoll_event wanted{EPOLLIN, {}};
        wanted.data.fd = descriptor;
        epoll_ctl(loop, EPOLL_CTL_ADD, descriptor, &wanted);
    }
    const HostPlace place(argc, argv);
    if (!panel.open(place.address.c_str(), place.port)) {
        return 1;
    }
    for (epoll_event event{}; epoll_wait(loop, &event, 1, -1) == 1;) {
        char line[80];
        if (event.data.fd == panel.descriptor()) {
            panel.dispatch();
        } else if (read(STDIN_FILENO, line, sizeof line) > 0) {
            panel.press();
        } else {
            return panel.close() ? 0 : 1;
        }
    }
}
