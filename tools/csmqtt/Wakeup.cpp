#include "tools/csmqtt/Wakeup.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

namespace com_tesk::mqtt {

Wakeup::Wakeup() : event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (event < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

Wakeup::~Wakeup() {
    close(event);
}

void Wakeup::wake() {
    if (!isWoken.exchange(true)) {
        const std::uint64_t one = 1;
        // It cannot fail: the counter is at most 1.
        [[maybe_unused]] const ssize_t written = write(event, &one, sizeof one);
    }
}

void Wakeup::clear() {
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t taken = read(event, &count, sizeof count);
    // After the read. In the other order, a wake between the two would be consumed, and later ones would have no effect.
    isWoken.store(false);
}

}  // namespace com_tesk::mqtt
