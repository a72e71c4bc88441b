#pragma once

#include <deque>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "comms/CSCommsInterfaceTCP.h"
#include "comms/CSLockGuard.h"
#include "simulator/SimulatorProtocol.h"
#include "tests/model/Model.h"
#include "tests/model/Step.h"

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
    /// Results of the next writes, with errno.
    std::deque<std::pair<int, int>> writeFailures;
    bool accepts = true;

    bool openConnection(unsigned int address, unsigned int port) override;
    int readMessage(unsigned int count, RawMessage& message) override;
    int writeMessage(const RawMessage& message) override;
    int close() override;

  private:
    EventLog& log;
};

/// The engine with its insides in reach.
class SubjectEngine : public SimulatorProtocol {
  public:
    SubjectEngine(unsigned int id, unsigned int optionFlags) : SimulatorProtocol(id, optionFlags) {}

    /// What opening does before it starts the worker.
    void beginConnecting(unsigned int address, unsigned int port) {
        const CSLockGuard lock(connectionMutex);
        setState(CSClient::STATE_CONNECTING);
        serverAddress = address;
        serverPort = port;
    }

    bool holdsAnyLock() const {
        return connectionMutex.isHeldByThisThread() || parameterMutex.isHeldByThisThread() ||
               callbackMutex.isHeldByThisThread() || namesMutex.isHeldByThisThread() ||
               versionMutex.isHeldByThisThread();
    }

    // One thread, or a moment when no other is in the engine: no lock is needed.
    const auto& inputTable() const CSCLIENT_NO_THREAD_SAFETY_ANALYSIS { return inputsByName; }
    const auto& inputIdTable() const CSCLIENT_NO_THREAD_SAFETY_ANALYSIS { return inputNamesById; }
    const auto& outputTable() const CSCLIENT_NO_THREAD_SAFETY_ANALYSIS { return outputsByName; }
    const auto& outputIdTable() const CSCLIENT_NO_THREAD_SAFETY_ANALYSIS { return outputsById; }

    using CSClientProtocol::takeTurn;
};

/// Lives a life with the real engine, all of it on the calling thread, which is application and worker in one, and logs
/// what happens in the words of the model. Sleeps take no time; standard output and error are caught meanwhile.
class Subject {
  public:
    Subject(std::uint32_t simulatorId, std::uint32_t options);
    Subject(const Subject&) = delete;
    Subject& operator=(const Subject&) = delete;
    ~Subject();

    /// Appends what happens to `log`.
    void apply(const Step& step);

    EventLog log;

    // Declared behind the log, which the transport writes to.
    SubjectEngine engine;

    CSClient::CallbackIface* interfaceAt(std::uint32_t number) const;

  private:
    class Recorder;
    class LineLog;

    void perform(const Step& step);
    void receive(const std::string& body);
    void lose(std::uint32_t loss);
    void callbackHappened(std::uint32_t number, Step::Event event, const std::string& what);

    LoggingTransport* transport;
    std::unique_ptr<Recorder[]> recorders;
    std::unique_ptr<LineLog> outLog;
    std::unique_ptr<LineLog> errLog;
    std::map<std::pair<std::uint32_t, std::uint32_t>, std::deque<std::vector<Step>>> insides;
};

}  // namespace com_tesk::test
