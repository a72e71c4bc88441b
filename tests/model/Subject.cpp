#include "tests/model/Subject.h"

#include <dlfcn.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <future>
#include <iostream>
#include <streambuf>
#include <thread>

#include "tests/client/CountedSleeps.h"

namespace com_tesk::test {

namespace {

/// Whose steps this thread takes.
thread_local Subject* current = nullptr;

std::uint32_t bitsOf(const CSClient::Value& value) {
    std::uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

CSClient::Value valueOf(std::uint32_t bits) {
    CSClient::Value value;
    std::memcpy(&value, &bits, sizeof bits);
    return value;
}

std::string frameHeader(std::uint32_t frameLength, char headerLength = 32) {
    std::string header;
    for (unsigned int shift = 32; shift > 0; shift -= 8) {
        header += static_cast<char>(frameLength >> (shift - 8) & 0xFFU);
    }
    header += std::string(3, '\0') + headerLength;
    header.resize(32, '\0');
    return header;
}

std::vector<std::string> namesOf(const std::vector<Step::Record>& records) {
    std::vector<std::string> names;
    names.reserve(records.size());
    for (const Step::Record& record : records) {
        names.push_back(record.name);
    }
    return names;
}

}  // namespace

bool LoggingTransport::openConnection(unsigned int /*address*/, unsigned int /*port*/) {
    log.push_back("connect");
    return accepts;
}

int LoggingTransport::readMessage(unsigned int count, RawMessage& message) {
    if (reads.empty()) {
        log.push_back("read too much");
        return 0;
    }
    const Read read = std::move(reads.front());
    reads.pop_front();
    const std::size_t oldSize = message.size();
    message.insert(message.end(), read.bytes.begin(), read.bytes.end());
    message.resize(read.result >= 0 && static_cast<unsigned int>(read.result) < count ? count : oldSize + count);
    errno = read.error;
    return read.result;
}

int LoggingTransport::writeMessage(const RawMessage& message) {
    onWrite();
    if (!writeFailures.empty() && mayFail()) {
        const std::pair<int, int> failure = writeFailures.front();
        writeFailures.pop_front();
        errno = failure.second;
        return failure.first;
    }
    log.push_back("sent " + std::string(message.begin(), message.end()));
    return static_cast<int>(message.size());
}

int LoggingTransport::close() {
    log.push_back("disconnect");
    return 0;
}

/// Logs every callback, and does what is to be done inside it.
class Subject::Recorder : public CSClient::CallbackIface {
  public:
    void connectionStateChanged(CSClient::State oldState, CSClient::State newState) override {
        owner->callbackHappened(number, Step::STATE_CHANGED,
                                "state " + std::to_string(oldState) + "->" + std::to_string(newState));
    }

    void inputParametersUpdated(const std::vector<CSClient::Parameter>& parameters) override {
        std::string what = "updated";
        for (const CSClient::Parameter& parameter : parameters) {
            what += ' ' + escaped(parameter.name) + ',' + std::to_string(parameter.type) + ',' +
                    std::to_string(bitsOf(parameter.value)) + ',' + std::to_string(parameter.reserved);
        }
        owner->callbackHappened(number, Step::INPUTS_UPDATED, what);
    }

    void outputParametersConfirmed(const std::vector<CSClient::OutputDef>& outputs) override {
        std::string what = "outputs confirmed";
        for (const CSClient::OutputDef& output : outputs) {
            what += ' ' + escaped(output.name) + ',' + std::to_string(output.type);
        }
        owner->callbackHappened(number, Step::OUTPUTS_CONFIRMED, what);
    }

    void inputParametersConfirmed(const std::vector<CSClient::InputDef>& inputs) override {
        std::string what = "inputs confirmed";
        for (const CSClient::InputDef& input : inputs) {
            what += ' ' + escaped(input.name) + ',' + std::to_string(input.type) + ',' +
                    std::to_string(input.subscriptionMode);
        }
        owner->callbackHappened(number, Step::INPUTS_CONFIRMED, what);
    }

    Subject* owner = nullptr;
    std::uint32_t number = 0;
};

/// Takes the place of a stream's buffer and logs each line.
class Subject::LineLog : public std::streambuf {
  public:
    LineLog(std::ostream& caughtStream, const char* streamName, EventLog& eventLog)
        : stream(caughtStream), name(streamName), log(eventLog), previous(caughtStream.rdbuf(this)) {}
    ~LineLog() override { stream.rdbuf(previous); }

  protected:
    int_type overflow(int_type character) override {
        if (character == '\n') {
            log.push_back(name + ' ' + line);
            line.clear();
        } else if (!traits_type::eq_int_type(character, traits_type::eof())) {
            line += traits_type::to_char_type(character);
        }
        return traits_type::not_eof(character);
    }

  private:
    std::ostream& stream;
    const std::string name;
    EventLog& log;
    std::streambuf* const previous;
    std::string line;
};

Subject::Subject(std::uint32_t simulatorId, std::uint32_t options)
    : client(simulatorId, options), engine(*client.subject), recorders(new Recorder[Step::kInterfaces]) {
    auto newTransport = std::make_unique<LoggingTransport>(log);
    transport = newTransport.get();
    transport->onWrite = [this] { happen(Step::WRITING, 0); };
    // The close after a failed write would wait for the change, whose thread waits.
    transport->mayFail = [this] { return !othersHoldChange; };
    engine.changeCommsInterface(newTransport.release());
    for (std::uint32_t i = 0; i < Step::kInterfaces; ++i) {
        recorders[i].owner = this;
        recorders[i].number = i;
    }
    outLog = std::make_unique<LineLog>(std::cout, "out", log);
    errLog = std::make_unique<LineLog>(std::cerr, "err", log);
}

Subject::~Subject() = default;

CSClient::CallbackIface* Subject::interfaceAt(std::uint32_t number) const {
    return number < Step::kInterfaces ? &recorders[number] : nullptr;
}

void Subject::apply(const Step& step) {
    performHere({step});
}

void Subject::performHere(const std::vector<Step>& steps) {
    const CountedSleeps sleeps([this](int) {
        log.push_back("sleep");
        happen(Step::SLEEPING, 0);
    });
    current = this;
    for (const Step& step : steps) {
        perform(step);
    }
    current = nullptr;
}

void Subject::performOnAnotherThread(const std::vector<Step>& steps) {
    // Only ends a test that has failed already: the two threads wait for each other.
    constexpr std::chrono::seconds kBound{60};
    const bool heldTables = othersHoldTables;
    const bool heldChange = othersHoldChange;
    othersHoldTables = heldTables || engine.holdsParameterMutex();
    othersHoldChange = heldChange || engine.holdsConnectionMutex();
    std::promise<void> over;
    std::thread another([this, &steps, &over] {
        performHere(steps);
        over.set_value();
    });
    if (over.get_future().wait_for(kBound) != std::future_status::ready) {
        std::fprintf(stderr, "another thread is blocked in: %s ...\n", textOf(steps.front()).c_str());
        std::_Exit(EXIT_FAILURE);
    }
    another.join();
    othersHoldTables = heldTables;
    othersHoldChange = heldChange;
}

void Subject::perform(const Step& step) {
    if (othersHoldTables && needsTables(step)) {
        return;
    }
    const auto result = [this](unsigned int value) { log.push_back("result " + std::to_string(value)); };
    const auto asResult = [&result](int value) { result(static_cast<unsigned int>(value)); };
    switch (step.kind) {
        case Step::REGISTER_INPUTS: {
            std::vector<CSClient::InputDef> definitions;
            for (const Step::Record& record : step.records) {
                definitions.push_back({record.name, record.values[0], record.values[1]});
            }
            // No definitions: a null pointer.
            return asResult(
                engine.registerInputParameters(definitions.data(), static_cast<unsigned>(definitions.size())));
        }
        case Step::REGISTER_OUTPUTS: {
            std::vector<CSClient::OutputDef> definitions;
            for (const Step::Record& record : step.records) {
                definitions.push_back({record.name, record.values[0]});
            }
            return asResult(
                engine.registerOutputParameters(definitions.data(), static_cast<unsigned>(definitions.size())));
        }
        case Step::UNREGISTER_INPUTS:
            return asResult(engine.unregisterInputParameters(namesOf(step.records)));
        case Step::UNREGISTER_OUTPUTS:
            return asResult(engine.unregisterOutputParameters(namesOf(step.records)));
        case Step::UNREGISTER_ALL_INPUTS:
            return engine.unregisterAllInputParameters();
        case Step::UNREGISTER_ALL_OUTPUTS:
            return engine.unregisterAllOutputParameters();
        case Step::PUBLISH: {
            std::vector<CSClient::Parameter> parameters;
            for (const Step::Record& record : step.records) {
                parameters.push_back({record.name, valueOf(record.values[1]), record.values[0], 77});
            }
            return asResult(engine.publishParameters(parameters.data(), static_cast<unsigned>(parameters.size()),
                                                     static_cast<CSClientProtocol::PublishMode>(step.numbers[0])));
        }
        case Step::CONFIRM_INPUTS:
        case Step::CONFIRM_OUTPUTS:
        case Step::UPDATE:
        case Step::VERSION:
        case Step::BODY:
            return receive(hostMessage(step));
        case Step::LOSE:
            return lose(step.numbers[0]);
        case Step::OPEN:
            if (engine.getState() != CSClient::STATE_DISCONNECTED) {
                return asResult(engine.openConnection(1, 1, nullptr));
            }
            return engine.beginConnecting(0x0100007F, 55580);
        case Step::CONNECT:
        case Step::REFUSE:
            transport->accepts = step.kind == Step::CONNECT;
            if (engine.getState() == CSClient::STATE_CONNECTING) {
                engine.runOnce();
            }
            return;
        case Step::FORCE_CLOSE:
            return othersHoldChange ? engine.closeAfterTheChange() : engine.forceCloseConnection();
        case Step::END:
            if (engine.getState() == CSClient::STATE_DISCONNECTING) {
                CSClientProtocol::mainThread(&engine);
            }
            return;
        case Step::FAIL_WRITE:
            transport->writeFailures.emplace_back(static_cast<int>(step.numbers[0]), static_cast<int>(step.numbers[1]));
            return;
        case Step::SEND: {
            RawMessage message(static_cast<RawMessage::Type>(step.numbers[0]));
            if (!step.records.empty()) {
                message.insert(message.end(), step.records[0].name.begin(), step.records[0].name.end());
            }
            return result(engine.sendMessage(message));
        }
        case Step::SET_SIMULATOR_ID:
            return asResult(engine.setSimulatorId(step.numbers[0]));
        case Step::ADD:
            return result(engine.addCallbackInterface(interfaceAt(step.numbers[0])));
        case Step::REMOVE:
            return asResult(engine.removeCallbackInterface(interfaceAt(step.numbers[0])));
        case Step::WAIT:
            return result(
                client.waitForConnectionState(static_cast<CSClient::State>(step.numbers[0]), step.numbers[1]) ? 1 : 0);
        case Step::DURING:
        case Step::MEANWHILE:
            insides[{step.numbers[0], step.numbers[1]}].push_back(step);
            return;
    }
}

void Subject::receive(const std::string& body) {
    const CSClient::State state = engine.getState();
    if ((state != CSClient::STATE_CONNECTED && state != CSClient::STATE_READY) || body.empty()) {
        return;
    }
    const auto size = static_cast<unsigned int>(body.size());
    transport->reads.push_back({32, frameHeader(size + 32), 0});
    transport->reads.push_back({static_cast<int>(size), body, 0});
    engine.runOnce();
    if (!transport->reads.empty()) {
        log.push_back("read too little");
        transport->reads.clear();
    }
}

void Subject::lose(std::uint32_t loss) {
    const CSClient::State state = engine.getState();
    if (state != CSClient::STATE_CONNECTED && state != CSClient::STATE_READY) {
        return;
    }
    switch (loss) {
        case Step::HEADER_CLOSED:
            transport->reads.push_back({0, "", 0});
            break;
        case Step::HEADER_ERROR:
            transport->reads.push_back({-1, "", ECONNRESET});
            break;
        case Step::HEADER_SHORT:
            transport->reads.push_back({10, frameHeader(40).substr(0, 10), 0});
            break;
        case Step::HEADER_FOREIGN:
            transport->reads.push_back({32, frameHeader(40, 31), 0});
            break;
        case Step::NO_BODY:
            transport->reads.push_back({32, frameHeader(32), 0});
            break;
        case Step::BODY_CLOSED:
            transport->reads.push_back({32, frameHeader(40), 0});
            transport->reads.push_back({0, "", 0});
            break;
        default:
            transport->reads.push_back({32, frameHeader(40), 0});
            transport->reads.push_back({-1, "", ECONNRESET});
            break;
    }
    engine.runOnce();
}

void Subject::callbackHappened(std::uint32_t number, Step::Event event, const std::string& what) {
    log.push_back(std::to_string(number) + ' ' + what);
    happen(event, number);
}

void Subject::happen(Step::Event event, std::uint32_t number) {
    std::deque<Step>& waiting = insides[{event, number}];
    if (waiting.empty()) {
        return;
    }
    const Step next = std::move(waiting.front());
    waiting.pop_front();
    if (next.kind == Step::MEANWHILE && !next.inside.empty()) {
        performOnAnotherThread(next.inside);
        return;
    }
    for (const Step& step : next.inside) {
        perform(step);
    }
}

}  // namespace com_tesk::test

/// The engine sleeps so between two attempts to get a lock that another thread holds.
extern "C" __attribute__((visibility("default"))) int nanosleep(const timespec* duration, timespec* left) {
    if (com_tesk::test::current != nullptr) {
        com_tesk::test::current->lockPolled();
    }
    using Sleep = int (*)(const timespec*, timespec*);
    static const auto systemSleep = reinterpret_cast<Sleep>(dlsym(RTLD_NEXT, "nanosleep"));
    return systemSleep(duration, left);
}
