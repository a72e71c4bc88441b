// A panel on one thread. A line of input presses its button, the end of the input ends it: panel [<host> <port>]
#include "panel.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <iostream>

#include "host_place.h"

int main(int argc, char** argv) {
    const HostPlace place(argc, argv);
    com_tesk::Session::Options options;
    options.host = place.address;
    options.port = place.port;
    com_tesk::Session session(options);
    const Panel panel(session,
                      [](const auto& part, const auto& text) { std::cout << part << ' ' << text << std::endl; });

    const int loop = epoll_create1(EPOLL_CLOEXEC);
    for (const int descriptor : {STDIN_FILENO, session.descriptor()}) {
        epoll_event wanted{EPOLLIN, {}};
        wanted.data.fd = descriptor;
        epoll_ctl(loop, EPOLL_CTL_ADD, descriptor, &wanted);
    }
    session.start();
    for (epoll_event event{}; epoll_wait(loop, &event, 1, -1) == 1;) {
        char line[80];
        if (event.data.fd == session.descriptor()) {
            session.dispatch();
        } else if (read(STDIN_FILENO, line, sizeof line) > 0) {
            panel.press();
        } else {
            return session.stop(std::chrono::seconds(1)) ? 0 : 1;
        }
    }
}
