#include "comms/ReceiveBacklog.h"

#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace com_tesk {

bool ReceiveBacklog::takeIn(int descriptor, std::size_t limit) {
    constexpr std::size_t kMaxAtOnce = 64U << 10U;
    // Check first, because a receive at the end of the stream, or on a failed connection, would hide it from the
    // reader.
    int available = 0;
    if (ioctl(descriptor, FIONREAD, &available) != 0 || available <= 0) {
        return false;
    }
    const std::size_t count =
        std::min({static_cast<std::size_t>(available), kMaxAtOnce, limit - std::min(limit, size())});
    if (count == 0) {
        return false;
    }
    if (begin > 0 && begin >= size()) {
        std::memmove(bytes.data(), bytes.data() + begin, size());
        end = size();
        begin = 0;
    }
    try {
        bytes.resize(std::max(bytes.size(), end + count));
    } catch (const std::bad_alloc&) {
        return false;
    }
    const ssize_t received = recv(descriptor, bytes.data() + end, count, MSG_DONTWAIT);
    if (received <= 0) {
        return false;
    }
    end += static_cast<std::size_t>(received);
    return true;
}

std::size_t ReceiveBacklog::deliver(char* target, std::size_t maxCount) {
    const std::size_t count = std::min(maxCount, size());
    if (count == 0) {
        return 0;
    }
    std::memcpy(target, bytes.data() + begin, count);
    begin += count;
    if (isEmpty()) {
        release();
    }
    return count;
}

void ReceiveBacklog::release() {
    std::vector<char>().swap(bytes);
    begin = end = 0;
}

}  // namespace com_tesk
