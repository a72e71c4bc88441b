// Passes messages of the host to the dispatcher of an engine whose callbacks call the engine. Compares the tables with
// a model, and parses every request that the engine sends with the loopback host's parser.
//
// The input: a count and as many actions for the callbacks, one byte each. Then steps, each a number of two bytes:
//   below FE 00  the length of a message body, which follows
//   FE xx        ends the connection and starts another one
//   FF xx        performs the action xx
// The upper four bits of an action select the operation, the lower four bits the names.

#include <iostream>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "fuzz/DispatcherEngine.h"
#include "fuzz/Fuzzing.h"
#include "fuzz/TableModel.h"
#include "host/Requests.h"

namespace host = com_tesk::host;
using com_tesk::CSClient;
using com_tesk::RawMessage;
using com_tesk::SimulatorProtocol;
using com_tesk::fuzz::Bytes;
using com_tesk::fuzz::DispatcherEngine;
using com_tesk::fuzz::Input;
using com_tesk::fuzz::kNames;
using com_tesk::fuzz::kNumberOfNames;
using com_tesk::fuzz::TableModel;

namespace {

/// Printing is off because the line about a new simulator id is printed in silent mode too.
const bool kIsOutputOff = [] {
    std::cout.rdbuf(nullptr);
    return true;
}();

bool isSame(const CSClient::InputDef& a, const CSClient::InputDef& b) {
    return a.name == b.name && a.type == b.type && a.subscriptionMode == b.subscriptionMode;
}

bool isSame(const CSClient::OutputDef& a, const CSClient::OutputDef& b) {
    return a.name == b.name && a.type == b.type;
}

bool isSame(const CSClient::Parameter& a, const CSClient::Parameter& b) {
    return a.name == b.name && a.type == b.type && a.value.asInt == b.value.asInt && a.reserved == b.reserved;
}

/// One engine, its model, and two callback interfaces. Every callback performs the next action of the input.
class Session {
  public:
    explicit Session(Input& input) : scriptBytes(input.countedBytes()), script(scriptBytes.data(), scriptBytes.size()) {
        engine.addCallbackInterface(&first);
        engine.connect();
        check();
    }

    ~Session() {
        engine.checkQueries();
        engine.disconnect();
        check();
    }

    void receive(const Bytes& body) {
        answer = model.receive(body);
        interfaces = static_cast<unsigned int>(engine.getNumCallbackInterfaces());
        inputCalls = outputCalls = valueCalls = 0;
        RawMessage message(RawMessage::DATA);
        message.insert(message.end(), body.begin(), body.end());
        engine.handleReceivedMessage(message);
        CSCLIENT_FUZZ_CHECK(inputCalls == (answer.inputs ? interfaces : 0));
        CSCLIENT_FUZZ_CHECK(valueCalls == (answer.values ? interfaces : 0));
        CSCLIENT_FUZZ_CHECK(outputCalls == (answer.outputs ? interfaces : 0));
        if (engine.getState() == CSClient::STATE_READY) {
            checkLastRequest();
        }
        check();
    }

    void reconnect() {
        engine.disconnect();
        check();
        engine.connect();
        check();
    }

    void act(std::uint8_t action) {
        perform(action);
        check();
    }

  private:
    /// The two interfaces act alike. They differ only in when they are registered.
    class Callbacks : public CSClient::CallbackIface {
      public:
        explicit Callbacks(Session& calledSession) : session(calledSession) {}

        void connectionStateChanged(CSClient::State /*oldState*/, CSClient::State /*newState*/) override {
            CSCLIENT_FUZZ_CHECK(session.engine.holdsConnectionMutex() && !session.engine.holdsOtherLock());
            session.actNext();
        }
        void inputParametersUpdated(const std::vector<CSClient::Parameter>& parameters) override {
            session.checkCall(session.answer.values, parameters, session.valueCalls);
        }
        void outputParametersConfirmed(const std::vector<CSClient::OutputDef>& outputs) override {
            session.checkCall(session.answer.outputs, outputs, session.outputCalls);
        }
        void inputParametersConfirmed(const std::vector<CSClient::InputDef>& inputs) override {
            CSCLIENT_FUZZ_CHECK(session.inputCalls == session.valueCalls);
            session.checkCall(session.answer.inputs, inputs, session.inputCalls);
        }

      private:
        Session& session;
    };

    template <typename Record>
    void checkCall(const std::optional<std::vector<Record>>& expected, const std::vector<Record>& actual,
                   unsigned int& calls) {
        CSCLIENT_FUZZ_CHECK(!engine.holdsAnyLock());
        CSCLIENT_FUZZ_CHECK(expected.has_value());
        CSCLIENT_FUZZ_CHECK(std::equal(actual.begin(), actual.end(), expected->begin(), expected->end(),
                                       [](const Record& a, const Record& b) { return isSame(a, b); }));
        ++calls;
        actNext();
    }

    /// Checks what the engine publishes again, and what it registers again after a new simulator id.
    void checkLastRequest() {
        std::vector<std::uint32_t> expected;
        for (const std::string& name : answer.toPublishAgain) {
            const auto found = model.outputs.find(name);
            if (found != model.outputs.end() && found->second.published) {
                expected.push_back(found->second.id);
            }
        }
        const host::Request& last = engine.transportToCheck().last;
        if (!expected.empty()) {
            const auto* const publish = std::get_if<host::Publish>(&last);
            CSCLIENT_FUZZ_CHECK(
                publish != nullptr &&
                std::equal(publish->values.begin(), publish->values.end(), expected.begin(), expected.end(),
                           [](const host::Publish::Record& a, std::uint32_t id) { return a.id == id; }));
        }
        if (answer.isNewId && !model.outputs.empty()) {
            const auto* const outputs = std::get_if<host::RegisterOutputs>(&last);
            CSCLIENT_FUZZ_CHECK(outputs != nullptr && outputs->outputs.size() == model.outputs.size());
        } else if (answer.isNewId && !model.inputs.empty()) {
            const auto* const inputs = std::get_if<host::SubscribeInputs>(&last);
            CSCLIENT_FUZZ_CHECK(inputs != nullptr && inputs->inputs.size() == model.inputs.size());
        }
    }

    void check() const {
        CSCLIENT_FUZZ_CHECK(!engine.holdsAnyLock());
        engine.checkTables();
    }

    void actNext() {
        if (!script.empty()) {
            perform(script.byte());
        }
    }

    void perform(std::uint8_t action) {
        const unsigned int names = action & 0xFU;
        const std::string& name = kNames[names % kNumberOfNames];
        const std::string& nextName = kNames[(names + 1) % kNumberOfNames];
        // A call that contains the same name twice is refused.
        const std::string& otherName = names < kNumberOfNames ? name : nextName;
        const CSClient::ParameterType type = names < kNumberOfNames ? CSClient::TYPE_INT : CSClient::TYPE_FLOAT;
        switch (action >> 4U) {
            case 0:
                registerInputs({{name, type, names}});
                break;
            case 1:
                registerOutputs({{name, type}});
                break;
            case 2:
                registerInputs({{nextName, type, 1}, {name, CSClient::TYPE_INT, 2}, {otherName, type, 3}});
                break;
            case 3:
                registerOutputs({{nextName, type}, {name, CSClient::TYPE_INT}, {otherName, type}});
                break;
            case 4:
                unregister(
                    [&] {
                        return engine.unregisterInputParameters({name, nextName});
                    },
                    [&] {
                        model.eraseInput(name);
                        model.eraseInput(nextName);
                    });
                break;
            case 5:
                unregister(
                    [&] {
                        return engine.unregisterOutputParameters({name, nextName, name});
                    },
                    [&] {
                        model.eraseOutput(name);
                        model.eraseOutput(nextName);
                    });
                break;
            case 6:
                publish({parameter(name)});
                break;
            case 7:
                publish({parameter(name), parameter(nextName)});
                break;
            case 8:
                unregisterAll(names % 2 == 0);
                break;
            case 9:
                // Registrations refuse this type.
                registerInputs({{name, CSClient::TYPE_UNDEFINED, 1}});
                registerOutputs({{name, CSClient::TYPE_UNDEFINED}});
                break;
            case 10:
                engine.checkQueries();
                break;
            case 11: {
                const unsigned int id = names << 12U | names;
                const int result = engine.setSimulatorId(id);
                CSCLIENT_FUZZ_CHECK(result == (id < 32768 ? 0 : 3));
                model.simulatorId = result == 0 ? id : model.simulatorId;
                break;
            }
            case 12:
                engine.transportToCheck().isNextFailing = true;
                break;
            case 13:
                model.reregister();
                engine.reregisterAllInputParameters();
                engine.reregisterAllOutputParameters();
                break;
            case 14:
                // Only without the connection's lock.
                if (!engine.holdsConnectionMutex()) {
                    engine.forceCloseConnection();
                }
                break;
            default:
                if (engine.hasCallbackInterface(&second)) {
                    engine.removeCallbackInterface(&second);
                } else {
                    engine.addCallbackInterface(&second);
                }
                break;
        }
    }

    /// Runs an operation and checks its result: 3 when it is refused, otherwise 2 when a write failed, otherwise 0.
    template <typename Operation>
    int checkedResult(const Operation& operation, bool isRefused) {
        const unsigned int failuresBefore = engine.transportToCheck().failures;
        const int result = operation();
        const bool hasFailed = engine.transportToCheck().failures != failuresBefore;
        CSCLIENT_FUZZ_CHECK(result == (isRefused ? 3 : hasFailed ? 2 : 0));
        return result;
    }

    void registerInputs(const std::vector<CSClient::InputDef>& definitions) {
        const bool isInserted = TableModel::insert(definitions, model.inputs);
        checkedResult([&] { return engine.registerInputParameters(definitions.data(), sizeOf(definitions)); },
                      !isInserted);
    }

    void registerOutputs(const std::vector<CSClient::OutputDef>& definitions) {
        const bool isInserted = TableModel::insert(definitions, model.outputs);
        checkedResult([&] { return engine.registerOutputParameters(definitions.data(), sizeOf(definitions)); },
                      !isInserted);
    }

    template <typename Operation, typename Erase>
    void unregister(const Operation& operation, const Erase& erase) {
        if (checkedResult(operation, false) == 0) {
            erase();
        }
    }

    void unregisterAll(bool isInputs) {
        const unsigned int failuresBefore = engine.transportToCheck().failures;
        if (isInputs) {
            engine.unregisterAllInputParameters();
        } else {
            engine.unregisterAllOutputParameters();
        }
        if (engine.transportToCheck().failures == failuresBefore) {
            for (const std::string& name : kNames) {
                if (isInputs) {
                    model.eraseInput(name);
                } else {
                    model.eraseOutput(name);
                }
            }
        }
    }

    void publish(const std::vector<CSClient::Parameter>& parameters) {
        const bool isStored = model.publish(parameters);
        checkedResult(
            [&] {
                return engine.publishParameters(parameters.data(), sizeOf(parameters),
                                                SimulatorProtocol::PUBLISH_DEFAULT);
            },
            !isStored);
    }

    CSClient::Parameter parameter(const std::string& name) {
        CSClient::Parameter result;
        result.name = name;
        result.type = CSClient::TYPE_INT;
        result.value.asInt = ++lastValue;
        return result;
    }

    template <typename Record>
    static unsigned int sizeOf(const std::vector<Record>& records) {
        return static_cast<unsigned int>(records.size());
    }

    TableModel model;
    DispatcherEngine engine{model};
    Callbacks first{*this};
    Callbacks second{*this};
    Bytes scriptBytes;
    Input script;
    std::int32_t lastValue = 0;

    TableModel::Answer answer;
    unsigned int interfaces = 0;
    unsigned int inputCalls = 0;
    unsigned int outputCalls = 0;
    unsigned int valueCalls = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    Session session(input);
    while (!input.empty()) {
        const std::uint8_t high = input.byte();
        const std::uint8_t low = input.byte();
        if (high == 0xFF) {
            session.act(low);
        } else if (high == 0xFE) {
            session.reconnect();
        } else {
            session.receive(input.bytes(std::size_t{high} << 8U | low));
        }
    }
    return kIsOutputOff ? 0 : -1;
}
