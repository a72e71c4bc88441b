#include <algorithm>
#include <cctype>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include "tests/model/Step.h"

namespace com_tesk::test {

namespace {

/// In the order of `Step::Kind`.
const std::vector<std::string>& keywords() {
    static const std::vector<std::string> all = [] {
        std::istringstream words(
            "registerInputs registerOutputs unregisterInputs unregisterOutputs unregisterAllInputs "
            "unregisterAllOutputs "
            "publish reregister query confirmInputs confirmOutputs update version body dispatch lose open connect "
            "refuse "
            "forceClose end failWrite send setSimulatorId add remove wait during meanwhile");
        return std::vector<std::string>(std::istream_iterator<std::string>(words), {});
    }();
    return all;
}

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

std::string unescaped(const std::string& text) {
    std::string name;
    for (std::size_t i = text == "''" ? 2 : 0; i < text.size(); ++i) {
        if (text[i] == '%') {
            name += static_cast<char>(std::stoul(text.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            name += text[i];
        }
    }
    return name;
}

std::uint32_t numberFrom(const std::string& text) {
    std::size_t used = 0;
    const unsigned long number = std::stoul(text, &used);
    if (used != text.size() || number > 0xFFFFFFFF) {
        throw std::invalid_argument("not a number: " + text);
    }
    return static_cast<std::uint32_t>(number);
}

Step::Record recordFrom(const std::string& text) {
    Step::Record record;
    std::istringstream parts(text);
    std::string part;
    std::getline(parts, part, ',');
    record.name = unescaped(part);
    for (std::size_t i = 0; std::getline(parts, part, ','); ++i) {
        record.values.at(i) = numberFrom(part);
    }
    return record;
}

Step stepFrom(std::istringstream& words) {
    std::string word;
    words >> word;
    const auto keyword = std::find(keywords().begin(), keywords().end(), word);
    if (keyword == keywords().end()) {
        throw std::invalid_argument("unknown step: " + word);
    }
    Step step;
    step.kind = static_cast<Step::Kind>(keyword - keywords().begin());
    std::size_t count = 0;
    while (isDigit(static_cast<char>((words >> std::ws).peek()))) {
        words >> word;
        step.numbers.at(count++) = numberFrom(word);
    }
    while (step.isNested() && !words.eof()) {
        step.inside.push_back(stepFrom(words));
        words >> std::ws;
    }
    while (words >> word && word != ";") {
        step.records.push_back(recordFrom(word));
    }
    return step;
}

/// Appends the numbers without the zeros at the end.
template <typename Numbers>
void append(std::string& text, char separator, const Numbers& numbers) {
    std::size_t count = numbers.size();
    while (count > 0 && numbers[count - 1] == 0) {
        --count;
    }
    for (std::size_t i = 0; i < count; ++i) {
        text += separator + std::to_string(numbers[i]);
    }
}

}  // namespace

std::string escaped(const std::string& name) {
    static const char digits[] = "0123456789ABCDEF";
    std::string text = name.empty() ? "''" : "";
    for (const char character : name) {
        const auto byte = static_cast<unsigned char>(character);
        const bool isPlain = byte < 0x80 && (std::isalnum(byte) != 0 || byte == '_' || byte == '.' || byte == '-');
        // A word that begins with a digit is a number.
        if (isPlain && !(text.empty() && isDigit(character))) {
            text += character;
        } else {
            text += {'%', digits[byte >> 4U], digits[byte & 0xFU]};
        }
    }
    return text;
}

void appendItem(std::string& text, const std::string& name, std::initializer_list<std::uint32_t> values) {
    text += name;
    for (const std::uint32_t value : values) {
        text += ',';
        text += std::to_string(value);
    }
}

std::string textOf(const Step& step) {
    std::string text = keywords()[step.kind];
    append(text, ' ', step.numbers);
    for (const Step::Record& record : step.records) {
        text += ' ' + escaped(record.name);
        append(text, ',', record.values);
    }
    for (const Step& inner : step.inside) {
        text += (&inner == &step.inside.front() ? " " : " ; ") + textOf(inner);
    }
    return text;
}

std::string textOf(const StepSequence& sequence) {
    std::string text = "engine " + std::to_string(sequence.simulatorId) + ' ' + std::to_string(sequence.options) + '\n';
    for (const Step& step : sequence.steps) {
        text += textOf(step) + '\n';
    }
    return text;
}

StepSequence sequenceFrom(const std::string& text) {
    StepSequence sequence;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line.substr(0, line.find('#')));
        std::string word;
        if (!(words >> word)) {
            continue;
        }
        if (word == "engine") {
            words >> sequence.simulatorId >> sequence.options;
        } else {
            words.seekg(0);
            sequence.steps.push_back(stepFrom(words));
        }
    }
    return sequence;
}

}  // namespace com_tesk::test
