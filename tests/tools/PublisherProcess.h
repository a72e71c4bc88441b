#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace com_tesk::test {

/// How a run of the publisher is set up.
struct PublisherSetup {
    /// What the tool is told to be called.
    std::string ownName = "cspublish";
    /// Connects after a moment, which makes every byte and line predictable; see SlowConnect.cpp.
    bool connectsSlowly = true;
    /// Standard output has room for the line "Connected." and no more, until `unclog`.
    bool isClogged = false;
};

/// A run of the publisher, as a process of its own. Killed on destruction when it still runs.
class PublisherProcess {
  public:
    /// @param arguments  those behind the tool's own name.
    explicit PublisherProcess(const std::vector<std::string>& arguments,
                              const PublisherSetup& setup = PublisherSetup());

    /// A run of the very program that is installed.
    static PublisherSetup asBuilt(const std::string& ownName = "cspublish") { return {ownName, false, false}; }

    PublisherProcess(const PublisherProcess&) = delete;
    PublisherProcess& operator=(const PublisherProcess&) = delete;
    ~PublisherProcess();

    /// Waits until the stream's text contains `part`.
    bool waitForOut(const std::string& part) { return waitFor(out, part); }
    bool waitForErr(const std::string& part) { return waitFor(err, part); }

    /// Whether both streams end, as they do with the run, within that time.
    bool hasEndedWithin(std::chrono::milliseconds duration);

    /// Lets standard output flow again.
    void unclog() { clogged = false; }

    /// How often the tool's first thread has gone to sleep, or waited for anything, so far.
    long timesBlocked() const;
    /// Waits until it has done so again.
    bool waitUntilBlockedAgain(long timesBefore) const;

    /// Waits for the end of the run.
    /// @return its exit code; -1 when the bound passes first, or it was ended by a signal.
    int exitCode();

    /// How long the run took, from start to end; valid after `exitCode`.
    double seconds() const { return secondsTaken; }

    /// What the run has printed; all of it after `exitCode`.
    const std::string& outText() const { return out.text; }
    const std::string& errText() const { return err.text; }

  private:
    struct Stream {
        int descriptor = -1;
        std::string text;
    };
    using Clock = std::chrono::steady_clock;

    void clog(int writeEnd);
    bool hasEnded() const { return out.descriptor < 0 && err.descriptor < 0; }
    bool waitFor(const Stream& stream, const std::string& part);
    /// Reads what comes next on either stream. @return false when both have ended, or the deadline passes.
    bool readMore(Clock::time_point deadline);

    pid_t process = -1;
    Stream out;
    Stream err;
    bool clogged = false;
    std::size_t fillerLeft = 0;
    const Clock::time_point start = Clock::now();
    double secondsTaken = 0;
};

}  // namespace com_tesk::test
