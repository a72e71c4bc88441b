#include "tools/csx/OptionTypes.h"

#include <unistd.h>

#include "tools/WholeNumber.h"
#include "tools/csx/Lines.h"
#include "tools/csx/Texts.h"

namespace com_tesk::csx {

namespace {

/// Reads names from standard input in place of `-`.
std::vector<std::string> namesOf(const std::vector<std::string>& words) {
    std::vector<std::string> names;
    for (const std::string& word : words) {
        if (word != "-") {
            names.push_back(word);
            continue;
        }
        Lines lines(STDIN_FILENO);
        while (!lines.isOver()) {
            lines.read();
            while (const auto line = lines.next()) {
                if (!line->empty()) {
                    names.push_back(*line);
                }
            }
        }
    }
    for (const std::string& name : names) {
        if (const std::string flaw = nameError(name); !flaw.empty()) {
            throw CLI::ValidationError("NAME", flaw);
        }
    }
    if (names.empty()) {
        throw CLI::ValidationError("NAME", "standard input has no names");
    }
    return names;
}

}  // namespace

void takeHost(const std::string& option, const std::string& text, std::string& host, std::uint16_t& port) {
    const std::size_t colon = text.rfind(':');
    host = text.substr(0, colon);
    if (colon != std::string::npos) {
        const std::string_view digits = std::string_view(text).substr(colon + 1);
        const auto number = tools::wholeNumber<std::uint16_t>(digits);
        constexpr std::size_t kMaxDigits = 5;
        if (number.value_or(0) == 0 || digits.size() > kMaxDigits) {
            throw CLI::ValidationError(option, "no port from 1 to 65535: " + text);
        }
        port = *number;
    }
    if (host.empty()) {
        throw CLI::ValidationError(option, "no host: " + text);
    }
}

CLI::Option* addDuration(CLI::App& app, const std::string& name, const std::string& description,
                         const std::function<void(std::chrono::microseconds)>& take) {
    return app
        .add_option_function<std::string>(
            name,
            [name, take](const std::string& text) {
                const auto duration = durationOf(text);
                if (!duration) {
                    throw CLI::ValidationError(name, "no duration such as 250ms, 5s, 2m or 1h: " + text);
                }
                take(*duration);
            },
            description)
        ->type_name("TIME");
}

CLI::Option* addNames(CLI::App& app, std::vector<std::string>& names, const std::string& description) {
    return app
        .add_option_function<std::vector<std::string>>(
            "NAME", [&names](const std::vector<std::string>& words) { names = namesOf(words); }, description)
        ->type_name("");
}

}  // namespace com_tesk::csx
