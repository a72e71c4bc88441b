#include "tools/csx/Signals.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>

namespace com_tesk::csx {

Signals::Signals() {
    sigemptyset(&caught);
    sigaddset(&caught, SIGINT);
    sigaddset(&caught, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &caught, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    readable = signalfd(-1, &caught, SFD_CLOEXEC | SFD_NONBLOCK);
    if (readable < 0) {
        throw std::system_error(errno, std::generic_category(), "signals");
    }
}

Signals::~Signals() {
    close(readable);
    pthread_sigmask(SIG_UNBLOCK, &caught, nullptr);
}

Signals::Uncaught::Uncaught(const Signals& caughtSignals) : signals(caughtSignals) {
    pthread_sigmask(SIG_UNBLOCK, &signals.caught, nullptr);
}

Signals::Uncaught::~Uncaught() {
    pthread_sigmask(SIG_BLOCK, &signals.caught, nullptr);
}

int Signals::taken() {
    signalfd_siginfo arrived{};
    if (last == 0 && read(readable, &arrived, sizeof arrived) == static_cast<ssize_t>(sizeof arrived)) {
        last = static_cast<int>(arrived.ssi_signo);
    }
    return last;
}

void dieOf(int signal) {
    sigset_t unblocked;
    sigemptyset(&unblocked);
    sigaddset(&unblocked, signal);
    std::signal(signal, SIG_DFL);
    pthread_sigmask(SIG_UNBLOCK, &unblocked, nullptr);
    kill(getpid(), signal);
    std::_Exit(128 + signal);
}

}  // namespace com_tesk::csx
