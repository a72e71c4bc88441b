#pragma once

#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "host/LoopbackHost.h"
#include "session/Session.h"
#include "tests/session/Took.h"
#include "tests/support/Emulator.h"
#include "tests/support/HostMessages.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/ScriptedHost.h"
#include "tests/support/Waiting.h"

namespace com_tesk::session_test {

using namespace std::chrono_literals;
using test::kWaitBound;
using test::Latch;
using test::ScriptedHost;
using test::waitUntil;

using Peer = ScriptedHost::Peer;
using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

/// Returns the bound with which a test compares a time of at most `promised`: longer for a busy machine, and more so
/// for an instrumented or emulated program.
inline Milliseconds busy(Milliseconds promised) {
    const bool isSlowest = test::kUnderThreadSanitizer || test::isEmulated();
    return promised * (isSlowest ? 12 : test::kUnderSanitizer ? 8 : 3);
}

/// True when the descriptor is readable now.
inline bool isReadable(int descriptor, Milliseconds bound = 0ms) {
    pollfd waiting{descriptor, POLLIN, 0};
    return poll(&waiting, 1, static_cast<int>(bound.count())) == 1;
}

/// Dispatches whenever the descriptor is readable, until the condition is true. Returns its last result.
template <typename Condition>
bool dispatchUntil(Session& session, const Condition& condition, Milliseconds bound = kWaitBound) {
    const auto deadline = Clock::now() + bound;
    while (!condition() && Clock::now() < deadline) {
        if (isReadable(session.descriptor(), 10ms)) {
            session.dispatch();
        }
    }
    return condition();
}

/// The events of a host. Outlives the host. Any thread.
class HostRecord {
  public:
    HostOptions options(std::uint16_t port = 0) {
        HostOptions result;
        result.port = port;
        result.eventSink = [this](const HostEvent& event) {
            const std::lock_guard<std::mutex> lock(mutex);
            events.push_back(event);
        };
        return result;
    }

    std::size_t count(HostEvent::Kind kind, const std::string& name = "") {
        const std::lock_guard<std::mutex> lock(mutex);
        return static_cast<std::size_t>(std::count_if(events.begin(), events.end(), [&](const HostEvent& event) {
            return event.kind == kind && (name.empty() || event.name == name);
        }));
    }

    /// Returns the values that were published under a name, as texts: "1 2 3".
    std::string published(const std::string& name) {
        const std::lock_guard<std::mutex> lock(mutex);
        std::string texts;
        for (const HostEvent& event : events) {
            if (event.kind == HostEvent::Kind::PUBLISHED && event.name == name) {
                texts += (texts.empty() ? "" : " ") + event.value->text();
            }
        }
        return texts;
    }

    bool waitForPublished(const std::string& name, const std::string& texts) {
        return waitUntil([&] { return published(name) == texts; });
    }

  private:
    std::mutex mutex;
    std::vector<HostEvent> events;
};

/// A request of a session, as a scripted host reads it.
struct Request {
    enum Code : unsigned int { NONE, INPUTS, OUTPUTS, VALUES, REMOVE_INPUTS, REMOVE_OUTPUTS, VERSION };
    struct Record {
        unsigned int id = 0;
        unsigned int flag = 0;
        unsigned int value = 0;
        std::string name;
    };
    unsigned int code = NONE;  ///< `NONE` when the connection has ended, or nothing has arrived.
    std::vector<Record> records;

    std::vector<std::string> names() const {
        std::vector<std::string> result;
        for (const Record& record : records) {
            result.push_back(record.name);
        }
        return result;
    }
};

inline unsigned int wordAt(const test::Bytes& bytes, std::size_t offset) {
    return static_cast<unsigned int>(bytes.at(offset)) << 24U | static_cast<unsigned int>(bytes.at(offset + 1)) << 16U |
           static_cast<unsigned int>(bytes.at(offset + 2)) << 8U | bytes.at(offset + 3);
}

/// Reads one frame. Offsets are those of the body: after a sub-header of 12 bytes and the simulator word.
inline Request readRequest(Peer& peer, Milliseconds bound = ScriptedHost::kBound) {
    constexpr std::size_t kHeader = 32;
    test::Bytes frame = peer.receive(kHeader, bound);
    Request request;
    if (frame.size() < kHeader) {
        return request;
    }
    const test::Bytes body = peer.receive(wordAt(frame, 0) - kHeader, bound);
    if (body.size() != wordAt(frame, 0) - kHeader) {
        return request;
    }
    const auto nameAt = [&body](std::size_t offset) {
        const std::string field(body.begin() + static_cast<std::ptrdiff_t>(offset),
                                body.begin() + static_cast<std::ptrdiff_t>(offset) + 32);
        return field.substr(0, field.find('\0'));
    };
    request.code = body.at(11);
    const auto each = [&](std::size_t first, std::size_t size, const auto& read) {
        for (std::size_t offset = first; offset + size <= body.size(); offset += size) {
            request.records.emplace_back();
            read(request.records.back(), offset);
        }
    };
    switch (request.code) {
        case Request::INPUTS:
            each(20, 44, [&](Request::Record& record, std::size_t at) {
                record.flag = wordAt(body, at + 8);
                record.name = nameAt(at + 12);
            });
            break;
        case Request::OUTPUTS:
            each(20, 40, [&](Request::Record& record, std::size_t at) {
                record.flag = wordAt(body, at + 4);
                record.name = nameAt(at + 8);
            });
            break;
        case Request::VALUES:
            each(24, 12, [&](Request::Record& record, std::size_t at) {
                record = {wordAt(body, at), wordAt(body, at + 4), wordAt(body, at + 8), ""};
            });
            break;
        case Request::REMOVE_INPUTS:
        case Request::REMOVE_OUTPUTS:
            each(20, 4, [&](Request::Record& record, std::size_t at) { record.id = wordAt(body, at); });
            break;
        default:
            break;
    }
    return request;
}

/// Answers a request for the version, or confirms parameters with ids from `firstId` on.
inline void answer(Peer& peer, const Request& request, unsigned int firstId = 1) {
    std::vector<test::IdAndName> named;
    for (const Request::Record& record : request.records) {
        named.emplace_back(firstId++, record.name);
    }
    switch (request.code) {
        case Request::VERSION:
            peer.send(test::hexFrame(test::versionResponse(0x00010000, "scripted")));
            break;
        case Request::OUTPUTS:
            peer.send(test::hexFrame(test::outputsConfirmed(named)));
            break;
        case Request::INPUTS:
            peer.send(test::hexFrame(test::inputsConfirmed(named)));
            break;
        default:
            break;
    }
}

/// Accepts the session's connection, and answers its first `requests`. Ids begin at 1 for outputs, and at 101 for inputs.
inline std::unique_ptr<Peer> acceptAndAnswer(ScriptedHost& host, int requests) {
    auto peer = host.accept();
    for (int i = 0; i < requests && peer != nullptr; ++i) {
        const Request request = readRequest(*peer);
        answer(*peer, request, request.code == Request::INPUTS ? 101 : 1);
    }
    return peer;
}

/// Has the options of sessions, and what they log.
class SessionTest : public testing::Test {
  protected:
    SessionTest() {
        options.retry = 50ms;
        options.log = [this](Session::Level level, std::string_view text) {
            const std::lock_guard<std::mutex> lock(mutex);
            lines.emplace_back(level, text);
        };
    }

    Session::Options optionsFor(unsigned int port) const {
        Session::Options result = options;
        result.port = static_cast<std::uint16_t>(port);
        return result;
    }

    /// Returns how many lines of a level, or of a worse one, contain a text.
    std::size_t logged(Session::Level level, const std::string& part) {
        const std::lock_guard<std::mutex> lock(mutex);
        return static_cast<std::size_t>(std::count_if(lines.begin(), lines.end(), [&](const auto& line) {
            return line.first >= level && line.second.find(part) != std::string::npos;
        }));
    }

    Session::Options options;
    HostRecord record;

  private:
    std::mutex mutex;
    std::vector<std::pair<Session::Level, std::string>> lines;
};

/// Has a session with many outputs, whose values only a flush sends, and a host that reads when the test does.
class BatchTest : public SessionTest {
  protected:
    BatchTest() { options.gather = 1h; }

    /// Starts a session with `count` outputs, all confirmed. Their ids are 1 to `count`.
    void startWith(int count) {
        session = std::make_unique<Session>(optionsFor(host.port()));
        for (int i = 0; i < count; ++i) {
            outputs.push_back(session->output<std::int32_t>("OUT" + std::to_string(i)));
        }
        session->start();
        peer = host.accept();
        ASSERT_NE(peer, nullptr);
        answer(*peer, readRequest(*peer));
        answer(*peer, readRequest(*peer));
        ASSERT_TRUE(session->waitUntil(Link::READY, kWaitBound));
    }

    void setAll(std::int32_t value) const {
        for (const auto& output : outputs) {
            output.set(value);
        }
    }

    /// Sets and flushes until the socket takes no more, in the middle of a frame. Returns the last value, which is
    /// staged.
    std::int32_t fillSocket() {
        std::int32_t value = 0;
        for (int refused = 0; refused < 25;) {  // The system may still move bytes to the host's side.
            const std::uint64_t bytes = session->health().bytesOut;
            setAll(++value);
            session->flush();
            if (session->health().bytesOut != bytes) {
                refused = 0;
            } else {
                ++refused;
                std::this_thread::sleep_for(10ms);
            }
        }
        return value;
    }

    ScriptedHost host;
    std::unique_ptr<Peer> peer;
    std::vector<Output<std::int32_t>> outputs;
    std::unique_ptr<Session> session;
};

}  // namespace com_tesk::session_test
