#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tests/model/Step.h"

namespace com_tesk::test {

/// What happens, in order, each as one text: "result 0", "sent " and the bytes of a frame, "out " and a line,
/// "0 state 1->2", "sleep", "connect", "disconnect" ...
using EventLog = std::vector<std::string>;

/// The rules of the system, written a second time as plainly as they can be: no thread, no lock, no pointer. What the
/// library does in a life must be what this does. What another thread does meanwhile is a call, for which this thread's
/// changes and debts are put aside.
class Model {
  public:
    struct Input {
        std::uint32_t type = 0;
        std::uint32_t mode = 0;
        std::uint32_t id = 0;
    };
    struct Output {
        std::uint32_t type = 0;
        std::uint32_t id = 0;
        bool published = false;
        std::uint32_t bits = 0;
        /// Tells this registration of the name from earlier and later ones.
        unsigned int serial = 0;
    };
    struct OutputReference {
        std::string name;
        unsigned int serial = 0;
    };

    Model(std::uint32_t newSimulatorId, std::uint32_t newOptions) : simulatorId(newSimulatorId), options(newOptions) {}

    /// Appends what happens to `log`.
    void apply(const Step& step);

    EventLog log;

    std::map<std::string, Input> inputs;
    std::map<std::uint32_t, std::string> inputIds;
    std::map<std::string, Output> outputs;
    std::map<std::uint32_t, OutputReference> outputIds;

    std::uint32_t state = 0;
    std::uint32_t address = 0;
    std::uint32_t port = 0;
    std::uint32_t simulatorId;
    std::string versionText = "UNKNOWN";
    std::uint32_t protocolVersion = 0;
    bool interfaces[Step::kInterfaces] = {};

  private:
    // Operations of the application.
    std::uint32_t registerInputs(const std::vector<Step::Record>& definitions);
    std::uint32_t registerOutputs(const std::vector<Step::Record>& definitions);
    std::uint32_t unregisterInputs(const std::vector<std::string>& names);
    std::uint32_t unregisterOutputs(const std::vector<std::string>& names);
    std::uint32_t publish(std::uint32_t mode, const std::vector<Step::Record>& values);
    std::uint32_t sendRaw(std::uint32_t type, const std::string& body);

    // The connection.
    void setState(std::uint32_t newState);
    void open();
    void connect(bool accepted);
    void closeConnection();
    void forceClose();
    void beginDisconnecting();
    void sleep();
    void wait(std::uint32_t wanted, std::uint32_t seconds);
    void end();
    void lose(std::uint32_t loss);
    void reregister();
    void reregisterInputs();
    void reregisterOutputs();

    // What the host sends.
    void receive(const std::string& body);
    void receiveInputConfirmation(const std::string& body);
    void receiveOutputConfirmation(const std::string& body);
    void receiveUpdate(const std::string& body);
    void receiveVersion(const std::string& body);
    void publishAgain(const std::vector<std::string>& names);

    // Requests.
    std::string begin(char code) const;
    std::uint32_t sendInputSubscription(const std::vector<std::string>& names);
    std::uint32_t sendOutputSubscription(const std::vector<std::string>& names);
    std::uint32_t sendUnsubscription(char code, const std::vector<std::uint32_t>& ids);
    std::uint32_t sendPublication(const std::vector<std::string>& names, std::uint32_t mode);
    std::uint32_t sendBatch(const std::string& body);
    std::uint32_t sendData(const std::string& body);
    std::uint32_t write(const std::string& frame);

    void print(const char* stream, const std::string& line);
    bool isSilent() const { return (options & 2U) != 0; }
    bool reconnects() const { return (options & 1U) != 0; }
    /// Tells every interface, and lets happen what is to happen inside.
    void notify(Step::Event event, const std::string& what);
    void notifyOne(std::uint32_t callback, Step::Event event, const std::string& what);
    void happen(Step::Event event, std::uint32_t number);
    void applyOnAnotherThread(const std::vector<Step>& steps);
    std::vector<std::uint32_t> interfacesNow() const;

    // A close that a failed write owes while a table or the state is being changed comes after the change.
    void beginTableChange() { ++tableChanges; }
    void endTableChange();
    void beginStateChange() { ++stateChanges; }
    void endStateChange();
    void payOwedClose();

    struct WriteFailure {
        std::int32_t result;
        std::uint32_t error;
    };

    const std::uint32_t options;
    std::deque<WriteFailure> writeFailures;
    std::map<std::pair<std::uint32_t, std::uint32_t>, std::deque<Step>> insides;
    // Of this thread.
    unsigned int tableChanges = 0;
    unsigned int stateChanges = 0;
    bool owesClose = false;
    bool announcesEnd = false;
    // Of the threads that wait for this one.
    bool othersHoldTables = false;
    bool othersHoldChange = false;
    /// Until the end is complete, this thread sees the state before it.
    bool othersAnnounceEnd = false;
    // During a change to ready: what other threads register is left to its re-registration.
    bool leavesInputs = false;
    bool leavesOutputs = false;
    /// To be closed when the change of state is complete.
    bool isCloseRequested = false;
    /// The pause between two attempts takes no time: the connection is to end.
    bool isPauseEnded = false;
    unsigned int nextSerial = 1;
};

}  // namespace com_tesk::test
