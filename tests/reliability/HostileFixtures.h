#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/reliability/ClientKinds.h"
#include "tests/reliability/RudeHost.h"
#include "tests/reliability/Sockets.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/RecordingCallbacks.h"

namespace com_tesk::test {

/// Upper bounds in seconds. What is done at once takes microseconds: the rest is patience with a busy machine, and far
/// from the 30 seconds that a blocked write takes.
constexpr double kAtOnce = 2.5;
/// Closing sleeps two seconds at most.
constexpr double kClosing = 2.0 + kAtOnce;
/// Closing sleeps one second when the worker ends at once, and another one when it does not.
constexpr double kClosingAtOnce = 1.9;

double secondsOf(const std::function<void()>& action);

/// Waits for what no callback tells, ten seconds at most.
bool eventually(const std::function<bool()>& condition);

CSClient::Parameter floatValue(const std::string& name, float number);

/// A client with its callbacks, before its first connection.
class Victim {
  public:
    explicit Victim(const ClientKind& kind, unsigned int options = 0, unsigned int id = 7)
        : client(kind.make(id, CSClient::OPTION_SILENT | options)) {
        client->addCallbackInterface(&heard);
    }

    int open(const RudeHost& host, const CSClient::ConnectionOptions* options = nullptr) {
        return client->open(kHostAddress, host.port(), options);
    }

    bool isEmpty() const;

    /// Outlives the client, which calls it.
    RecordingCallbacks heard;
    const std::unique_ptr<CSClient> client;
};

/// Every query that never waits answers at once.
void expectQueriesAtOnce(const CSClient& client);

/// Those that look into the tables as well.
void expectAllQueriesAtOnce(const CSClient& client);

/// Registering, publishing and unregistering an output of that name succeed at once.
void expectPublishingAtOnce(CSClient& client, const std::string& name);

/// Closing keeps its bound. @return the state that it gave.
CSClient::State closeInTime(CSClient& client, double bound = kClosing);

/// As `closeInTime`, for a client of that kind that does nothing on another thread.
CSClient::State closeInTime(CSClient& client, const ClientKind& kind);

}  // namespace com_tesk::test
