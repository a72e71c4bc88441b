#include <algorithm>
#include <sstream>
#include <stdexcept>

#include "tests/model/Step.h"

namespace com_tesk::test {

namespace {

enum Naming { NO_RECORDS, NAMED, NAMELESS, HEX };

/// How one kind of step is written.
struct Form {
    Step::Kind kind;
    const char* keyword;
    std::size_t numbers;
    Naming naming;
    std::size_t values;  ///< Of each record, besides its name.
};

constexpr Form kForms[] = {
    {Step::REGISTER_INPUTS, "registerInputs", 0, NAMED, 2},
    {Step::REGISTER_OUTPUTS, "registerOutputs", 0, NAMED, 1},
    {Step::UNREGISTER_INPUTS, "unregisterInputs", 0, NAMED, 0},
    {Step::UNREGISTER_OUTPUTS, "unregisterOutputs", 0, NAMED, 0},
    {Step::UNREGISTER_ALL_INPUTS, "unregisterAllInputs", 0, NO_RECORDS, 0},
    {Step::UNREGISTER_ALL_OUTPUTS, "unregisterAllOutputs", 0, NO_RECORDS, 0},
    {Step::PUBLISH, "publish", 1, NAMED, 2},
    {Step::CONFIRM_INPUTS, "confirmInputs", 2, NAMED, 3},
    {Step::CONFIRM_OUTPUTS, "confirmOutputs", 2, NAMED, 1},
    {Step::UPDATE, "update", 2, NAMELESS, 3},
    {Step::VERSION, "version", 4, NAMED, 0},
    {Step::BODY, "body", 0, HEX, 0},
    {Step::LOSE, "lose", 1, NO_RECORDS, 0},
    {Step::OPEN, "open", 0, NO_RECORDS, 0},
    {Step::CONNECT, "connect", 0, NO_RECORDS, 0},
    {Step::REFUSE, "refuse", 0, NO_RECORDS, 0},
    {Step::FORCE_CLOSE, "forceClose", 0, NO_RECORDS, 0},
    {Step::END, "end", 0, NO_RECORDS, 0},
    {Step::FAIL_WRITE, "failWrite", 2, NO_RECORDS, 0},
    {Step::SEND, "send", 1, HEX, 0},
    {Step::SET_SIMULATOR_ID, "setSimulatorId", 1, NO_RECORDS, 0},
    {Step::ADD, "add", 1, NO_RECORDS, 0},
    {Step::REMOVE, "remove", 1, NO_RECORDS, 0},
    {Step::WAIT, "wait", 2, NO_RECORDS, 0},
    {Step::DURING, "during", 2, NO_RECORDS, 0},
    {Step::MEANWHILE, "meanwhile", 2, NO_RECORDS, 0},
};

const char kDigits[] = "0123456789ABCDEF";

bool isPlain(char character) {
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
           (character >= '0' && character <= '9') || character == '_' || character == '.' || character == '-';
}

void appendHex(std::string& text, char character) {
    const unsigned int byte = static_cast<unsigned char>(character);
    text += kDigits[byte >> 4U];
    text += kDigits[byte & 0xFU];
}

char byteFrom(const std::string& digits) {
    if (digits.size() != 2) {
        throw std::invalid_argument("half a byte: " + digits);
    }
    return static_cast<char>(std::stoul(digits, nullptr, 16));
}

std::string unescaped(const std::string& text) {
    std::string name;
    for (std::size_t i = text == "''" ? 2 : 0; i < text.size(); ++i) {
        if (text[i] == '%') {
            name += byteFrom(text.substr(i + 1, 2));
            i += 2;
        } else {
            name += text[i];
        }
    }
    return name;
}

std::uint32_t numberFrom(const std::string& text) {
    std::size_t used = 0;
    const unsigned long number = std::stoul(text, &used, 10);
    if (used != text.size() || number > 0xFFFFFFFF) {
        throw std::invalid_argument("not a number: " + text);
    }
    return static_cast<std::uint32_t>(number);
}

std::string textOf(const Step::Record& record, const Form& form) {
    std::string text;
    if (form.naming == HEX) {
        for (const char character : record.name) {
            appendHex(text, character);
        }
        return text.empty() ? "''" : text;
    }
    if (form.naming == NAMED) {
        text = escaped(record.name);
    }
    for (std::size_t i = 0; i < form.values; ++i) {
        text += (text.empty() ? "" : ",") + std::to_string(record.values[i]);
    }
    return text;
}

Step::Record recordFrom(const std::string& text, const Form& form) {
    Step::Record record;
    if (form.naming == HEX) {
        for (std::size_t i = text == "''" ? 2 : 0; i < text.size(); i += 2) {
            record.name += byteFrom(text.substr(i, 2));
        }
        return record;
    }
    std::istringstream parts(text);
    std::string part;
    if (form.naming == NAMED) {
        std::getline(parts, part, ',');
        record.name = unescaped(part);
    }
    for (std::size_t i = 0; i < form.values; ++i) {
        if (!std::getline(parts, part, ',')) {
            throw std::invalid_argument("values are missing: " + text);
        }
        record.values[i] = numberFrom(part);
    }
    return record;
}

Step stepFrom(std::istringstream& words) {
    std::string word;
    words >> word;
    for (const Form& form : kForms) {
        if (word != form.keyword) {
            continue;
        }
        Step step;
        step.kind = form.kind;
        for (std::size_t i = 0; i < form.numbers; ++i) {
            if (!(words >> word)) {
                throw std::invalid_argument(std::string("numbers are missing: ") + form.keyword);
            }
            step.numbers.push_back(numberFrom(word));
        }
        if (form.kind == Step::DURING || form.kind == Step::MEANWHILE) {
            while (!(words >> std::ws).eof()) {
                step.inside.push_back(stepFrom(words));
            }
            return step;
        }
        while (words >> word && word != ";") {
            if (form.naming == NO_RECORDS) {
                throw std::invalid_argument("too much: " + word);
            }
            step.records.push_back(recordFrom(word, form));
        }
        return step;
    }
    throw std::invalid_argument("unknown step: " + word);
}

}  // namespace

bool needsTables(const Step& step) {
    switch (step.kind) {
        case Step::REGISTER_INPUTS:
        case Step::REGISTER_OUTPUTS:
        case Step::UNREGISTER_INPUTS:
        case Step::UNREGISTER_OUTPUTS:
        case Step::UNREGISTER_ALL_INPUTS:
        case Step::UNREGISTER_ALL_OUTPUTS:
        case Step::PUBLISH:
            return true;
        default:
            return false;
    }
}

std::string escaped(const std::string& name) {
    if (name.empty()) {
        return "''";
    }
    std::string text;
    for (const char character : name) {
        if (isPlain(character)) {
            text += character;
        } else {
            text += '%';
            appendHex(text, character);
        }
    }
    return text;
}

std::string textOf(const Step& step) {
    const Form& form = kForms[step.kind];
    std::string text = form.keyword;
    for (const std::uint32_t number : step.numbers) {
        text += ' ' + std::to_string(number);
    }
    for (const Step::Record& record : step.records) {
        text += ' ' + textOf(record, form);
    }
    for (const Step& inner : step.inside) {
        text += (&inner == &step.inside.front() ? " " : " ; ") + textOf(inner);
    }
    return text;
}

std::string textOf(const Life& life) {
    std::string text = "engine " + std::to_string(life.simulatorId) + ' ' + std::to_string(life.options) + '\n';
    for (const Step& step : life.steps) {
        text += textOf(step) + '\n';
    }
    return text;
}

Life lifeFrom(const std::string& text) {
    Life life;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        line.resize(std::min(line.find('#'), line.size()));
        std::istringstream words(line);
        std::string word;
        if (!(words >> word)) {
            continue;
        }
        if (word == "engine") {
            std::string id;
            std::string options;
            words >> id >> options;
            life.simulatorId = numberFrom(id);
            life.options = numberFrom(options);
            continue;
        }
        std::istringstream whole(line);
        life.steps.push_back(stepFrom(whole));
    }
    return life;
}

}  // namespace com_tesk::test
