#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <future>
#include <iostream>
#include <thread>

#include "client/CSClient.h"
#include "tests/model/EventSources.h"
#include "tests/model/StepRunner.h"
#include "tests/support/OpenEngine.h"
#include "tests/support/Parameters.h"

namespace com_tesk::test {
namespace {

std::string frameHeader(std::uint32_t frameLength, std::uint32_t headerLength = 32) {
    return wireField(wireWord(frameLength) + wireWord(headerLength), 32);
}

template <typename Record>
unsigned int sizeOf(const std::vector<Record>& records) {
    return static_cast<unsigned int>(records.size());
}

RawMessage messageOf(RawMessage::Type type, const std::string& body) {
    RawMessage message(type);
    message.insert(message.end(), body.begin(), body.end());
    return message;
}

struct Engine : public OpenEngine {
    using OpenEngine::OpenEngine;

    /// What `forceCloseConnection` does when the change of another thread takes too long.
    void closeAfterTheChange() {
        engineParts().connection.requestClose();
        engineParts().connection.closeIfRequested();
    }
};

class Client : public CSClient {
  public:
    Client(unsigned int id, unsigned int optionFlags) : CSClient(optionFlags), made(new Engine(id, optionFlags)) {
        engine = made;
    }
    ~Client() override { made->pretendState(STATE_DISCONNECTED); }

    /// Owned by the base class.
    Engine* const made;
};

/// Performs steps with the real engine, and logs what happens in the words of the model. The calling thread is application
/// and worker in one. Another thread performs the steps of a `MEANWHILE`, and the calling thread waits for it, so that
/// the order is always the same. Standard output and error are caught.
class EngineUnderTest : public StepRunner {
  public:
    EngineUnderTest(std::uint32_t simulatorId, std::uint32_t options) : client(simulatorId, options) {
        transport->onWrite = [this] { happen(Step::WRITING, 0); };
        // The close after a failed write would wait for the change of a thread that waits for this one.
        transport->mayFail = [this] { return !doOthersHoldChange(); };
        engine->changeCommsInterface(transport);
        recorders.reserve(Step::kInterfaces);
        for (std::uint32_t i = 0; i < Step::kInterfaces; ++i) {
            recorders.emplace_back(*this, i);
        }
    }

    /// Applies the steps on this thread. Its sleeps take no time.
    void applyAll(const std::vector<Step>& steps) override {
        const auto sleep = [this] {
            log.emplace_back("sleep");
            happen(Step::SLEEPING, 0);
        };
        runWithoutSleeping(
            sleep, [this] { log.emplace_back("polls for a lock"); }, [this, &steps] { StepRunner::applyAll(steps); });
    }

    std::string answers(const std::vector<std::string>& names) const override {
        std::string text;
        appendItem(text, "\ncounts",
                   {engine->getNumberOfInputParameters(false), engine->getNumberOfInputParameters(true),
                    static_cast<std::uint32_t>(engine->getNumberOfInputParametersWaitingForConfirmation())});
        appendItem(text, "\ncounts",
                   {engine->getNumberOfOutputParameters(false), engine->getNumberOfOutputParameters(true),
                    static_cast<std::uint32_t>(engine->getNumberOfOutputParametersWaitingForConfirmation())});
        appendItem(text, "\nhost " + engine->getServerVersion(),
                   {engine->getProtocolVersion(), engine->getSimulatorId(), engine->getState(), engine->getServerPort(),
                    static_cast<std::uint32_t>(engine->getNumCallbackInterfaces())});
        text += '\n' + engine->getServerIPAddress();
        for (const std::string& name : names) {
            appendItem(text, "\nhas ", {engine->hasInputParameter(name, false), engine->hasInputParameter(name, true)});
            appendItem(text, "\nhas ",
                       {engine->hasOutputParameter(name, false), engine->hasOutputParameter(name, true)});
            for (std::uint32_t type = 0; type <= 3; ++type) {
                CSClient::Parameter found = parameter("old", type, 5);
                found.reserved = 99;
                const bool isFound = engine->findPublishedParameter(name, found);
                appendItem(text, found.name, {isFound, found.type, bitsOf(found.value), found.reserved});
            }
        }
        return text;
    }

    std::string tables() const override {
        std::string text;
        for (const auto& [name, entry] : engine->inputsByName()) {
            appendItem(text += "\ninput ", entry->name, {entry->type, entry->subscriptionMode, entry->serverId});
        }
        for (const auto& [id, name] : engine->inputNamesById()) {
            appendItem(text += "\ninput id ", name, {id});
        }
        for (const auto& [name, entry] : engine->outputsByName()) {
            appendItem(text += "\noutput ", entry->name,
                       {entry->type, entry->serverId, entry->published, bitsOf(entry->value)});
        }
        for (const auto& idAndEntry : engine->outputsById()) {
            appendItem(text, "\noutput id", {idAndEntry.first});
        }
        std::vector<CSClient::Parameter> published(1);
        engine->getAllPublishedParameters(published);
        for (std::size_t i = 1; i < published.size(); ++i) {  // Appended to the one before.
            appendItem(text += "\npublished ", published[i].name,
                       {published[i].type, bitsOf(published[i].value), published[i].reserved});
        }
        return text;
    }

    bool holdsAnyLock() const override { return engine->holdsAnyLock(); }

  protected:
    std::optional<std::uint32_t> perform(const Step& step) override;

    void performOnAnotherThread(const std::vector<Step>& steps) override {
        // Only ends a test that has failed already: the two threads wait for each other.
        constexpr std::chrono::seconds kBound{60};
        std::promise<void> over;
        std::thread another([this, &steps, &over] {
            applyAll(steps);
            over.set_value();
        });
        if (over.get_future().wait_for(kBound) != std::future_status::ready) {
            std::fprintf(stderr, "another thread is blocked in: %s ...\n", textOf(steps.front()).c_str());
            std::_Exit(EXIT_FAILURE);
        }
        another.join();
    }

    bool holdsTables() const override { return engine->holdsParameterMutex(); }
    bool holdsChange() const override { return engine->holdsConnectionMutex(); }

  private:
    /// Logs every callback, and performs the steps that wait for it.
    class Recorder : public CSClient::CallbackIface {
      public:
        Recorder(EngineUnderTest& calledOwner, std::uint32_t ownNumber) : owner(calledOwner), number(ownNumber) {}

        void connectionStateChanged(CSClient::State oldState, CSClient::State newState) override {
            if (!owner.engine->holdsConnectionMutex() || owner.engine->holdsOtherLock()) {
                owner.log.emplace_back("not only the connection's lock is held");
            }
            owner.callBack(number, Step::STATE_CHANGED,
                           "state " + std::to_string(oldState) + "->" + std::to_string(newState));
        }

        void inputParametersUpdated(const std::vector<CSClient::Parameter>& parameters) override {
            std::string what = "updated";
            for (const CSClient::Parameter& parameter : parameters) {
                appendItem(what += ' ', parameter.name, {parameter.type, bitsOf(parameter.value), parameter.reserved});
            }
            callBack(Step::INPUTS_UPDATED, what);
        }

        void outputParametersConfirmed(const std::vector<CSClient::OutputDef>& outputs) override {
            std::string what = "outputs confirmed";
            for (const CSClient::OutputDef& output : outputs) {
                appendItem(what += ' ', output.name, {output.type});
            }
            callBack(Step::OUTPUTS_CONFIRMED, what);
        }

        void inputParametersConfirmed(const std::vector<CSClient::InputDef>& inputs) override {
            std::string what = "inputs confirmed";
            for (const CSClient::InputDef& input : inputs) {
                appendItem(what += ' ', input.name, {input.type, input.subscriptionMode});
            }
            callBack(Step::INPUTS_CONFIRMED, what);
        }

      private:
        void callBack(Step::Event event, const std::string& what) {
            if (owner.engine->holdsAnyLock()) {
                owner.log.emplace_back("a lock is held");
            }
            owner.callBack(number, event, what);
        }

        EngineUnderTest& owner;
        const std::uint32_t number;
    };

    bool isConnected() const {
        return engine->getState() == CSClient::STATE_CONNECTED || engine->getState() == CSClient::STATE_READY;
    }

    void receive(const std::string& body) {
        if (!isConnected() || body.empty()) {
            return;
        }
        const auto size = static_cast<unsigned int>(body.size());
        transport->reads = {{32, frameHeader(size + 32)}, {static_cast<int>(size), body}};
        engine->runOnce();
        if (!transport->reads.empty()) {
            log.emplace_back("read too little");
            transport->reads.clear();
        }
    }

    void lose(std::uint32_t loss) {
        using Reads = std::deque<LoggingTransport::Read>;
        // By `Step::Loss`.
        const Reads reads[] = {
            {{0, ""}},
            {{-1, "", ECONNRESET}},
            {{10, frameHeader(40).substr(0, 10)}},
            {{32, frameHeader(40, 31)}},
            {{32, frameHeader(32)}},
            {{32, frameHeader(40)}, {0, ""}},
            {{32, frameHeader(40)}, {-1, "", ECONNRESET}},
        };
        if (isConnected()) {
            transport->reads = reads[loss];
            engine->runOnce();
        }
    }

    Client client;
    Engine* const engine = client.made;
    LoggingTransport* const transport = new LoggingTransport(log);  ///< Owned by the engine.
    std::vector<Recorder> recorders;  ///< The engine calls them in the order of their addresses.
    const LineLog outLog{std::cout, "out", log};
    const LineLog errLog{std::cerr, "err", log};
};

std::optional<std::uint32_t> EngineUnderTest::perform(const Step& step) {
    const std::uint32_t number = step.numbers[0];
    Recorder* const callbacks = number < recorders.size() ? &recorders[number] : nullptr;
    switch (step.kind) {
        case Step::REGISTER_INPUTS: {
            std::vector<CSClient::InputDef> definitions;
            for (const auto& [name, values] : step.records) {
                definitions.push_back({name, values[0], values[1]});
            }
            // No definitions: a null pointer.
            return engine->registerInputParameters(definitions.data(), sizeOf(definitions));
        }
        case Step::REGISTER_OUTPUTS: {
            std::vector<CSClient::OutputDef> definitions;
            for (const auto& [name, values] : step.records) {
                definitions.push_back({name, values[0]});
            }
            return engine->registerOutputParameters(definitions.data(), sizeOf(definitions));
        }
        case Step::UNREGISTER_INPUTS:
            return engine->unregisterInputParameters(namesOf(step.records));
        case Step::UNREGISTER_OUTPUTS:
            return engine->unregisterOutputParameters(namesOf(step.records));
        case Step::UNREGISTER_ALL_INPUTS:
            engine->unregisterAllInputParameters();
            break;
        case Step::UNREGISTER_ALL_OUTPUTS:
            engine->unregisterAllOutputParameters();
            break;
        case Step::PUBLISH: {
            std::vector<CSClient::Parameter> parameters;
            for (const auto& [name, values] : step.records) {
                parameters.push_back(parameter(name, values[0], values[1]));
                parameters.back().reserved = 77;
            }
            return engine->publishParameters(parameters.data(), sizeOf(parameters),
                                             static_cast<CSClientProtocol::PublishMode>(number));
        }
        case Step::REREGISTER:
            engine->reregisterAllInputParameters();
            engine->reregisterAllOutputParameters();
            break;
        case Step::CONFIRM_INPUTS:
        case Step::CONFIRM_OUTPUTS:
        case Step::UPDATE:
        case Step::VERSION:
        case Step::BODY:
            receive(hostMessage(step));
            break;
        case Step::DISPATCH:
            engine->handleReceivedMessage(messageOf(RawMessage::DATA, hostMessage(step)));
            break;
        case Step::LOSE:
            lose(number);
            break;
        case Step::OPEN:
            if (engine->getState() != CSClient::STATE_DISCONNECTED) {
                return engine->openConnection(1, 1, nullptr);
            }
            engine->beginConnecting(0x0100007F, 55580);
            break;
        case Step::CONNECT:
        case Step::REFUSE:
            transport->accepts = step.kind == Step::CONNECT;
            if (engine->getState() == CSClient::STATE_CONNECTING) {
                engine->runOnce();
            }
            break;
        case Step::FORCE_CLOSE:
            doOthersHoldChange() ? engine->closeAfterTheChange() : engine->forceCloseConnection();
            break;
        case Step::END:
            if (engine->getState() == CSClient::STATE_DISCONNECTING) {
                CSClientProtocol::mainThread(engine);
            }
            break;
        case Step::FAIL_WRITE:
            transport->writeFailures.emplace_back(static_cast<int>(number), static_cast<int>(step.numbers[1]));
            break;
        case Step::SEND:
            return engine->sendMessage(messageOf(static_cast<RawMessage::Type>(number), hostMessage(step)));
        case Step::SET_SIMULATOR_ID:
            return engine->setSimulatorId(number);
        case Step::ADD:
            return engine->addCallbackInterface(callbacks);
        case Step::REMOVE:
            return engine->removeCallbackInterface(callbacks);
        case Step::WAIT:
            return client.waitForConnectionState(static_cast<CSClient::State>(number), step.numbers[1]) ? 1 : 0;
        case Step::QUERY:
        case Step::DURING:
        case Step::MEANWHILE:
            break;
    }
    return std::nullopt;
}

}  // namespace

std::unique_ptr<StepRunner> newEngineUnderTest(std::uint32_t simulatorId, std::uint32_t options) {
    return std::make_unique<EngineUnderTest>(simulatorId, options);
}

}  // namespace com_tesk::test
