#include <array>
#include <charconv>
#include <cmath>
#include <utility>

#include "tools/WholeNumber.h"
#include "tools/recording/Base64.h"
#include "tools/recording/EntryText.h"
#include "tools/recording/JsonTree.h"
#include "tools/recording/LineReader.h"

namespace com_tesk::recording {

namespace {

using Kind = JsonValue::Kind;

/// Why a line is no entry. It does not leave this file.
struct Malformed {
    std::string why;
};

constexpr std::size_t kMaxNameSize = 32;
constexpr double kMaxSeconds = 1e9;

JsonValue memberOf(const JsonValue& object, const std::string& name) {
    const std::optional<JsonValue> found = object.member(name);
    if (!found) {
        throw Malformed{"no " + name};
    }
    return *found;
}

/// Returns the text as a number that JSON permits; `flaw` names it in the message.
template <typename Number>
Number numberOf(const JsonValue& value, const std::string& flaw) {
    const auto number = value.kind() == Kind::NUMBER ? tools::wholeNumber<Number>(value.text()) : std::nullopt;
    if (!number) {
        throw Malformed{"no number in range: " + flaw};
    }
    return *number;
}

template <typename Number>
Number numberMember(const JsonValue& object, const std::string& name) {
    return numberOf<Number>(memberOf(object, name), name);
}

std::string bytesOfHex(std::string_view digits) {
    std::string bytes;
    for (; digits.size() >= 2; digits.remove_prefix(2)) {
        std::uint8_t byte = 0;
        const auto [stop, error] = std::from_chars(digits.data(), digits.data() + 2, byte, 16);
        if (error != std::errc() || stop != digits.data() + 2) {
            break;
        }
        bytes += static_cast<char>(byte);
    }
    if (!digits.empty()) {
        throw Malformed{"no hexadecimal digits"};
    }
    return bytes;
}

/// Reads a text, or the bytes of a text that is no UTF-8.
std::string textOf(const JsonValue& value, const std::string& what) {
    if (value.kind() == Kind::STRING) {
        return std::string(value.text());
    }
    const std::optional<JsonValue> hex = value.member("hex");
    if (!hex || hex->kind() != Kind::STRING) {
        throw Malformed{"no text: " + what};
    }
    return bytesOfHex(hex->text());
}

std::string textMember(const JsonValue& object, const std::string& name) {
    return textOf(memberOf(object, name), name);
}

/// Reads a name, which must fit into a message.
std::string nameOf(const JsonValue& value) {
    std::string name = textOf(value, "name");
    if (name.size() > kMaxNameSize || name.find('\0') != std::string::npos) {
        throw Malformed{"a name has more than 32 bytes, or a zero byte"};
    }
    return name;
}

HostValue notFinite(std::string_view text) {
    if (text == "nan") {
        return HostValue::fromBits(0x7FC00000, false);
    }
    if (text == "inf" || text == "-inf") {
        return HostValue::fromBits(text == "inf" ? 0x7F800000 : 0xFF800000, false);
    }
    constexpr std::string_view kNan = "nan:";
    std::uint32_t bits = 0;
    if (text.size() == kNan.size() + 8 && text.substr(0, kNan.size()) == kNan) {
        const auto [stop, error] = std::from_chars(text.data() + kNan.size(), text.data() + text.size(), bits, 16);
        const HostValue value = HostValue::fromBits(bits, false);
        if (error == std::errc() && stop == text.data() + text.size() && std::isnan(value.asReal())) {
            return value;
        }
    }
    throw Malformed{"no value: " + std::string(text.substr(0, 40))};
}

HostValue valueOf(const JsonValue& value, bool isInteger) {
    if (isInteger) {
        return HostValue::integer(numberOf<std::int32_t>(value, "value"));
    }
    return value.kind() == Kind::STRING ? notFinite(value.text()) : HostValue::real(numberOf<float>(value, "value"));
}

bool isIntegerType(const JsonValue& type) {
    if (type.kind() != Kind::STRING || (type.text() != "integer" && type.text() != "float")) {
        throw Malformed{"no type"};
    }
    return type.text() == "integer";
}

JsonValue arrayMember(const JsonValue& object, const std::string& name) {
    const JsonValue array = memberOf(object, name);
    if (array.kind() != Kind::ARRAY) {
        throw Malformed{"no array: " + name};
    }
    return array;
}

NamedValue namedValueOf(const JsonValue& pair) {
    std::array<std::optional<JsonValue>, 3> parts;
    std::size_t count = 0;
    pair.forEach([&](const JsonValue& part) {
        if (count < parts.size()) {
            parts[count] = part;
        }
        ++count;
    });
    if (!parts[1]) {
        throw Malformed{"no pair of a name and a value"};
    }
    NamedValue named;
    if (const std::optional<JsonValue> id = parts[0]->member("id")) {
        named.id = numberOf<std::uint32_t>(*id, "id");
    } else {
        named.name = nameOf(*parts[0]);
    }
    named.value = valueOf(*parts[1], parts[2] && isIntegerType(*parts[2]));
    return named;
}

std::vector<NamedValue> valuesOf(const JsonValue& object) {
    std::vector<NamedValue> values;
    arrayMember(object, "values").forEach([&](const JsonValue& pair) { values.push_back(namedValueOf(pair)); });
    return values;
}

std::vector<Parameter> parametersOf(const JsonValue& object, const std::string& name) {
    std::vector<Parameter> parameters;
    arrayMember(object, name).forEach([&](const JsonValue& element) {
        Parameter parameter;
        parameter.name = nameOf(memberOf(element, "name"));
        parameter.isInteger = isIntegerType(memberOf(element, "type"));
        if (const auto id = element.member("id")) {
            parameter.id = numberOf<std::uint32_t>(*id, "id");
        }
        const auto value = element.member("value");
        parameter.value = value ? valueOf(*value, parameter.isInteger) : HostValue::fromBits(0, parameter.isInteger);
        parameters.push_back(std::move(parameter));
    });
    return parameters;
}

std::vector<std::string> namesOf(const JsonValue& object) {
    std::vector<std::string> names;
    arrayMember(object, "names").forEach([&](const JsonValue& name) { names.push_back(nameOf(name)); });
    return names;
}

Side sideOf(const JsonValue& object) {
    const std::string side = textMember(object, "side");
    if (side != "client" && side != "host") {
        throw Malformed{"no side"};
    }
    return side == "client" ? Side::CLIENT : Side::HOST;
}

using Content = decltype(Entry::content);

Content headerOf(const JsonValue& line) {
    return Header{numberMember<unsigned>(line, "format"),
                  textMember(line, "recorder"),
                  textMember(line, "run"),
                  numberMember<unsigned>(line, "part"),
                  textMember(line, "started"),
                  textMember(line, "mode"),
                  textMember(line, "host")};
}

Content stateOf(const JsonValue& line) {
    State state;
    arrayMember(line, "connections").forEach([&](const JsonValue& element) {
        state.connections.push_back({numberMember<std::uint32_t>(element, "connection"),
                                     numberMember<std::uint16_t>(element, "simulator-id"),
                                     parametersOf(element, "inputs"), parametersOf(element, "outputs")});
    });
    state.values = valuesOf(line);
    state.versionText = textMember(line, "version");
    state.protocolVersion = numberMember<std::uint32_t>(line, "protocol");
    return state;
}

Content rawOf(const JsonValue& line) {
    std::optional<std::string> bytes = bytesOfBase64(textMember(line, "bytes"));
    if (!bytes) {
        throw Malformed{"no base64: bytes"};
    }
    return Raw{sideOf(line), *std::move(bytes)};
}

Content versionOf(const JsonValue& line) {
    return Version{textMember(line, "text"), numberMember<std::uint32_t>(line, "protocol"),
                   numberMember<std::uint16_t>(line, "simulator-id"), numberMember<std::uint32_t>(line, "status")};
}

template <typename OfParameters, Direction WhichDirection>
Content withParameters(const JsonValue& line) {
    return OfParameters{WhichDirection, parametersOf(line, "parameters")};
}

template <Direction WhichDirection>
Content unregistrationOf(const JsonValue& line) {
    return Unregistration{WhichDirection, namesOf(line)};
}

struct Type {
    std::string_view name;
    Content (*read)(const JsonValue&);
};

constexpr Type kTypes[] = {
    {"update", [](const JsonValue& line) -> Content { return Update{valuesOf(line)}; }},
    {"publish", [](const JsonValue& line) -> Content { return Publication{valuesOf(line)}; }},
    {"recording", headerOf},
    {"state", stateOf},
    {"connected", [](const JsonValue& line) -> Content { return Connected{textMember(line, "client")}; }},
    {"lost",
     [](const JsonValue& line) -> Content {
         return Lost{sideOf(line), textMember(line, "why")};
     }},
    {"version-request",
     [](const JsonValue& line) -> Content {
         return VersionRequest{numberMember<std::uint16_t>(line, "simulator-id")};
     }},
    {"version", versionOf},
    {"register-inputs", withParameters<Registration, Direction::INPUTS>},
    {"register-outputs", withParameters<Registration, Direction::OUTPUTS>},
    {"inputs-confirmed", withParameters<Confirmation, Direction::INPUTS>},
    {"outputs-confirmed", withParameters<Confirmation, Direction::OUTPUTS>},
    {"unregister-inputs", unregistrationOf<Direction::INPUTS>},
    {"unregister-outputs", unregistrationOf<Direction::OUTPUTS>},
    {"unreadable",
     [](const JsonValue& line) -> Content {
         return Unreadable{sideOf(line), textMember(line, "why")};
     }},
    {"raw", rawOf},
    {"end", [](const JsonValue& /*line*/) -> Content { return End{}; }},
};

Content contentOf(const JsonValue& line) {
    const std::string name = textMember(line, "type");
    for (const Type& type : kTypes) {
        if (type.name == name) {
            return type.read(line);
        }
    }
    throw Malformed{"unknown type: " + name.substr(0, 40)};
}

Entry readEntry(const JsonValue& line) {
    Entry entry;
    const auto seconds = numberMember<double>(line, "t");
    if (!(seconds >= 0 && seconds <= kMaxSeconds)) {
        throw Malformed{"t is out of range"};
    }
    entry.time = Time(std::llround(seconds * 1e6));
    if (const auto connection = line.member("connection")) {
        entry.connection = numberOf<std::uint32_t>(*connection, "connection");
    }
    entry.content = contentOf(line);
    return entry;
}

}  // namespace

std::optional<Entry> entryOf(std::string_view line, std::string& flaw) {
    if (line.size() > LineReader::kMaxLineSize) {
        flaw = "longer than 64 MiB";
        return std::nullopt;
    }
    const std::optional<JsonTree> tree = JsonTree::parse(line, flaw);
    if (!tree) {
        return std::nullopt;
    }
    try {
        return readEntry(tree->root());
    } catch (const Malformed& malformed) {
        flaw = malformed.why;
        return std::nullopt;
    }
}

}  // namespace com_tesk::recording
