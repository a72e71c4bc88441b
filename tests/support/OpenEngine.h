#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "comms/CSLockGuard.h"
#include "engine/EngineParts.h"
#include "simulator/SimulatorProtocol.h"
#include "tests/support/Parameters.h"

namespace com_tesk {

/// Gives tests access to the private members of an engine's parts.
class PartAccess {
  public:
    static auto& state(ConnectionState& connection) { return connection.state; }
    static auto& connectionMutex(ConnectionState& connection) { return connection.connectionMutex; }
    static auto& serverAddress(ConnectionState& connection) { return connection.serverAddress; }
    static auto& serverPort(ConnectionState& connection) { return connection.serverPort; }
    static auto& connectionOptions(ConnectionState& connection) CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
        return connection.connectionOptions;
    }
    static auto& connectionNumber(ConnectionState& connection) { return connection.connectionNumber; }
    static void change(ConnectionState& connection, CSClient::State state) CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
        connection.change(state);
    }
    static auto& retryPause(ConnectionState& connection) { return connection.retryPause; }
    static auto& isCloseRequested(ConnectionState& connection) { return connection.isCloseRequested; }

    static auto& callbackMutex(CallbackRegistry& registry) { return registry.callbackMutex; }
    static auto& callbacks(CallbackRegistry& registry) CSCLIENT_NO_THREAD_SAFETY_ANALYSIS { return registry.callbacks; }

    static auto& inputs(ParameterTables& tables) CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
        return tables.inputTable.inputsByName;
    }
    static auto& inputNamesById(ParameterTables& tables) CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
        return tables.inputTable.inputNamesById;
    }
    static auto& outputs(ParameterTables& tables) CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
        return tables.outputTable.outputsByName;
    }
    static auto& outputsById(ParameterTables& tables) CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
        return tables.outputTable.outputsById;
    }
    template <typename Entry>
    static auto& byName(EntryTable<Entry>& table) {
        return table.byName;
    }
    template <typename Entry>
    static auto& namesMutex(EntryTable<Entry>& table) {
        return table.namesMutex;
    }

    static auto& versionMutex(HostVersion& version) { return version.versionMutex; }
};

}  // namespace com_tesk

namespace com_tesk::test {

/// An engine whose parts a test can read and change.
class OpenEngine : public SimulatorProtocol {
  public:
    using SimulatorProtocol::SimulatorProtocol;

    /// Sets the state only: no callback runs, and nothing else of a state change happens.
    void pretendState(CSClient::State pretended) { PartAccess::state(engineParts().connection) = pretended; }

    /// Sets the address of the host as if the engine had been opened with it.
    void pretendAddress(unsigned int address, unsigned int port) {
        PartAccess::serverAddress(engineParts().connection) = address;
        PartAccess::serverPort(engineParts().connection) = port;
    }

    /// Changes the state as the engine does, under the lock that this needs.
    void changeState(CSClient::State newState) {
        underConnectionLock([this, newState] { setState(newState); });
    }

    /// Does what opening does before it starts the worker.
    void beginConnecting(unsigned int address = 0, unsigned int port = 0) {
        underConnectionLock([=] {
            PartAccess::isCloseRequested(engineParts().connection) = false;
            PartAccess::retryPause(engineParts().connection).reset();
            setState(CSClient::STATE_CONNECTING);
            pretendAddress(address, port);
        });
    }

    template <typename Step>
    void underConnectionLock(const Step& step) {
        engineParts().connection.underLock(step);
    }

    /// Waits until a change of state in progress is complete. Returns false on a time-out.
    bool waitForStateChange(std::chrono::milliseconds timeout = std::chrono::seconds(30)) {
        return engineParts().connection.underLockWithin(timeout, [] {});
    }

    /// Runs one iteration of the worker's loop.
    bool runOnce() { return engineParts().runOnce(); }

    /// Makes the pauses between attempts to connect end at once from now on.
    void skipPauses() { PartAccess::retryPause(engineParts().connection).interrupt(); }

    /// Where `connectionMutex` is.
    const ConnectionState& connectionPart() const { return engineParts().connection; }

    bool holdsConnectionMutex() const { return engineParts().connection.isChangedByThisThread(); }
    bool holdsParameterMutex() const { return parameterMutex().isHeldByThisThread(); }
    bool holdsCallbackMutex() const { return PartAccess::callbackMutex(engineParts().callbacks).isHeldByThisThread(); }
    bool holdsNamesMutex() const {
        ParameterTables& tables = engineParts().tables;
        return PartAccess::namesMutex(PartAccess::inputs(tables)).isHeldByThisThread() ||
               PartAccess::namesMutex(PartAccess::outputs(tables)).isHeldByThisThread();
    }
    bool holdsAnyLock() const { return holdsConnectionMutex() || holdsOtherLock(); }
    bool holdsOtherLock() const {
        return holdsParameterMutex() || holdsCallbackMutex() || holdsNamesMutex() ||
               PartAccess::versionMutex(engineParts().host).isHeldByThisThread();
    }

    /// The registry's own set of callback interfaces.
    auto& callbackInterfaces() const { return PartAccess::callbacks(engineParts().callbacks); }

    CSMutex& parameterMutex() const { return engineParts().tables.mutex(); }

    /// @name The four tables
    /// Only while no other thread runs, or with `parameterMutex` held.
    /// @{
    using Inputs = std::map<std::string_view, InputParameterEntry*>;
    using Outputs = std::map<std::string_view, OutputParameterEntry*>;
    Inputs& inputsByName() const { return PartAccess::byName(PartAccess::inputs(engineParts().tables)); }
    /// Copies, in the order of the ids.
    std::map<std::uint32_t, std::string> inputNamesById() const {
        const auto& names = PartAccess::inputNamesById(engineParts().tables);
        return {names.begin(), names.end()};
    }
    Outputs& outputsByName() const { return PartAccess::byName(PartAccess::outputs(engineParts().tables)); }
    std::map<std::uint32_t, OutputParameterEntry*> outputsById() const {
        const auto& ids = PartAccess::outputsById(engineParts().tables);
        return {ids.begin(), ids.end()};
    }
    /// @}

    /// @name The tables as text, in table order
    /// They take `parameterMutex`.
    /// @{
    /// "A type 1 mode 2 waiting", "B type 2 mode 0 id 7"
    std::vector<std::string> inputTable() const {
        const CSLockGuard lock(parameterMutex());
        std::vector<std::string> lines;
        for (const auto& [key, entry] : inputsByName()) {
            lines.push_back(title(key, *entry) + " mode " + std::to_string(entry->subscriptionMode) + status(*entry));
        }
        return lines;
    }
    /// "A type 1 waiting 00000000", "B type 2 id 7 published 00000005"
    std::vector<std::string> outputTable() const {
        const CSLockGuard lock(parameterMutex());
        std::vector<std::string> lines;
        for (const auto& [key, entry] : outputsByName()) {
            char bits[9];
            std::snprintf(bits, sizeof bits, "%08X", static_cast<unsigned int>(bitsOf(entry->value)));
            lines.push_back(title(key, *entry) + status(*entry) + (entry->published ? " published " : " ") + bits);
        }
        return lines;
    }
    /// "7=A 9=B"
    std::string inputIds() const {
        const CSLockGuard lock(parameterMutex());
        std::string ids;
        for (const auto& [id, name] : inputNamesById()) {
            ids += (ids.empty() ? "" : " ") + std::to_string(id) + "=" + name;
        }
        return ids;
    }
    /// "7=A 9=B"; "7=gone" when the entry is not in the table of outputs.
    std::string outputIds() const {
        const CSLockGuard lock(parameterMutex());
        std::string ids;
        for (const auto& idAndEntry : outputsById()) {
            std::string name = "gone";
            for (const auto& [key, entry] : outputsByName()) {
                name = entry == idAndEntry.second ? std::string(key) : name;
            }
            ids += (ids.empty() ? "" : " ") + std::to_string(idAndEntry.first) + "=" + name;
        }
        return ids;
    }
    /// @}

  private:
    /// The name of an entry must be its key in the table.
    template <typename Entry>
    static std::string title(std::string_view key, const Entry& entry) {
        return (key == entry.name ? entry.name : "KEY " + std::string(key) + " NAME " + entry.name) + " type " +
               std::to_string(entry.type);
    }
    template <typename Entry>
    static std::string status(const Entry& entry) {
        return entry.serverId == 0xFFFFF ? " waiting" : " id " + std::to_string(entry.serverId);
    }
};

}  // namespace com_tesk::test
