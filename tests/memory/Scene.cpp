#include "tests/memory/Scene.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <iostream>

#include "tests/support/Hex.h"

namespace com_tesk::test {

namespace {

const std::string kNameA = std::string(30, 'n') + "A";
const std::string kNameB = std::string(30, 'n') + "B";
const std::string kNameC = std::string(30, 'n') + "C";

std::string bytes(const std::string& hexText) {
    const Bytes body = hex(hexText);
    return {body.begin(), body.end()};
}

const char kUnread[] = "00 00 00 00 ";

std::string subHeader(const std::string& code) {
    return "04 02 7F FF 00 00 00 00 00 7F " + code + ' ';
}

std::uint32_t bitsOf(const CSClient::Value& value) {
    std::uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

std::string parameterText(const CSClient::Parameter& parameter) {
    return ' ' + parameter.name + ':' + std::to_string(parameter.type) + ':' + std::to_string(bitsOf(parameter.value));
}

}  // namespace

void QuietTransport::queueFrame(const std::string& body) {
    reads.push_back(bytes(hexFrame(hexText(std::vector<char>(body.begin(), body.end())))).substr(0, 32));
    reads.push_back(body);
}

int QuietTransport::readMessage(unsigned int count, RawMessage& message) {
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
    // As a socket's: nothing is lost when there is no room.
    message.insert(message.end(), read.begin(), read.end());
    ++nextRead;
    return static_cast<int>(std::min<std::size_t>(count, read.size()));
}

int QuietTransport::writeMessage(const RawMessage& message) {
    if (failNextWrite) {
        failNextWrite = false;
        errno = EPIPE;
        return -1;
    }
    written.append(message.begin(), message.end());
    return static_cast<int>(message.size());
}

Scene::Scene(unsigned int options)
    : engine(options),
      transport(new QuietTransport),
      inputs{{kNameC, 1, 3}, {kNameA, 2, 1}, {kNameB, 5, 9}},
      outputs{{kNameC, 1}, {kNameA, 2}, {kNameB, 5}},
      names{kNameC, kNameA, kNameB} {
    engine.changeCommsInterface(transport);
    std::uint32_t value = 100;
    for (const std::string& name : names) {
        CSClient::Parameter parameter{name, {}, CSClient::TYPE_INT, 0};
        parameter.value.asInt = static_cast<std::int32_t>(++value);
        parameters.push_back(parameter);
    }
}

Scene::~Scene() {
    engine.forceCloseConnection();
    // Most scenes have no worker: then this thread is it.
    if (transport->staysOpen) {
        waitFor(CSClient::STATE_DISCONNECTED);
    }
}

bool Scene::waitFor(CSClient::State state) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (engine.getState() != state) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        poll(nullptr, 0, 1);
    }
    return engine.waitForStateChange();
}

std::string Scene::state() const {
    std::string all = "state " + std::to_string(engine.getState()) + " version " + engine.getServerVersion() + '/' +
                      std::to_string(engine.getProtocolVersion()) + " id " + std::to_string(engine.getSimulatorId());
    all += "\ninputs:";
    for (const auto& nameAndEntry : engine.inputsByName()) {
        const CSClientProtocol::InputParameterEntry& entry = *nameAndEntry.second;
        all += ' ' + std::string(nameAndEntry.first) + (entry.name == nameAndEntry.first ? "" : "!=" + entry.name) +
               ':' + std::to_string(entry.type) + ':' + std::to_string(entry.subscriptionMode) + ':' +
               std::to_string(entry.serverId);
    }
    all += "\ninput ids:";
    for (const auto& idAndName : engine.inputNamesById()) {
        all += ' ' + std::to_string(idAndName.first) + '=' + idAndName.second;
    }
    all += "\noutputs:";
    for (const auto& nameAndEntry : engine.outputsByName()) {
        const CSClientProtocol::OutputParameterEntry& entry = *nameAndEntry.second;
        all += ' ' + std::string(nameAndEntry.first) + (entry.name == nameAndEntry.first ? "" : "!=" + entry.name) +
               ':' + std::to_string(entry.type) + ':' + std::to_string(entry.serverId) +
               (entry.published ? ":p:" : ":") + std::to_string(bitsOf(entry.value));
    }
    all += "\noutput ids:";
    for (const auto& idAndEntry : engine.outputsById()) {
        all += ' ' + std::to_string(idAndEntry.first);
    }
    all += "\ninterfaces: " + std::to_string(engine.getNumCallbackInterfaces());
    std::set<CSClient::CallbackIface*> registered;
    engine.getCallbackInterfaces(registered);
    for (const CountingCallbacks& callback : callbacks) {
        all += registered.count(const_cast<CountingCallbacks*>(&callback)) != 0 ? " yes" : " no";
    }
    all += "\nmessage: " + std::string(message.begin(), message.end());
    all += otherMessage == nullptr ? "\n" : "\nother: " + std::string(otherMessage->begin(), otherMessage->end());
    all += std::string(client == nullptr ? "\nno client" : "\nclient") + (otherEngine == nullptr ? "" : ", engine");
    if (client != nullptr) {
        all += " waiting " + std::to_string(client->getNumberOfUnregisteredInputParameters()) + '/' +
               std::to_string(client->getNumberOfUnregisteredOutputParameters());
    }
    all += "\nfound:" + parameterText(found) + "\nlisted:";
    for (const CSClient::Parameter& parameter : listed) {
        all += parameterText(parameter);
    }
    return all + "\ninterfaces got: " + std::to_string(interfaces.size()) + "\ntext: " + text;
}

PrintedLines::PrintedLines() : previousOut(std::cout.rdbuf(this)), previousErr(std::cerr.rdbuf(this)) {}

PrintedLines::~PrintedLines() {
    std::cout.rdbuf(previousOut);
    std::cerr.rdbuf(previousErr);
}

PrintedLines::int_type PrintedLines::overflow(int_type character) {
    if (!traits_type::eq_int_type(character, traits_type::eof()) && used < sizeof room) {
        room[used++] = traits_type::to_char_type(character);
    }
    return traits_type::not_eof(character);
}

std::string inputsConfirmed(const Scene& scene, std::size_t count) {
    std::string body = subHeader("01 01") + kUnread + hexWord(static_cast<unsigned int>(count));
    for (unsigned int i = 0; i < count; ++i) {
        body +=
            ' ' + hexWord(11 + i) + ' ' + kUnread + kUnread + hexWord(i) + " 00 00 00 09 " + hexField(scene.names[i]);
    }
    return bytes(body);
}

std::string outputsConfirmed(const Scene& scene, std::size_t count) {
    std::string body = subHeader("01 02") + kUnread + hexWord(static_cast<unsigned int>(count));
    for (unsigned int i = 0; i < count; ++i) {
        body += ' ' + hexWord(21 + i) + ' ' + kUnread + kUnread + kUnread + hexField(scene.names[i]);
    }
    return bytes(body);
}

std::string inputsUpdated(std::size_t count) {
    std::string body = subHeader("00 03") + kUnread + kUnread + hexWord(static_cast<unsigned int>(count));
    for (unsigned int i = 0; i < count; ++i) {
        body += ' ' + hexWord(11 + i) + " 00 00 00 01 00 00 00 05";
    }
    return bytes(body);
}

std::string versionResponse(unsigned int simulatorId) {
    return bytes(subHeader("01 06") + hexWord(simulatorId << 16U) + ' ' + hexField(std::string(60, 'v'), 128) +
                 " 00 00 00 2A 00 00 00 01");
}

}  // namespace com_tesk::test
