#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/model/StepRunner.h"

namespace com_tesk::test {

/// The rules of the system, written a second time as plainly as possible: no thread, no lock, no pointer. What another
/// thread does is a call, for which this thread's changes and deferred close are put aside.
class Model : public StepRunner {
  public:
    enum Side { INPUTS, OUTPUTS };

    /// A registered input or output; an input has no published value.
    struct Entry {
        std::uint32_t type = 0;
        std::uint32_t mode = 0;
        std::uint32_t id = kUnassigned;
        bool published = false;
        std::uint32_t bits = 0;
    };
    struct Table {
        std::map<std::string, Entry> entries;
        /// The name of each confirmed id.
        std::map<std::uint32_t, std::string> ids;
        /// During a change to ready: what other threads register is left to the re-registration.
        bool isLeft = false;
    };

    Model(std::uint32_t newSimulatorId, std::uint32_t newOptions) : simulatorId(newSimulatorId), options(newOptions) {}

    std::string answers(const std::vector<std::string>& names) const override;
    std::string tables() const override;

    Table inputs;
    Table outputs;

  protected:
    std::optional<std::uint32_t> perform(const Step& step) override;
    void performOnAnotherThread(const std::vector<Step>& steps) override;
    bool holdsTables() const override { return own.tableChanges > 0; }
    bool holdsChange() const override { return own.stateChanges > 0; }
    bool holdsAnyLock() const override { return holdsTables() || holdsChange(); }

  private:
    using Names = std::vector<std::string>;

    // Operations of the application.
    Table& table(Side side) { return side == INPUTS ? inputs : outputs; }
    std::uint32_t registerAll(Side side, const std::vector<Step::Record>& definitions);
    std::uint32_t unregister(Side side, const Names& names);
    std::uint32_t publish(std::uint32_t mode, const std::vector<Step::Record>& values);
    std::uint32_t wait(std::uint32_t wanted, std::uint32_t seconds);
    std::string refusal(Side side, const std::vector<Step::Record>& definitions, std::size_t index);

    // The connection.
    void setState(std::uint32_t newState);
    void open();
    void connect(bool accepted);
    void closeConnection();
    void forceClose();
    void beginDisconnecting();
    void sleep();
    void end();
    void lose(std::uint32_t loss);
    void reregister();
    void reregisterInputs();
    void reregisterOutputs();

    // What the host sends.
    void receive(const std::string& body);
    void confirm(Side side, const std::string& body);
    void publishAgain(const Names& names);
    void receiveUpdate(const std::string& body);
    void receiveVersion(const std::string& body);

    // Requests.
    std::string begin(char code) const;
    std::uint32_t sendRegistration(Side side, const Names& names);
    std::uint32_t sendUnregistration(Side side, const std::vector<std::uint32_t>& ids);
    std::uint32_t sendPublication(const Names& names, std::uint32_t mode);
    std::uint32_t sendRecords(const std::string& head, std::size_t count, const std::string& records);
    std::uint32_t send(std::uint32_t type, const std::string& body);
    std::uint32_t write(const std::string& frame);

    void print(const char* stream, const std::string& line);
    bool isConnected() const;
    std::uint32_t seenState() const;
    void notify(Step::Event event, const std::string& what);

    // A close that a failed write requests while a table or the state is being changed comes after the change.
    void beginTableChange() { ++own.tableChanges; }
    void endTableChange();
    void beginStateChange() { ++own.stateChanges; }
    void endStateChange();
    void performDeferredClose();

    struct WriteFailure {
        std::int32_t result;
        std::uint32_t error;
    };
    /// What belongs to one thread.
    struct ThreadState {
        unsigned int tableChanges = 0;
        unsigned int stateChanges = 0;
        bool isCloseDeferred = false;
        bool announcesEnd = false;
    };

    std::uint32_t state = 0;
    std::uint32_t port = 0;
    std::uint32_t simulatorId;
    std::string versionText = "UNKNOWN";
    std::uint32_t protocolVersion = 0;
    std::set<std::uint32_t> interfaces;
    const std::uint32_t options;
    std::deque<WriteFailure> writeFailures;
    ThreadState own;
    bool othersAnnounceEnd = false;
    /// To be closed when the change of state is complete.
    bool isCloseRequested = false;
    /// The pause between two attempts takes no time: the connection is to end.
    bool isPauseEnded = false;
};

}  // namespace com_tesk::test
