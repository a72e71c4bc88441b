#include "tests/reliability/MemoryFixture.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <sstream>

#include "tests/support/Hex.h"

namespace com_tesk::test {

namespace {

const char kUnread[] = " 00 00 00 00 ";

std::string bytesOf(const std::string& hexText) {
    const Bytes body = hex(hexText);
    return {body.begin(), body.end()};
}

std::string subHeader(const std::string& code) {
    return "04 02 7F FF 00 00 00 00 00 7F " + code;
}

std::uint32_t bitsOf(const CSClient::Value& value) {
    std::uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

std::ostream& operator<<(std::ostream& out, const CSClient::Parameter& parameter) {
    return out << ' ' << parameter.name << ':' << parameter.type << ':' << bitsOf(parameter.value);
}

}  // namespace

void QueuedTransport::queueFrame(const std::string& body) {
    reads.push_back(bytesOf(hexFrame(hexText(std::vector<char>(body.begin(), body.end())))).substr(0, 32));
    reads.push_back(body);
}

int QueuedTransport::readMessage(unsigned int count, RawMessage& message) {
    if (nextRead == reads.size()) {
        if (!staysOpen) {
            message.resize(message.size() + count);
            return 0;
        }
        poll(nullptr, 0, 5);
        errno = EAGAIN;
        return -2;
    }
    const std::string& read = reads[nextRead];
    // As with a socket, nothing is lost when this throws.
    message.insert(message.end(), read.begin(), read.end());
    ++nextRead;
    return static_cast<int>(std::min<std::size_t>(count, read.size()));
}

int QueuedTransport::writeMessage(const RawMessage& message) {
    if (failNextWrite) {
        failNextWrite = false;
        errno = EPIPE;
        return -1;
    }
    written.append(message.begin(), message.end());
    return static_cast<int>(message.size());
}

bool MemoryEngine::runOnceAsWorker() {
    try {
        runOnce();
        return true;
    } catch (const std::bad_alloc&) {
        closeConnection();
        return false;
    }
}

MemoryFixture::MemoryFixture(unsigned int options)
    : engine(options),
      transport(new QueuedTransport),
      names{std::string(30, 'n') + "C", std::string(30, 'n') + "A", std::string(30, 'n') + "B"},
      inputs{{names[0], 1, 3}, {names[1], 2, 1}, {names[2], 5, 9}},
      outputs{{names[0], 1}, {names[1], 2}, {names[2], 5}},
      parameters{intValue(names[0], 101), intValue(names[1], 102), intValue(names[2], 103)} {
    engine.changeCommsInterface(transport);
}

MemoryFixture::~MemoryFixture() {
    engine.forceCloseConnection();
    // Only an engine whose transport stays open has a worker.
    if (transport->staysOpen) {
        waitFor(CSClient::STATE_DISCONNECTED);
    }
}

void MemoryFixture::connect() {
    engine.beginConnecting();
    engine.runOnceAsWorker();
}

void MemoryFixture::reconnect() {
    if (engine.getState() == CSClient::STATE_CONNECTING) {
        engine.runOnceAsWorker();
    }
}

void MemoryFixture::receive(const std::string& body) {
    transport->queueFrame(body);
    engine.runOnceAsWorker();
}

int MemoryFixture::registerParameters(ParameterKind kind, std::size_t first, std::size_t count) {
    const auto number = static_cast<unsigned int>(count);
    return kind == ParameterKind::INPUTS ? engine.registerInputParameters(inputs.data() + first, number)
                                         : engine.registerOutputParameters(outputs.data() + first, number);
}

int MemoryFixture::unregister(ParameterKind kind, const std::vector<std::string>& unregistered) {
    return kind == ParameterKind::INPUTS ? engine.unregisterInputParameters(unregistered)
                                         : engine.unregisterOutputParameters(unregistered);
}

int MemoryFixture::publish(std::size_t first, std::size_t count) {
    return engine.publishParameters(parameters.data() + first, static_cast<unsigned int>(count),
                                    CSClientProtocol::PUBLISH_DEFAULT);
}

void MemoryFixture::connectWithParameters() {
    connect();
    registerParameters(ParameterKind::INPUTS, 0, 3);
    registerParameters(ParameterKind::OUTPUTS, 0, 3);
}

void MemoryFixture::confirm(unsigned int count) {
    receive(confirmation(ParameterKind::INPUTS, count));
    receive(confirmation(ParameterKind::OUTPUTS, count));
}

std::string MemoryFixture::state() const {
    std::ostringstream all;
    all << "state " << engine.getState() << " version " << engine.getServerVersion() << '/'
        << engine.getProtocolVersion() << " id " << engine.getSimulatorId() << "\ninputs:";
    for (const auto& [name, entry] : engine.inputsByName()) {
        all << ' ' << name << (entry->name == name ? "" : "!=" + entry->name) << ':' << entry->type << ':'
            << entry->subscriptionMode << ':' << entry->serverId;
    }
    all << "\ninput ids:";
    for (const auto& idAndName : engine.inputNamesById()) {
        all << ' ' << idAndName.first << '=' << idAndName.second;
    }
    all << "\noutputs:";
    for (const auto& [name, entry] : engine.outputsByName()) {
        all << ' ' << name << (entry->name == name ? "" : "!=" + entry->name) << ':' << entry->type << ':'
            << entry->serverId << (entry->published ? ":p:" : ":") << bitsOf(entry->value);
    }
    all << "\noutput ids:";
    for (const auto& idAndEntry : engine.outputsById()) {
        all << ' ' << idAndEntry.first;
    }
    all << "\ninterfaces: " << engine.getNumCallbackInterfaces();
    for (const CountingCallbacks& each : callbacks) {
        all << (engine.hasCallbackInterface(const_cast<CountingCallbacks*>(&each)) ? " yes" : " no");
    }
    all << "\nmessage: " << std::string(message.begin(), message.end());
    all << "\nother: " << (otherMessage ? std::string(otherMessage->begin(), otherMessage->end()) : "none");
    all << "\nother engine: " << (otherEngine != nullptr) << " client: " << (client != nullptr);
    if (client != nullptr) {
        all << " waiting " << client->getNumberOfUnregisteredInputParameters() << '/'
            << client->getNumberOfUnregisteredOutputParameters();
    }
    all << "\nfound:" << found << "\nlisted:";
    for (const CSClient::Parameter& parameter : listed) {
        all << parameter;
    }
    all << "\ninterfaces got: " << interfaces.size() << "\ntext: " << text;
    return all.str();
}

bool MemoryFixture::waitFor(CSClient::State state) {
    return waitUntil([this, state] { return engine.getState() == state; }) && engine.waitForStateChange();
}

std::string MemoryFixture::confirmation(ParameterKind kind, unsigned int count) const {
    const bool isInput = kind == ParameterKind::INPUTS;
    std::string body = subHeader(isInput ? "01 01" : "01 02") + kUnread + hexWord(count);
    for (unsigned int i = 0; i < count; ++i) {
        body += ' ' + hexWord((isInput ? 11 : 21) + i) + kUnread + kUnread;
        body += (isInput ? hexWord(i) + " 00 00 00 09 " : kUnread) + hexField(names[i]);
    }
    return bytesOf(body);
}

std::string MemoryFixture::update(unsigned int count) {
    std::string body = subHeader("00 03") + kUnread + kUnread + hexWord(count);
    for (unsigned int i = 0; i < count; ++i) {
        body += ' ' + hexWord(11 + i) + " 00 00 00 01 00 00 00 05";
    }
    return bytesOf(body);
}

std::string MemoryFixture::versionResponse(unsigned int simulatorId) {
    return bytesOf(subHeader("01 06") + ' ' + hexWord(simulatorId << 16U) + ' ' + hexField(std::string(60, 'v'), 128) +
                   " 00 00 00 2A 00 00 00 01");
}

}  // namespace com_tesk::test
