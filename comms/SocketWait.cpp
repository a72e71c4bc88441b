#include "comms/SocketWait.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>

namespace com_tesk {

short waitUntilReady(int descriptor, short events, std::chrono::steady_clock::time_point deadline) {
    using std::chrono::milliseconds;
    using std::chrono::steady_clock;
    constexpr steady_clock::duration kNoTime{0};
    constexpr milliseconds kMaxPoll{60'000};
    for (;;) {
        const auto left = std::max(deadline - steady_clock::now(), kNoTime);
        pollfd waiting{descriptor, events, 0};
        const int ready =
            poll(&waiting, 1, static_cast<int>(std::min(std::chrono::ceil<milliseconds>(left), kMaxPoll).count()));
        if (ready > 0) {
            return waiting.revents;
        }
        if (ready < 0 && errno != EINTR) {
            return -1;
        }
        if (left == kNoTime) {
            return 0;
        }
    }
}

}  // namespace com_tesk
