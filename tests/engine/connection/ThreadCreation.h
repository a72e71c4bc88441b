#ifndef TESTS_ENGINE_CONNECTION_THREADCREATION_H
#define TESTS_ENGINE_CONNECTION_THREADCREATION_H

namespace com_tesk {
namespace test {

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

}  // namespace test
}  // namespace com_tesk

#endif
