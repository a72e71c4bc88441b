#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <streambuf>
#include <string>

namespace com_tesk::test {

/// Captures the text written to std::cout and std::cerr, from construction to destruction. Create it before the first
/// thread that prints, and destroy it after the last one. Any thread may read the text.
class CapturedStreams {
  public:
    CapturedStreams();
    CapturedStreams(const CapturedStreams&) = delete;
    CapturedStreams& operator=(const CapturedStreams&) = delete;
    ~CapturedStreams();

    std::string out() const { return outBuffer.text(); }
    std::string err() const { return errBuffer.text(); }

    /// Waits until the stream's text contains `part`.
    bool waitForOut(const std::string& part, std::chrono::milliseconds bound = std::chrono::seconds(10)) const {
        return outBuffer.waitFor(part, bound);
    }
    bool waitForErr(const std::string& part, std::chrono::milliseconds bound = std::chrono::seconds(10)) const {
        return errBuffer.waitFor(part, bound);
    }

    /// Returns how many insertions the stream received. A line that is composed first and written at once counts as
    /// one.
    int outInsertions() const { return outBuffer.insertions(); }
    int errInsertions() const { return errBuffer.insertions(); }

  private:
    class Buffer : public std::streambuf {
      public:
        std::string text() const;
        int insertions() const;
        bool waitFor(const std::string& part, std::chrono::milliseconds bound) const;

      protected:
        int_type overflow(int_type character) override;
        std::streamsize xsputn(const char* characters, std::streamsize count) override;

      private:
        mutable std::mutex mutex;
        mutable std::condition_variable changed;
        std::string captured;
        int insertionCount = 0;
    };

    Buffer outBuffer;
    Buffer errBuffer;
    std::streambuf* previousOut;
    std::streambuf* previousErr;
};

}  // namespace com_tesk::test
