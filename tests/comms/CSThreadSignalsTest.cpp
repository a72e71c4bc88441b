#include <gtest/gtest.h>
#include <pthread.h>

#include <csignal>
#include <memory>
#include <string>

#include "comms/CSThread.h"
#include "tests/comms/NoStacks.h"
#include "tests/comms/ThreadRoutines.h"

namespace com_tesk::test {
namespace {

struct Mask {
    sigset_t set;
};

void* noteMask(void* argument) {
    pthread_sigmask(SIG_SETMASK, nullptr, &static_cast<Mask*>(argument)->set);
    return nullptr;
}

Mask ownMask() {
    Mask mask{};
    noteMask(&mask);
    return mask;
}

std::string textOf(const Mask& mask) {
    std::string text;
    for (int signal = 1; signal < NSIG; ++signal) {
        text += sigismember(&mask.set, signal) == 1 ? '1' : '0';
    }
    return text;
}

/// Blocks one more signal on the calling thread for a scope.
class Blocked {
  public:
    explicit Blocked(int signal) {
        sigset_t some;
        sigemptyset(&some);
        sigaddset(&some, signal);
        pthread_sigmask(SIG_BLOCK, &some, &previous);
    }
    Blocked(const Blocked&) = delete;
    Blocked& operator=(const Blocked&) = delete;
    ~Blocked() { pthread_sigmask(SIG_SETMASK, &previous, nullptr); }

  private:
    sigset_t previous{};
};

TEST(CSThreadSignals, OfTheRoutineAreThoseOfTheCreator) {
    for (const bool isBlocked : {false, true}) {
        std::unique_ptr<Blocked> blocked;
        if (isBlocked) {
            blocked = std::make_unique<Blocked>(SIGUSR2);
        }
        Mask mask{};
        CSThread thread;
        ASSERT_TRUE(thread.create(noteMask, &mask));
        ASSERT_TRUE(thread.waitForThread());
        EXPECT_EQ(textOf(mask), textOf(ownMask()));
        EXPECT_EQ(sigismember(&mask.set, SIGUSR2), isBlocked ? 1 : 0);
    }
}

TEST(CSThreadSignals, OfTheCreatorStayAsTheyWere) {
    const Blocked blocked(SIGUSR2);
    const std::string before = textOf(ownMask());
    Mask mask{};
    CSThread thread;
    ASSERT_TRUE(thread.create(noteMask, &mask));
    EXPECT_EQ(textOf(ownMask()), before);
    EXPECT_FALSE(thread.create(noteMask, &mask));
    EXPECT_EQ(textOf(ownMask()), before);
    EXPECT_TRUE(thread.waitForThread());
}

TEST(CSThreadSignals, OfTheCreatorStayAsTheyWereWhenTheSystemRefusesAThread) {
    const std::string before = textOf(ownMask());
    const NoStacks none;
    Mask mask{};
    CSThread thread;
    EXPECT_FALSE(thread.create(noteMask, &mask));
    EXPECT_EQ(textOf(ownMask()), before);
}

}  // namespace
}  // namespace com_tesk::test
