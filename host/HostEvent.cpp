#include "host/HostEvent.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace com_tesk {

namespace {

std::string printable(const std::string& name) {
    const auto plain = [](char c) { return c > ' ' && c <= '~' && c != '"' && c != '\\'; };
    if (!name.empty() && std::all_of(name.begin(), name.end(), plain)) {
        return name;
    }
    std::string text = "\"";
    for (const char c : name) {
        if (plain(c) || c == ' ') {
            text += c;
        } else {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\x%02X", unsigned{static_cast<unsigned char>(c)});
            text += escaped;
        }
    }
    return text + '"';
}

std::string because(const std::string& text) {
    return text.empty() ? text : ": " + text;
}

std::string whatHappened(const HostEvent& event) {
    const std::string name = printable(event.name);
    const std::string id = std::to_string(event.id);
    const std::string number = event.value ? event.value->text() : "nothing";
    const std::string type = event.value && event.value->isInteger() ? "integer" : "float";
    switch (event.kind) {
        case HostEvent::Kind::LISTENING:
            return "listening on " + event.text;
        case HostEvent::Kind::STOPPED:
            return "stopped";
        case HostEvent::Kind::ACCEPT_FAILED:
            return "cannot accept a client" + because(event.text);
        case HostEvent::Kind::CONNECTED:
            return "connected from " + event.text;
        case HostEvent::Kind::LEFT:
            return "disconnected" + because(event.text);
        case HostEvent::Kind::LOST:
            return "lost" + because(event.text);
        case HostEvent::Kind::DROPPED:
            return "dropped" + because(event.text);
        case HostEvent::Kind::VERSION_ANSWERED:
            return "asked for the version, answered " + event.text;
        case HostEvent::Kind::SIMULATOR_ID_CHANGED:
            return "carries simulator id " + id + " now";
        case HostEvent::Kind::INPUT_CONFIRMED:
            return "subscribed to " + name + " = " + number + " (" + type + ", input id " + id + ")";
        case HostEvent::Kind::INPUT_UNSUBSCRIBED:
            return "unsubscribed from " + name + " (input id " + id + ")";
        case HostEvent::Kind::OUTPUT_CONFIRMED:
            return "registered output " + name + " (" + event.text + ", output id " + id + ")";
        case HostEvent::Kind::OUTPUT_UNREGISTERED:
            return "unregistered output " + name + " (output id " + id + ")";
        case HostEvent::Kind::PUBLISHED:
            return "published " + name + " = " + number + " (" + type + ", output id " + id + ")";
        case HostEvent::Kind::UPDATED:
            return "update " + name + " = " + number + " (" + type + ", input id " + id + ")";
        case HostEvent::Kind::VALUE_SET:
            return "set " + name + " = " + number + " (" + type + ")";
        case HostEvent::Kind::NAME_REFUSED:
            return "requested unknown name " + name + ", not confirmed";
        case HostEvent::Kind::UNKNOWN_ID:
            return event.text + " names unknown id " + id + ", record ignored";
        case HostEvent::Kind::REQUEST_IGNORED:
            return "request ignored" + because(event.text);
        case HostEvent::Kind::FAULT:
            return "scenario: " + event.text;
    }
    return {};
}

}  // namespace

std::string describe(const HostEvent& event) {
    const std::string who = event.client == 0 ? std::string("host") : "client " + std::to_string(event.client);
    return who + " " + whatHappened(event);
}

std::string lineOf(const HostEvent& event) {
    using namespace std::chrono;
    const std::time_t seconds = system_clock::to_time_t(event.time);
    const auto milliseconds = duration_cast<std::chrono::milliseconds>(event.time.time_since_epoch()).count() % 1000;
    std::tm local{};
    localtime_r(&seconds, &local);
    char date[32];
    char fraction[8];
    std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &local);
    std::snprintf(fraction, sizeof fraction, ".%03d", static_cast<int>(milliseconds));
    return std::string(date) + fraction + " " + describe(event);
}

}  // namespace com_tesk
