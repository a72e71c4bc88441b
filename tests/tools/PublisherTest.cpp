#include "tests/tools/PublisherTest.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace com_tesk::test {

std::string registrationOf(const std::string& name) {
    return "04 02 7F FF 00 00 00 3C 00 7F 00 02 00 01 00 00 00 00 00 01 00 00 04 B0 00 00 00 00 " + hexField(name);
}

std::string publicationOf(unsigned int id, const std::string& valueHex) {
    return "04 02 7F FF 00 00 00 24 00 7F 00 03 00 01 00 00 00 00 00 00 00 00 00 01 " + hexWord(id) + " 00 00 00 00 " +
           valueHex;
}

std::string unregistrationOf(unsigned int id) {
    return "04 02 7F FF 00 00 00 18 00 7F 00 05 00 01 00 00 00 00 00 01 " + hexWord(id);
}

std::string confirmationOf(unsigned int id, const std::string& name) {
    return hexFrame("04 02 7F FF 00 00 00 44 00 7F 01 02 00 01 00 00 00 00 00 01 " + hexWord(id) +
                    " 00 00 04 B0 00 00 00 00 00 00 00 00 " + hexField(name));
}

std::string versionReply() {
    return hexFrame("04 02 7F FF 00 00 00 98 00 7F 01 06 00 01 00 00 " + hexField("Host 2.1", 128) +
                    " 00 00 00 03 00 00 00 01");
}

void PublisherTest::listen() {
    listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int yes = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(kPublisherPort);
    address.sin_addr.s_addr = inet_addr(ownAddress().c_str());
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener, SOMAXCONN) != 0) {
        throw std::system_error(errno, std::generic_category(), ownAddress());
    }
}

void PublisherTest::stopListening() {
    if (listener >= 0) {
        close(listener);
        listener = -1;
    }
}

void PublisherTest::accept(const std::string& simulatorId) {
    pollfd waiting{listener, POLLIN, 0};
    if (poll(&waiting, 1, static_cast<int>(ScriptedHost::kBound.count())) != 1) {
        throw std::runtime_error("no connection arrives");
    }
    const int descriptor = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "accept");
    }
    peer = std::make_unique<ScriptedHost::Peer>(descriptor);
    EXPECT_EQ(peer->receiveFrame(),
              "00 00 00 34 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF "
              "04 02 7F FF 00 00 00 14 00 7F 00 06 " +
                  simulatorId + " 00 00 00 00 00 00");
}

void PublisherTest::expectValue(unsigned int id, const std::string& name, const std::string& valueHex) {
    expectRegistration(name);
    peer->send(confirmationOf(id, name));
    EXPECT_EQ(peer->receiveBody(), publicationOf(id, valueHex));
}

}  // namespace com_tesk::test
