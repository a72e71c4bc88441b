#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <type_traits>

#include "tools/Json.h"
#include "tools/recording/Base64.h"
#include "tools/recording/EntryText.h"

namespace com_tesk::recording {

namespace {

constexpr std::uint32_t kDefaultNan = 0x7FC00000;

template <typename Number>
void appendNumber(std::string& text, Number number) {
    std::array<char, 32> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    text.append(digits.data(), static_cast<std::size_t>(end - digits.data()));
}

/// A text that is no UTF-8 becomes an object with its bytes as hexadecimal digits.
void appendText(std::string& text, std::string_view value) {
    const bool isPlain = std::all_of(value.begin(), value.end(), [](char character) {
        const auto byte = static_cast<unsigned char>(character);
        return byte >= 0x20 && byte < 0x7F && byte != '"' && byte != '\\';
    });
    if (isPlain) {
        text += '"';
        text += value;
        text += '"';
    } else if (tools::isUtf8(value)) {
        text += tools::jsonString(value);
    } else {
        text += R"({"hex":")";
        text += tools::hexOf(value);
        text += R"("})";
    }
}

void appendNotFinite(std::string& text, const HostValue& value) {
    const float number = value.asReal();
    if (!std::isnan(number)) {
        text += number > 0 ? R"("inf")" : R"("-inf")";
        return;
    }
    text += R"("nan)";
    if (value.bits() != kDefaultNan) {
        std::array<char, 8> digits{};  // All eight are used, because the exponent's bits are set.
        std::uint32_t bits = value.bits();
        for (std::size_t i = digits.size(); i-- > 0; bits >>= 4U) {
            digits[i] = "0123456789abcdef"[bits & 0xFU];
        }
        text += ':';
        text.append(digits.data(), digits.size());
    }
    text += '"';
}

void appendValue(std::string& text, const HostValue& value) {
    if (value.isInteger()) {
        appendNumber(text, value.asInteger());
        return;
    }
    if (!std::isfinite(value.asReal())) {
        appendNotFinite(text, value);
        return;
    }
    const std::size_t begin = text.size();
    appendNumber(text, value.asReal());
    if (text.find_first_of(".e", begin) == std::string::npos) {
        text += ".0";
    }
}

template <typename Elements, typename Append>
void appendArray(std::string& text, const char* name, const Elements& elements, const Append& append) {
    text += ",\"";
    text += name;
    text += "\":[";
    bool isFirst = true;
    for (const auto& element : elements) {
        if (!isFirst) {
            text += ',';
        }
        isFirst = false;
        append(text, element);
    }
    text += ']';
}

void appendNamedValue(std::string& text, const NamedValue& named) {
    text += '[';
    if (named.name.empty()) {
        text += R"({"id":)";
        appendNumber(text, named.id);
        text += '}';
    } else {
        appendText(text, named.name);
    }
    text += ',';
    appendValue(text, named.value);
    text += named.value.isInteger() ? R"(,"integer"])" : "]";
}

void appendValues(std::string& text, const std::vector<NamedValue>& values) {
    appendArray(text, "values", values, appendNamedValue);
}

/// Where a parameter has its id and its value.
enum class Detail : std::uint8_t { NONE, ID, ID_AND_VALUE };

void appendParameters(std::string& text, const char* name, const std::vector<Parameter>& parameters, Detail detail) {
    appendArray(text, name, parameters, [detail](std::string& target, const Parameter& parameter) {
        target += R"({"name":)";
        appendText(target, parameter.name);
        target += parameter.isInteger ? R"(,"type":"integer")" : R"(,"type":"float")";
        if (detail != Detail::NONE && parameter.id != 0) {
            target += R"(,"id":)";
            appendNumber(target, parameter.id);
        }
        if (detail == Detail::ID_AND_VALUE) {
            target += R"(,"value":)";
            appendValue(target, HostValue::fromBits(parameter.value.bits(), parameter.isInteger));
        }
        target += '}';
    });
}

void appendMember(std::string& text, const char* name, std::string_view value) {
    text += ",\"";
    text += name;
    text += "\":";
    appendText(text, value);
}

template <typename Number, typename = std::enable_if_t<std::is_arithmetic_v<Number>>>
void appendMember(std::string& text, const char* name, Number value) {
    text += ",\"";
    text += name;
    text += "\":";
    appendNumber(text, value);
}

void appendSide(std::string& text, Side side) {
    text += side == Side::CLIENT ? R"(,"side":"client")" : R"(,"side":"host")";
}

/// Appends the type of an entry, and after the members of all entries those of its type.
class Writer {
  public:
    Writer(std::string& target, const Entry& wholeEntry) : text(target), entry(wholeEntry) {}

    void operator()(const Header& header) const {
        begin("recording");
        appendMember(text, "format", header.format);
        appendMember(text, "recorder", header.recorder);
        appendMember(text, "run", header.run);
        appendMember(text, "part", header.part);
        appendMember(text, "started", header.started);
        appendMember(text, "mode", header.mode);
        appendMember(text, "host", header.host);
    }
    void operator()(const State& state) const {
        begin("state");
        appendArray(text, "connections", state.connections,
                    [](std::string& target, const State::Connection& connection) {
                        target += R"({"connection":)";
                        appendNumber(target, connection.number);
                        appendMember(target, "simulator-id", connection.simulatorId);
                        appendParameters(target, "inputs", connection.inputs, Detail::ID_AND_VALUE);
                        appendParameters(target, "outputs", connection.outputs, Detail::ID);
                        target += '}';
                    });
        appendValues(text, state.values);
        appendMember(text, "version", state.versionText);
        appendMember(text, "protocol", state.protocolVersion);
    }
    void operator()(const Connected& connected) const {
        begin("connected");
        appendMember(text, "client", connected.client);
    }
    void operator()(const Lost& lost) const {
        begin("lost");
        appendSide(text, lost.side);
        appendMember(text, "why", lost.why);
    }
    void operator()(const VersionRequest& request) const {
        begin("version-request");
        appendMember(text, "simulator-id", request.simulatorId);
    }
    void operator()(const Version& version) const {
        begin("version");
        appendMember(text, "text", version.text);
        appendMember(text, "protocol", version.protocolVersion);
        appendMember(text, "simulator-id", version.simulatorId);
        appendMember(text, "status", version.status);
    }
    void operator()(const Registration& registration) const {
        begin(registration.direction == Direction::INPUTS ? "register-inputs" : "register-outputs");
        appendParameters(text, "parameters", registration.parameters, Detail::NONE);
    }
    void operator()(const Confirmation& confirmation) const {
        const bool areInputs = confirmation.direction == Direction::INPUTS;
        begin(areInputs ? "inputs-confirmed" : "outputs-confirmed");
        appendParameters(text, "parameters", confirmation.parameters, areInputs ? Detail::ID_AND_VALUE : Detail::ID);
    }
    void operator()(const Unregistration& unregistration) const {
        begin(unregistration.direction == Direction::INPUTS ? "unregister-inputs" : "unregister-outputs");
        appendArray(text, "names", unregistration.names, appendText);
    }
    void operator()(const Publication& publication) const {
        begin("publish");
        appendValues(text, publication.values);
    }
    void operator()(const Update& update) const {
        begin("update");
        appendValues(text, update.values);
    }
    void operator()(const Unreadable& unreadable) const {
        begin("unreadable");
        appendSide(text, unreadable.side);
        appendMember(text, "why", unreadable.why);
    }
    void operator()(const Raw& raw) const {
        begin("raw");
        appendSide(text, raw.side);
        text += R"(,"bytes":")";
        appendBase64(text, raw.bytes);
        text += '"';
    }
    void operator()(const End& /*end*/) const { begin("end"); }

  private:
    void begin(const char* type) const {
        constexpr std::size_t kDecimals = 6;
        constexpr Time::rep kSecond = 1'000'000;
        text += R"({"t":)";
        appendNumber(text, entry.time.count() / kSecond);
        text += '.';
        const std::string micros = std::to_string(entry.time.count() % kSecond);
        text.append(kDecimals - micros.size(), '0');
        text += micros;
        text += R"(,"type":")";
        text += type;
        text += '"';
        if (entry.connection != 0) {
            appendMember(text, "connection", entry.connection);
        }
    }

    std::string& text;
    const Entry& entry;
};

}  // namespace

void appendLine(std::string& text, const Entry& entry) {
    std::visit(Writer(text, entry), entry.content);
    text += "}\n";
}

}  // namespace com_tesk::recording
