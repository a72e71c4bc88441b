#pragma once

#include <chrono>
#include <condition_variable>
#include <iostream>
#include <mutex>
#include <streambuf>
#include <string>

namespace com_tesk::test {

/// Captures the text written to std::cout and std::cerr, from construction to destruction. Create it before the first
/// thread that prints, and destroy it after the last one. Any thread may read the text.
class CapturedStreams {
  public:
    CapturedStreams() : previousOut(std::cout.rdbuf(&outBuffer)), previousErr(std::cerr.rdbuf(&errBuffer)) {}
    CapturedStreams(const CapturedStreams&) = delete;
    CapturedStreams& operator=(const CapturedStreams&) = delete;
    ~CapturedStreams() {
        std::cout.rdbuf(previousOut);
        std::cerr.rdbuf(previousErr);
    }

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
        std::string text() const {
            const std::lock_guard<std::mutex> lock(mutex);
            return captured;
        }
        int insertions() const {
            const std::lock_guard<std::mutex> lock(mutex);
            return insertionCount;
        }
        bool waitFor(const std::string& part, std::chrono::milliseconds bound) const {
            std::unique_lock<std::mutex> lock(mutex);
            return changed.wait_for(lock, bound, [this, &part] { return captured.find(part) != std::string::npos; });
        }

      protected:
        int_type overflow(int_type character) override {
            if (!traits_type::eq_int_type(character, traits_type::eof())) {
                const char single = traits_type::to_char_type(character);
                xsputn(&single, 1);
            }
            return traits_type::not_eof(character);
        }
        std::streamsize xsputn(const char* characters, std::streamsize count) override {
            const std::lock_guard<std::mutex> lock(mutex);
            captured.append(characters, static_cast<std::size_t>(count));
            ++insertionCount;
            changed.notify_all();
            return count;
        }

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
