#pragma once

#include <cerrno>
#include <deque>
#include <functional>
#include <ostream>
#include <streambuf>
#include <string>
#include <utility>

#include "comms/CSCommsInterfaceTCP.h"
#include "message/RawMessage.h"
#include "tests/model/StepRunner.h"

namespace com_tesk::test {

/// A transport without a socket that logs its calls. Reads return the results that the test has queued.
class LoggingTransport : public CSCommsInterfaceTCP {
  public:
    explicit LoggingTransport(EventLog& eventLog) : CSCommsInterfaceTCP(Options()), log(eventLog) {}

    /// `bytes` appended, then `result` returned with `error` in errno.
    struct Read {
        int result;
        std::string bytes;
        int error = 0;
    };

    std::deque<Read> reads;
    /// Results of the next writes, with errno, as far as `mayFail` allows it.
    std::deque<std::pair<int, int>> writeFailures;
    /// Called in every write, before its result is decided.
    std::function<void()> onWrite;
    std::function<bool()> mayFail;
    bool accepts = true;

    bool openConnection(unsigned int /*address*/, unsigned int /*port*/) override {
        log.emplace_back("connect");
        return accepts;
    }

    int readMessage(unsigned int count, RawMessage& message) override {
        if (reads.empty()) {
            log.emplace_back("read too much");
            return 0;
        }
        const Read read = std::move(reads.front());
        reads.pop_front();
        const std::size_t oldSize = message.size();
        message.insert(message.end(), read.bytes.begin(), read.bytes.end());
        message.resize(read.result >= 0 && static_cast<unsigned int>(read.result) < count ? count : oldSize + count);
        errno = read.error;
        return read.result;
    }

    int writeMessage(const RawMessage& message) override {
        onWrite();
        if (!writeFailures.empty() && mayFail()) {
            const auto [result, error] = writeFailures.front();
            writeFailures.pop_front();
            errno = error;
            return result;
        }
        log.push_back("sent " + std::string(message.begin(), message.end()));
        return static_cast<int>(message.size());
    }

    int close() override {
        log.emplace_back("disconnect");
        return 0;
    }

  private:
    EventLog& log;
};

/// Takes the place of a stream's buffer and logs each line.
class LineLog : public std::streambuf {
  public:
    LineLog(std::ostream& caughtStream, const char* streamName, EventLog& eventLog)
        : stream(caughtStream), name(streamName), log(eventLog), previous(caughtStream.rdbuf(this)) {}
    ~LineLog() override { stream.rdbuf(previous); }

  protected:
    int_type overflow(int_type character) override {
        if (character == '\n') {
            log.push_back(name + ' ' + line);
            line.clear();
        } else if (!traits_type::eq_int_type(character, traits_type::eof())) {
            line += traits_type::to_char_type(character);
        }
        return traits_type::not_eof(character);
    }

  private:
    std::ostream& stream;
    const std::string name;
    EventLog& log;
    std::streambuf* const previous;
    std::string line;
};

}  // namespace com_tesk::test
