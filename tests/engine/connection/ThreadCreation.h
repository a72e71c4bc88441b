#pragma once

namespace com_tesk::test {

/// While one exists, the system refuses new threads to the thread that made it, as it does when it is out of them.
class NoMoreThreads {
  public:
    NoMoreThreads();
    NoMoreThreads(const NoMoreThreads&) = delete;
    NoMoreThreads& operator=(const NoMoreThreads&) = delete;
    ~NoMoreThreads();

    /// How many creations have been refused, by any thread.
    static int refusals();
};

}  // namespace com_tesk::test
