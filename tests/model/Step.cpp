#include "tests/model/Step.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <limits>
#include <sstream>
#include <stdexcept>

#include "tests/support/Hex.h"
#include "tests/support/HostMessages.h"

namespace com_tesk::test {

namespace {

constexpr std::size_t kNoRecords = std::numeric_limits<std::size_t>::max();

/// How a kind of step is written.
struct Form {
    const char* keyword;
    std::size_t numbers;
    std::size_t values;  ///< of each record; or `kNoRecords`
};

/// In the order of `Step::Kind`.
constexpr Form kForms[] = {
    {"registerInputs", 0, 2},
    {"registerOutputs", 0, 1},
    {"unregisterInputs", 0, 0},
    {"unregisterOutputs", 0, 0},
    {"unregisterAllInputs", 0, kNoRecords},
    {"unregisterAllOutputs", 0, kNoRecords},
    {"publish", 1, 2},
    {"reregister", 0, kNoRecords},
    {"query", 0, 0},
    {"confirmInputs", 2, 3},
    {"confirmOutputs", 2, 1},
    {"update", 2, 3},
    {"version", 4, 0},
    {"body", 0, 0},
    {"dispatch", 0, 0},
    {"lose", 1, kNoRecords},
    {"open", 0, kNoRecords},
    {"connect", 0, kNoRecords},
    {"refuse", 0, kNoRecords},
    {"forceClose", 0, kNoRecords},
    {"end", 0, kNoRecords},
    {"failWrite", 2, kNoRecords},
    {"send", 1, 0},
    {"setSimulatorId", 1, kNoRecords},
    {"add", 1, kNoRecords},
    {"remove", 1, kNoRecords},
    {"wait", 2, kNoRecords},
    {"during", 2, kNoRecords},
    {"meanwhile", 2, kNoRecords},
};
static_assert(std::size(kForms) == Step::MEANWHILE + 1);

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

std::string unescaped(const std::string& text) {
    std::string name;
    for (std::size_t i = text == "''" ? 2 : 0; i < text.size(); ++i) {
        const bool isEscape = text[i] == '%';
        name += isEscape ? static_cast<char>(hex(text.substr(i + 1, 2)).at(0)) : text[i];
        i += isEscape ? 2 : 0;
    }
    return name;
}

std::uint32_t numberFrom(const std::string& text) {
    const bool isNumber = !text.empty() && std::all_of(text.begin(), text.end(), isDigit);
    const unsigned long long number = isNumber ? std::stoull(text) : 0;
    if (!isNumber || number > 0xFFFFFFFF) {
        throw std::invalid_argument("not a number: " + text);
    }
    return static_cast<std::uint32_t>(number);
}

/// The next number of a line.
std::uint32_t numberFrom(std::istream& words) {
    std::string word;
    words >> word;
    return numberFrom(word);
}

Step::Record recordFrom(const std::string& text, std::size_t values) {
    if (isDigit(text[0]) || static_cast<std::size_t>(std::count(text.begin(), text.end(), ',')) != values) {
        throw std::invalid_argument("not the values of this step: " + text);
    }
    Step::Record record;
    std::istringstream parts(text);
    std::string part;
    std::getline(parts, part, ',');
    record.name = unescaped(part);
    for (std::size_t i = 0; i < values; ++i) {
        part.clear();
        std::getline(parts, part, ',');
        record.values[i] = numberFrom(part);
    }
    return record;
}

Step stepFrom(std::istream& words) {
    std::string word;
    words >> word;
    const auto* const form =
        std::find_if(std::begin(kForms), std::end(kForms), [&](const Form& each) { return word == each.keyword; });
    if (form == std::end(kForms)) {
        throw std::invalid_argument("unknown step: " + word);
    }
    Step step;
    step.kind = static_cast<Step::Kind>(form - kForms);
    std::generate_n(step.numbers.begin(), form->numbers, [&words] { return numberFrom(words); });
    while (step.isNested() && !(words >> std::ws).eof()) {
        step.inside.push_back(stepFrom(words));
    }
    while (words >> word && word != ";") {
        step.records.push_back(recordFrom(word, form->values));
    }
    return step;
}

}  // namespace

std::string escaped(const std::string& name) {
    std::string text = name.empty() ? "''" : "";
    for (const char character : name) {
        const auto byte = static_cast<unsigned char>(character);
        const bool isPlain = byte < 0x80 && (std::isalnum(byte) != 0 || byte == '_' || byte == '.' || byte == '-');
        // A word that begins with a digit is a number.
        text +=
            isPlain && !(text.empty() && isDigit(character)) ? std::string(1, character) : '%' + hexText(Bytes{byte});
    }
    return text;
}

void appendItem(std::string& text, const std::string& name, std::initializer_list<std::uint32_t> values) {
    text += name;
    for (const std::uint32_t value : values) {
        text += ',' + std::to_string(value);
    }
}

std::string textOf(const Step& step) {
    const Form& form = kForms[step.kind];
    std::string text = form.keyword;
    for (std::size_t i = 0; i < form.numbers; ++i) {
        text += ' ' + std::to_string(step.numbers[i]);
    }
    for (const Step::Record& record : step.records) {
        text += ' ' + escaped(record.name);
        for (std::size_t i = 0; i < form.values; ++i) {
            text += ',' + std::to_string(record.values[i]);
        }
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
            sequence.simulatorId = numberFrom(words);
            sequence.options = numberFrom(words);
        } else {
            words.seekg(0);
            sequence.steps.push_back(stepFrom(words));
        }
    }
    return sequence;
}

std::string wireWord(std::uint32_t value) {
    return {static_cast<char>(value >> 24U), static_cast<char>(value >> 16U), static_cast<char>(value >> 8U),
            static_cast<char>(value)};
}

std::string wireField(std::string text, std::size_t width) {
    text.resize(width, '\0');
    return text;
}

std::vector<std::string> namesOf(const std::vector<Step::Record>& records) {
    std::vector<std::string> names;
    for (const Step::Record& record : records) {
        names.push_back(record.name);
    }
    return names;
}

std::string hostMessage(const Step& step) {
    const auto& numbers = step.numbers;
    const std::string text = step.records.empty() ? "" : step.records[0].name;
    if (step.kind < Step::CONFIRM_INPUTS || step.kind > Step::VERSION) {
        return text;
    }
    std::vector<std::string> records;
    for (const auto& [name, values] : step.records) {
        const std::string field = name.substr(0, 32);
        records.push_back(step.kind == Step::CONFIRM_INPUTS
                              ? confirmedInput(values[0], values[1], hexWord(values[2]), field)
                          : step.kind == Step::CONFIRM_OUTPUTS ? confirmedOutput(values[0], field)
                                                               : updated(values[0], values[1], hexWord(values[2])));
    }
    const auto announced = numbers[0] == Step::kTrueCount ? static_cast<std::uint32_t>(records.size()) : numbers[0];
    const Bytes body = hex(step.kind == Step::CONFIRM_INPUTS    ? inputConfirmation(announced, records)
                           : step.kind == Step::CONFIRM_OUTPUTS ? outputConfirmation(announced, records)
                           : step.kind == Step::UPDATE          ? update(announced, records)
                                                                : versionResponse((numbers[0] << 16U) + 0x1234U,
                                                                                  text.substr(0, 128), numbers[1], numbers[2]));
    const std::uint32_t dropped = numbers[step.kind == Step::VERSION ? 3 : 1];
    return {body.begin(), body.end() - static_cast<std::ptrdiff_t>(std::min<std::size_t>(dropped, body.size()))};
}

}  // namespace com_tesk::test
