#include "tools/service/StandardStreams.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace com_tesk::service_test {
namespace {

/// Closes a descriptor and all lower ones, and returns whether all three are open afterwards and the next one is none
/// of them.
bool areOpenWithout(int highest) {
    for (int descriptor = 0; descriptor <= highest; ++descriptor) {
        close(descriptor);
    }
    service::openClosedStreams();
    for (int descriptor = 0; descriptor <= STDERR_FILENO; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) < 0) {
            return false;
        }
    }
    return open("/dev/null", O_RDONLY | O_CLOEXEC) > STDERR_FILENO;
}

}  // namespace

TEST(StandardStreams, AreNeverTheDescriptorsOfSockets) {
    for (int highest = -1; highest <= STDERR_FILENO; ++highest) {
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            _exit(areOpenWithout(highest) ? 0 : 1);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0) << "closed up to " << highest;
    }
}

}  // namespace com_tesk::service_test
