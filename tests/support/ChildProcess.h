#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace com_tesk::test {

/// A program of this build in a separate process; killed on destruction when it still runs. All waits are bounded.
class ChildProcess {
  public:
    static constexpr std::chrono::seconds kBound{40};

    struct Setup {
        std::string path;
        /// The program's argument 0; the path when it is empty.
        std::string ownName;
        /// When set, standard output has space for this many bytes only, until unclog().
        std::optional<std::size_t> outputSpace;
        /// Variables of the program, such as "NAME=VALUE", besides those of the test.
        std::vector<std::string> environment{};
        /// Standard input is a pipe that the test writes to; otherwise it is that of the test.
        bool hasInput = false;
        /// Standard output is a terminal.
        bool isOnTerminal = false;
    };
    ChildProcess(const Setup& setup, const std::vector<std::string>& arguments);
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess();

    /// Waits until the stream's text contains `part`.
    bool waitForOut(const std::string& part) { return waitFor(out, part); }
    bool waitForErr(const std::string& part) { return waitFor(err, part); }

    /// Waits for a whole line of standard output that contains `part`. Returns it without its newline, or "".
    std::string lineWith(const std::string& part);

    /// True when both streams end within that time, as they do when the program ends.
    bool hasEndedWithin(std::chrono::milliseconds duration);

    /// True when the program ends within that time, whether or not anything reads its output.
    bool hasExitedWithin(std::chrono::milliseconds duration) const;

    /// Lets standard output flow again.
    void unclog() { isClogged = false; }

    /// Writes to standard input, which the setup has made a pipe.
    void write(const std::string& text) const;
    /// Ends standard input.
    void closeInput();

    /// Closes the test's end of standard output, so that the program's next write to it fails.
    void closeOutput();

    void signal(int number) const;

    /// Returns the memory of the program that is in use now, in bytes.
    long residentBytes() const;

    /// Returns how often the program's first thread has slept or waited so far.
    long timesBlocked() const;
    /// Waits until it has done so again.
    bool waitUntilBlockedAgain(long timesBefore) const;

    /// Waits for the end. Returns the exit code; -1 when a signal ended the program or the bound passes first.
    int exitCode();

    /// Returns the time from start to end; valid after exitCode().
    double seconds() const { return secondsTaken; }

    /// Returns what the program has printed so far; everything after exitCode().
    const std::string& outText() const { return out.text; }
    const std::string& errText() const { return err.text; }

  private:
    struct Stream {
        int descriptor = -1;
        std::string text;
    };
    using Clock = std::chrono::steady_clock;

    static void openTerminal(int (&ends)[2]);
    void clog(int writeEnd, std::size_t space);
    bool waitFor(const Stream& stream, const std::string& part);
    /// Reads the next piece of either stream. Returns false when both have ended or the deadline passes.
    bool readMore(Clock::time_point deadline);
    void readFrom(Stream& stream);

    pid_t process = -1;
    int in = -1;
    Stream out;
    Stream err;
    bool isClogged = false;
    std::size_t fillerLeft = 0;
    const Clock::time_point start = Clock::now();
    double secondsTaken = 0;
};

}  // namespace com_tesk::test
