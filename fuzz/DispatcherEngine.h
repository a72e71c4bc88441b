#pragma once

#include <cerrno>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <variant>

#include "comms/CSCommsInterfaceTCP.h"
#include "fuzz/Fuzzing.h"
#include "fuzz/TableModel.h"
#include "host/FrameReader.h"
#include "host/Requests.h"
#include "tests/support/OpenEngine.h"

namespace com_tesk::fuzz {

/// Includes the longest valid name, a name that is too long, the empty name, and a name that is cut on the wire.
inline const std::string kNames[] = {
    "A",
    "ALT",
    "SPEED",
    "HDG",
    "",
    "a-name-of-exactly-31-characters",
    "a-name-that-has-32-characters---",
    std::string("N\0UL", 4),
};
inline constexpr unsigned int kNumberOfNames = sizeof kNames / sizeof kNames[0];

/// Returns a name as a name field holds it.
inline std::string onWire(const std::string& name) {
    return name.substr(0, name.find('\0'));
}

/// Parses every request that is sent, and compares it with the model.
class CheckingTransport : public CSCommsInterfaceTCP {
  public:
    explicit CheckingTransport(const TableModel& checkedModel) : CSCommsInterfaceTCP(Options()), model(checkedModel) {}

    bool openConnection(unsigned int /*address*/, unsigned int /*port*/) override { return true; }
    int close() override { return 0; }

    int writeMessage(const RawMessage& message) override {
        if (std::exchange(isNextFailing, false)) {
            ++failures;
            errno = EPIPE;
            return -1;
        }
        host::FrameReader reader;
        const Bytes bytes(message.begin(), message.end());
        const std::vector<host::Frame> frames = reader.feed(bytes.data(), bytes.size());
        CSCLIENT_FUZZ_CHECK(frames.size() == 1 && !reader.inMidFrame());
        last = host::parseRequest(frames[0].body);
        std::visit([this](const auto& request) { check(request); }, last);
        return static_cast<int>(message.size());
    }

    host::Request last;
    unsigned int failures = 0;
    bool isNextFailing = false;

  private:
    // NOLINTNEXTLINE(readability-convert-member-functions-to-static): called through `this`, like the other overloads.
    void check(const host::BadRequest& request) const { CSCLIENT_FUZZ_CHECK(request.why == "a request"); }

    void check(const host::VersionRequest& request) const { checkId(request.simulatorId); }

    void check(const host::SubscribeInputs& request) const {
        checkId(request.simulatorId);
        for (const auto& record : request.inputs) {
            CSCLIENT_FUZZ_CHECK(record.rate == record.secondRate);
            CSCLIENT_FUZZ_CHECK(isAny(model.inputs, [&record](const std::string& name, const TableModel::Input& input) {
                return onWire(name) == record.name && (input.type == CSClient::TYPE_INT) == record.isInteger;
            }));
        }
    }

    void check(const host::RegisterOutputs& request) const {
        checkId(request.simulatorId);
        for (const auto& record : request.outputs) {
            CSCLIENT_FUZZ_CHECK(isAny(model.outputs, [&record](const std::string& name,
                                                               const TableModel::Output& output) {
                return onWire(name) == record.name && (output.type == CSClient::TYPE_INT) == (record.integerFlag != 0);
            }));
        }
    }

    void check(const host::UnsubscribeInputs& request) const {
        checkId(request.simulatorId);
        for (const std::uint32_t id : request.ids) {
            CSCLIENT_FUZZ_CHECK(
                isAny(model.inputs, [id](const std::string&, const auto& input) { return input.id == id; }));
        }
    }

    void check(const host::UnregisterOutputs& request) const {
        checkId(request.simulatorId);
        for (const std::uint32_t id : request.ids) {
            CSCLIENT_FUZZ_CHECK(
                isAny(model.outputs, [id](const std::string&, const auto& output) { return output.id == id; }));
        }
    }

    void check(const host::Publish& request) const {
        checkId(request.simulatorId);
        CSCLIENT_FUZZ_CHECK(request.mode == 0 && !request.values.empty());
        for (const auto& record : request.values) {
            CSCLIENT_FUZZ_CHECK(isAny(model.outputs, [&record](const std::string&, const TableModel::Output& output) {
                return output.id == record.id && static_cast<std::uint32_t>(output.value) == record.bits &&
                       output.published;
            }));
        }
    }

    void checkId(std::uint16_t id) const { CSCLIENT_FUZZ_CHECK(id == model.simulatorId); }

    template <typename Table, typename Condition>
    static bool isAny(const Table& table, const Condition& condition) {
        return std::any_of(table.begin(), table.end(), [&condition](const auto& nameAndEntry) {
            return condition(nameAndEntry.first, nameAndEntry.second);
        });
    }

    const TableModel& model;
};

/// An engine without a worker whose tables are compared with the model.
class DispatcherEngine : public test::OpenEngine {
  public:
    explicit DispatcherEngine(TableModel& comparedModel)
        : OpenEngine(1, CSClient::OPTION_SILENT), model(comparedModel) {
        checking = new CheckingTransport(model);
        changeCommsInterface(checking);
    }

    /// Owned by the engine.
    CheckingTransport& transportToCheck() { return *checking; }

    void connect() {
        pretendState(CSClient::STATE_CONNECTING);
        startConnection();
        model.reregister();
    }

    /// Ends the connection as the worker does.
    void disconnect() {
        forceCloseConnection();
        changeState(CSClient::STATE_DISCONNECTED);
        model.eraseAll();
    }

    /// Compares the tables with the model. It takes no lock, because no other thread runs.
    void checkTables() const {
        CSCLIENT_FUZZ_CHECK(inputNamesById() == model.inputIds);
        CSCLIENT_FUZZ_CHECK(
            std::equal(outputsById().begin(), outputsById().end(), model.outputIds.begin(), model.outputIds.end(),
                       [](const auto& idAndEntry, std::uint32_t id) { return idAndEntry.first == id; }));
        CSCLIENT_FUZZ_CHECK(std::equal(inputsByName().begin(), inputsByName().end(), model.inputs.begin(),
                                       model.inputs.end(), [](const auto& actual, const auto& expected) {
                                           return actual.first == expected.first &&
                                                  actual.second->name == expected.first &&
                                                  actual.second->type == expected.second.type &&
                                                  actual.second->subscriptionMode == expected.second.mode &&
                                                  actual.second->serverId == expected.second.id;
                                       }));
        CSCLIENT_FUZZ_CHECK(std::equal(outputsByName().begin(), outputsByName().end(), model.outputs.begin(),
                                       model.outputs.end(), [](const auto& actual, const auto& expected) {
                                           return actual.first == expected.first &&
                                                  actual.second->name == expected.first &&
                                                  actual.second->type == expected.second.type &&
                                                  actual.second->serverId == expected.second.id &&
                                                  actual.second->published == expected.second.published &&
                                                  actual.second->value.asInt == expected.second.value;
                                       }));
    }

    void checkQueries() const {
        CSCLIENT_FUZZ_CHECK(getNumberOfInputParameters(false) == model.inputs.size());
        CSCLIENT_FUZZ_CHECK(getNumberOfInputParameters(true) == model.inputIds.size());
        CSCLIENT_FUZZ_CHECK(getNumberOfOutputParameters(false) == model.outputs.size());
        CSCLIENT_FUZZ_CHECK(getNumberOfOutputParameters(true) == model.outputIds.size());
        CSCLIENT_FUZZ_CHECK(getSimulatorId() == model.simulatorId);
        CSCLIENT_FUZZ_CHECK(getServerVersion() == model.hostVersion);
        CSCLIENT_FUZZ_CHECK(getProtocolVersion() == model.protocolVersion);
        for (const std::string& name : kNames) {
            const auto input = model.inputs.find(name);
            const auto output = model.outputs.find(name);
            CSCLIENT_FUZZ_CHECK(hasInputParameter(name, false) == (input != model.inputs.end()));
            CSCLIENT_FUZZ_CHECK(hasInputParameter(name, true) ==
                                (input != model.inputs.end() && input->second.id != kUnassignedId));
            CSCLIENT_FUZZ_CHECK(hasOutputParameter(name, true) ==
                                (output != model.outputs.end() && output->second.id != kUnassignedId));
            CSClient::Parameter parameter;
            CSCLIENT_FUZZ_CHECK(findPublishedParameter(name, parameter) == (output != model.outputs.end()));
            CSCLIENT_FUZZ_CHECK(output == model.outputs.end() || parameter.value.asInt == output->second.value);
        }
        std::vector<CSClient::Parameter> all;
        getAllPublishedParameters(all);
        CSCLIENT_FUZZ_CHECK(all.size() == model.outputs.size());
    }

  private:
    TableModel& model;
    CheckingTransport* checking;
};

}  // namespace com_tesk::fuzz
