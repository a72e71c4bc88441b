// A panel with an epoll loop. A line of input presses its button, the end of the input ends it: classic_panel <address> <port>
#include "classic_panel.h"

#include <sys/epoll.h>

#include <iostream>

int main(int argc, char** argv) {
    ClassicPanel panel([](const auto& part, const auto& text) { std::cout << part << ' ' << text << std::endl; });

    const int loop = epoll_create1(EPOLL_CLOEXEC);
    for (const int descriptor : {STDIN_FILENO, panel.descriptor()}) {
        epoll_event wanted{EPOLLIN, {}};
        wanted.data.fd = descriptor;
        epoll_ctl(loop, EPOLL_CTL_ADD, descriptor, &wanted);
    }
    if (!panel.open(argc == 3 ? argv[1] : "127.0.0.1",
                    argc == 3 ? static_cast<unsigned int>(std::stoul(argv[2])) : 55580)) {
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
