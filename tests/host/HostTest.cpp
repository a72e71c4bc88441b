#include "tests/host/HostTest.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace com_tesk::host_test {

namespace {

int connectTo(std::uint16_t port, const std::string& address, int receiveBuffer) {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (receiveBuffer > 0) {
        setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    }
    sockaddr_in host{};
    host.sin_family = AF_INET;
    host.sin_port = htons(port);
    host.sin_addr.s_addr = inet_addr(address.c_str());
    if (connect(descriptor, reinterpret_cast<const sockaddr*>(&host), sizeof host) != 0) {
        const std::error_code error(errno, std::system_category());
        close(descriptor);
        throw std::system_error(error, "connect");
    }
    return descriptor;
}

}  // namespace

std::string frame(const std::string& body) {
    return test::hexFrame(hexText(hex(body)));
}

std::string requestBody(const std::string& code, const std::string& rest) {
    const auto size = static_cast<unsigned int>(12 + hex(rest).size());
    return hexText(hex("04027FFF " + test::hexWord(size) + " 007F00" + code + rest));
}

std::string request(const std::string& code, const std::string& rest) {
    return frame(requestBody(code, rest));
}

std::string versionRequest() {
    return request("06", "00050000 00000000");
}

std::string subscribe(const std::string& name, bool isInteger) {
    return request("01", "00050000 00000001 00002EE0 00002EE0 0000000" + std::to_string(isInteger) + hexField(name));
}

std::string registerOutput(const std::string& name, bool isInteger) {
    return request("02", "00050000 00000001 000004B0 0000000" + std::to_string(isInteger) + hexField(name));
}

std::string publish(const std::string& idFlagValue) {
    return request("03", "00050000 00000000 00000001" + idFlagValue);
}

std::string unsubscribe(const std::string& id) {
    return request("04", "00050000 00000001" + id);
}

std::string unregister(const std::string& id) {
    return request("05", "00050000 00000001" + id);
}

std::string inputReply(const std::string& id, const std::string& flagAndValue, const std::string& name) {
    return frame("04027FFF 00000048 007F0101 00050000 00000001" + id + "00002EE0 00002EE0" + flagAndValue +
                 hexField(name));
}

std::string outputReply(const std::string& id, const std::string& flag, const std::string& name) {
    return frame("04027FFF 00000044 007F0102 00050000 00000001" + id + "000004B0" + flag + "00000000" + hexField(name));
}

std::string update(const std::string& idFlagValue) {
    return frame("04027FFF 00000024 007F0003 00050000 00000000 00000001" + idFlagValue);
}

std::string versionReply(const std::string& simulatorWord, const std::string& versionText,
                         const std::string& protocolVersion) {
    return frame("04027FFF 00000098 007F0106" + simulatorWord + hexField(versionText, 128) + protocolVersion +
                 "00000001");
}

Client::Client(std::uint16_t port, const std::string& address, int receiveBuffer)
    : Client(connectTo(port, address, receiveBuffer)) {}

std::string Client::ask(const std::string& message) {
    send(message);
    return receiveFrame();
}

Client::End Client::end() {
    Bytes dropped(65536);
    pollfd entry{descriptor, POLLIN, 0};
    while (poll(&entry, 1, static_cast<int>(kBound.count())) == 1) {
        const ssize_t count = recv(descriptor, dropped.data(), dropped.size(), 0);
        if (count <= 0) {
            return count == 0 ? End::CLOSED : End::RESET;
        }
    }
    return End::STILL_OPEN;
}

LoopbackHost& HostTest::host() {
    if (!startedHost) {
        if (!options.eventSink) {
            options.eventSink = log.sink();
        }
        startedHost = std::make_unique<LoopbackHost>(options);
    }
    return *startedHost;
}

}  // namespace com_tesk::host_test
