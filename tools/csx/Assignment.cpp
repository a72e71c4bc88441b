#include "tools/csx/Assignment.h"

#include "tools/csx/Texts.h"

namespace com_tesk::csx {

std::optional<Assignment> assignmentOf(std::string_view text, std::string& flaw) {
    const std::size_t equals = text.rfind('=');
    if (equals == std::string_view::npos) {
        flaw = "expected NAME=VALUE, got " + shownName(text);
        return std::nullopt;
    }
    const std::string_view name = text.substr(0, equals);
    flaw = nameError(name);
    if (!flaw.empty()) {
        return std::nullopt;
    }
    const std::optional<Number> value = numberOf(text.substr(equals + 1));
    if (!value) {
        flaw = "neither a number nor i: and a 32-bit integer: " + shownName(text);
        return std::nullopt;
    }
    return Assignment{std::string(name), *value};
}

}  // namespace com_tesk::csx
