#pragma once

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

/// Kinds of options that several commands have.
namespace com_tesk::csx {

/// Adds an option that takes a duration.
CLI::Option* addDuration(CLI::App& app, const std::string& name, const std::string& description,
                         const std::function<void(std::chrono::microseconds)>& take);

/// Reads `HOST` or `HOST:PORT` of this option. The port stays as it is when the text has none.
/// @throw CLI::ValidationError
void takeHost(const std::string& option, const std::string& text, std::string& host, std::uint16_t& port);

/// Adds an option that takes one of these words.
template <typename T>
void addChoice(CLI::App& app, const std::string& name, T& target, const std::map<std::string, T>& choices,
               const std::string& description) {
    std::vector<std::string> words;
    words.reserve(choices.size());
    for (const auto& choice : choices) {
        words.push_back(choice.first);
    }
    app.add_option_function<std::string>(
           name, [&target, choices](const std::string& word) { target = choices.at(word); }, description)
        ->check(CLI::IsMember(words));
}

/// Adds the positional NAME..., with names from standard input in place of `-`.
CLI::Option* addNames(CLI::App& app, std::vector<std::string>& names, const std::string& description);

}  // namespace com_tesk::csx
