#include "tools/service/Notifier.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <system_error>

namespace com_tesk::service {

namespace {

constexpr timeval kMaxBlocked{1, 0};

/// Returns the variable's text, or "". Only called before a program starts threads that change the environment.
std::string_view variable(const char* name) {
    const char* const text = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): no thread changes the environment.
    return text == nullptr ? std::string_view() : text;
}

/// Returns the number that is the whole text, or nothing.
std::optional<std::int64_t> numberOf(std::string_view text) {
    std::int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && rest == end && number > 0 ? std::optional(number) : std::nullopt;
}

std::optional<std::chrono::microseconds> intervalOfEnvironment() {
    const std::string_view process = variable("WATCHDOG_PID");
    if (!process.empty() && numberOf(process) != std::int64_t{getpid()}) {
        return std::nullopt;
    }
    const auto number = numberOf(variable("WATCHDOG_USEC"));
    return number ? std::optional(std::chrono::microseconds(*number)) : std::nullopt;
}

/// Returns the bytes of a socket address; "" when the text is neither a path nor an abstract address, or is too long.
std::string addressOf(std::string_view text) {
    sockaddr_un parts{};
    const bool isAbstract = text.front() == '@';
    // A path needs its terminating zero, an abstract address has its length instead.
    const std::size_t maxSize = sizeof parts.sun_path - (isAbstract ? 0 : 1);
    if ((!isAbstract && text.front() != '/') || text.size() < 2 || text.size() > maxSize) {
        return {};
    }
    parts.sun_family = AF_UNIX;
    std::memcpy(parts.sun_path, text.data(), text.size());
    if (isAbstract) {
        parts.sun_path[0] = '\0';
    }
    const std::size_t size = offsetof(sockaddr_un, sun_path) + text.size() + (isAbstract ? 0 : 1);
    std::string bytes(size, '\0');
    std::memcpy(bytes.data(), &parts, size);
    return bytes;
}

std::string oneLine(std::string text) {
    for (char& c : text) {
        if (static_cast<unsigned char>(c) < ' ') {
            c = ' ';
        }
    }
    return text;
}

}  // namespace

Notifier::Notifier() {
    const std::string_view place = variable("NOTIFY_SOCKET");
    if (place.empty()) {
        return;
    }
    interval = intervalOfEnvironment();
    address = addressOf(place);
    if (address.empty()) {
        addressFlaw = "NOTIFY_SOCKET is no address of a socket: " + oneLine(std::string(place));
        return;
    }
    descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) {
        addressFlaw = "no socket for NOTIFY_SOCKET: " + std::generic_category().message(errno);
        return;
    }
    setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &kMaxBlocked, sizeof kMaxBlocked);
}

Notifier::~Notifier() {
    if (descriptor >= 0) {
        close(descriptor);
    }
}

bool Notifier::ready(const std::string& status) const {
    return send("READY=1\nSTATUS=" + oneLine(status));
}

bool Notifier::status(const std::string& text) const {
    return send("STATUS=" + oneLine(text));
}

bool Notifier::stopping() const {
    return send("STOPPING=1");
}

bool Notifier::alive() const {
    return send("WATCHDOG=1");
}

bool Notifier::send(const std::string& message) const {
    if (descriptor < 0) {
        return addressFlaw.empty();
    }
    sockaddr_un place{};
    std::memcpy(&place, address.data(), address.size());
    ssize_t sent = -1;
    do {
        sent = sendto(descriptor, message.data(), message.size(), MSG_NOSIGNAL,
                      reinterpret_cast<const sockaddr*>(&place), static_cast<socklen_t>(address.size()));
    } while (sent < 0 && errno == EINTR);
    return sent == static_cast<ssize_t>(message.size());
}

}  // namespace com_tesk::service
