#include "tools/ParameterNames.h"

#include "tools/Json.h"

namespace com_tesk::tools {

namespace {

constexpr std::size_t kMaxNameSize = 31;

bool isPrintable(char character) {
    return character >= ' ' && character <= '~';
}

}  // namespace

std::string nameError(std::string_view name) {
    if (name.empty()) {
        return "a name is empty";
    }
    if (name.size() > kMaxNameSize) {
        return "a name has at most 31 bytes: " + shownName(name);
    }
    return name.find('\0') == std::string_view::npos ? std::string() : "a name has a zero byte: " + shownName(name);
}

std::string shownName(std::string_view name) {
    bool isPlain = !name.empty();
    std::string text = "\"";
    for (const char character : name) {
        const bool isSpecial = character == '"' || character == '\\' || !isPrintable(character);
        isPlain = isPlain && !isSpecial && character != ' ';
        text += isSpecial ? "\\x" + hexOf({&character, 1}) : std::string(1, character);
    }
    return isPlain ? std::string(name) : text + '"';
}

std::string printable(std::string_view text) {
    std::string shown;
    for (const char character : text) {
        shown += isPrintable(character) ? std::string(1, character) : "\\x" + hexOf({&character, 1});
    }
    return shown;
}

}  // namespace com_tesk::tools
