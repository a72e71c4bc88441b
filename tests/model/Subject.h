#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "client/CSClient.h"
#include "comms/CSCommsInterfaceTCP.h"
#include "tests/model/Model.h"
#include "tests/model/Step.h"
#include "tests/support/OpenEngine.h"

namespace com_tesk::test {

/// A transport without a socket that logs what it is asked for. Reads give what has been queued.
class LoggingTransport : public CSCommsInterfaceTCP {
  public:
    explicit LoggingTransport(EventLog& eventLog) : CSCommsInterfaceTCP(Options()), log(eventLog) {}

    /// `bytes` appended, then `result` returned with `error` in errno.
    struct Read {
        int result;
        std::string bytes;
        int error;
    };

    std::deque<Read> reads;
    /// Results of the next writes, with errno, as far as `mayFail` allows it.
    std::deque<std::pair<int, int>> writeFailures;
    /// Called in every write, before its result is decided.
    std::function<void()> onWrite;
    std::function<bool()> mayFail;
    bool accepts = true;

    bool openConnection(unsigned int address, unsigned int port) override;
    int readMessage(unsigned int count, RawMessage& message) override;
    int writeMessage(const RawMessage& message) override;
    int close() override;

  private:
    EventLog& log;
};

/// The engine with its inside in reach.
class SubjectEngine : public OpenEngine {
  public:
    using OpenEngine::OpenEngine;

    /// What `forceCloseConnection` does when the change of another thread takes too long.
    void closeAfterTheChange() {
        engineParts().connection.requestClose();
        engineParts().connection.closeIfRequested();
    }
};

/// A client around such an engine.
class SubjectClient : public CSClient {
  public:
    SubjectClient(unsigned int id, unsigned int optionFlags)
        : CSClient(optionFlags), subject(new SubjectEngine(id, optionFlags)) {
        engine = subject;
    }
    ~SubjectClient() override { subject->pretendState(STATE_DISCONNECTED); }

    /// Owned by the base class.
    SubjectEngine* const subject;
};

/// Lives a life with the real engine, and logs what happens in the words of the model. The calling thread is application
/// and worker in one. Another thread takes the steps of a `MEANWHILE`, and the calling thread waits for it, so that the
/// order is always the same. Sleeps take no time; standard output and error are caught meanwhile. A thread that waits for
/// a lock by polling is logged too.
class Subject {
  public:
    Subject(std::uint32_t simulatorId, std::uint32_t options);
    Subject(const Subject&) = delete;
    Subject& operator=(const Subject&) = delete;
    ~Subject();

    /// Appends what happens to `log`.
    void apply(const Step& step);

    EventLog log;

    /// A thread polls for a lock.
    void lockPolled() { log.push_back("polls for a lock"); }

  private:
    // Declared behind the log, which the transport writes to.
    SubjectClient client;

  public:
    SubjectEngine& engine;

    CSClient::CallbackIface* interfaceAt(std::uint32_t number) const;

  private:
    class Recorder;
    class LineLog;

    void perform(const Step& step);
    void receive(const std::string& body);
    void lose(std::uint32_t loss);
    void callbackHappened(std::uint32_t number, Step::Event event, const std::string& what);
    void happen(Step::Event event, std::uint32_t number);
    void performOnAnotherThread(const std::vector<Step>& steps);
    /// Performs the steps on a thread whose sleeps and polls are logged.
    void performHere(const std::vector<Step>& steps);

    LoggingTransport* transport;
    std::unique_ptr<Recorder[]> recorders;
    std::unique_ptr<LineLog> outLog;
    std::unique_ptr<LineLog> errLog;
    /// Steps of kind `DURING` and `MEANWHILE`, by event and interface.
    std::map<std::pair<std::uint32_t, std::uint32_t>, std::deque<Step>> insides;
    // Of the threads that wait for the one that runs.
    bool othersHoldTables = false;
    bool othersHoldChange = false;
};

}  // namespace com_tesk::test
