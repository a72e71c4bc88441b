#include "tests/model/RandomSequence.h"

#include <algorithm>
#include <map>
#include <sstream>
#include <stdexcept>
#include <utility>
#include <vector>

namespace com_tesk::test {

namespace {

/// The rules of the text form of random steps. Each rule lists its alternatives, "5 * x" being five times as likely as
/// "x". A word followed by "..." is repeated. `<random>` is any number, and `<damaged>` the bytes of a message.
constexpr char kGrammar[] = R"(
step = 30 * <registration> | 20 * <unregistration> | 20 * <publication> | 40 * <message> | 2 * <version> | <damage>
step = 2 * <loss> | <close> | 34 * <connection> | 2 * <failure> | 4 * <callbacks> | 4 * <nested> | <wait> | 3 * <other>

registration = registerInputs <name>,<type>,<mode>... | registerOutputs <name>,<type>...
unregistration = 5 * unregisterInputs <name>... | 5 * unregisterOutputs <name>...
unregistration = unregisterAllInputs | unregisterAllOutputs
publication = 3 * publish 0 <name>,<type>,<bits>... | publish <bits> <name>,<type>,<bits>...
message = <confirmation> | <confirmation> | <confirmation> | <update>
confirmation = confirmInputs <announced> <dropped> <name>,<id>,<flag>,<bits>...
confirmation = confirmOutputs <announced> <dropped> <name>,<id>...
update = update <announced> <dropped> '',<id>,<flag>,<bits>...
version = 35 * version <simulator> <bits> 1 0 <text> | 7 * version <simulator> <bits> <bits> 0 <text>
version = 5 * version <simulator> <bits> 1 <cut> <text> | version <simulator> <bits> 1 1<digit> <text>
damage = 3 * body <damaged> | dispatch <damaged>
loss = lose 0 | lose 1 | lose 2 | lose 3 | lose 4 | lose 5 | lose 6
close = forceClose
connection = 2 * end | 2 * open | 11 * connect | refuse
failure = 2 * failWrite 4294967295 <errno> | failWrite 0 <errno> | failWrite 5 <errno>
callbacks = 2 * add <interface> | remove <interface> | add 3
wait = wait <state> 0 | wait <state> 1 | wait <state> 2
other = setSimulatorId <simulator> | send <state> <bytes>

nested = 8 * during <callback> <interface> <calls> | meanwhile <callback> <interface> <calls>
nested = meanwhile 5 0 <calls> | meanwhile 4 0 <locked>
calls = 8 * <call> | 4 * <call> ; <call> | unregisterOutputs A B C ; registerOutputs A,<type> B,<type> C,<type>
call = 9 * <registration> | 8 * <unregistration> | 3 * <callbacks> | 3 * <failure> | <close> | 3 * <wait>
call = 6 * <publication> | reregister | query <name>...
locked = 4 * <close> | 4 * <wait> | <callbacks> | <other> | 2 * <registration>
callback = 0 | 1 | 2 | 3

name = 30 * A | 30 * B | 30 * C | 30 * D | 30 * E | 30 * F | 30 * G | 30 * a | <bytes>
name = 2 * '' | 2 * two%20words | 2 * A%00B | 2 * %C3%BC%25%2C%27 | 2 * <x30>x | 2 * <x30>xx | 2 * <x30>xxx
name = 2 * <x30><x30><x30><x30><x30><x30><x30><x30><x30><x30>
x30 = xxxxxxxxxxxxxxxxxxxxxxxxxxxxxx
bytes = '' | s | <x30>
text = 3 * <name> | <x30><x30><x30><x30> | <x30><x30><x30><x30>xxxxxxx | <x30><x30><x30><x30><x30>
type = 15 * 1 | 15 * 2 | 5 * 5 | 4 * 4294967295 | 0
mode = 0 | 1 | 2 | 3 | 4
bits = 6 * <random> | 0 | 1 | 1065353216 | 2139095041 | 2147483648 | 4294967294
id = 10 * <digit> | 0 | 1048575 | 2147483648 | 4294967295
flag = 0 | 1 | 2
announced = 49 * 4294967295 | 0 | 1 | 2 | 5 | 1000 | 2147483648 | 4294967294
dropped = 21 * 0 | 1 | <digit> | <cut>
cut = <digit> | 1<digit> | 2<digit> | 5<digit>
simulator = 2 * 1 | 2 | 3 | 0 | 32767 | 32768 | 65535
interface = 0 | 1 | 2
state = 0 | 1 | 2 | 3 | 4 | 5
errno = 32 | 104 | 11 | 0
digit = 1 | 2 | 3 | 4 | 5 | 6 | 7 | 8 | 9
)";

class Generator {
  public:
    Generator(std::mt19937_64& randomNumbers, const std::string& replacements)
        : random(randomNumbers), grammar(rulesOf(kGrammar)) {
        for (auto& [name, alternatives] : rulesOf(replacements)) {
            grammar[name] = alternatives;
        }
    }

    std::string step() { return expanded("<step>"); }

  private:
    using Rules = std::map<std::string, std::vector<std::string>>;

    static Rules rulesOf(const std::string& text) {
        Rules rules;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            const std::size_t equals = line.find(" = ");
            for (std::size_t begin = equals; begin < line.size();) {
                const std::size_t end = std::min(line.find(" | ", begin + 3), line.size());
                const std::string alternative = line.substr(begin + 3, end - begin - 3);
                const std::size_t times = alternative.find(" * ");
                const bool isSingle = times == std::string::npos;
                std::vector<std::string>& rule = rules[line.substr(0, equals)];
                rule.insert(rule.end(), isSingle ? 1 : std::stoul(alternative),
                            isSingle ? alternative : alternative.substr(times + 3));
                begin = end;
            }
        }
        return rules;
    }

    std::size_t below(std::size_t limit) { return static_cast<std::size_t>(random() % limit); }

    /// The text with each <rule> replaced by one of its alternatives.
    std::string expanded(std::string text) {
        for (std::size_t dots = text.find("..."); dots != std::string::npos; dots = text.find("...")) {
            const std::size_t begin = text.rfind(' ', dots) + 1;
            const std::string word = text.substr(begin, dots - begin);
            std::string words;
            for (std::size_t left = below(20) == 0 ? below(12) : 1 + below(2) * below(4); left > 0; --left) {
                words += word + ' ';
            }
            text.replace(begin, word.size() + 3, words);
        }
        for (std::size_t open = text.find('<'); open != std::string::npos; open = text.find('<')) {
            const std::size_t close = text.find('>', open);
            text.replace(open, close + 1 - open, replacement(text.substr(open + 1, close - open - 1)));
        }
        return text;
    }

    std::string replacement(const std::string& rule) {
        if (rule == "random") {
            return std::to_string(static_cast<std::uint32_t>(random()));
        }
        if (rule == "damaged") {
            return escaped(damaged(sequenceFrom(expanded(below(6) == 0 ? "<version>" : "<message>")).steps[0]));
        }
        const std::vector<std::string>& alternatives = grammar.at(rule);
        return expanded(alternatives[below(alternatives.size())]);
    }

    /// The body of a message with a few bytes changed, or any bytes.
    std::string damaged(const Step& message) {
        std::string body = hostMessage(message);
        const bool isAnything = below(4) == 0;
        body.resize(isAnything ? 1 + below(40) : body.size() + (below(4) == 0 ? below(60) : 0));
        for (std::size_t left = isAnything ? 100 : below(4); left > 0 && !body.empty(); --left) {
            body[below(body.size())] = static_cast<char>(isAnything ? random() : below(8));
        }
        return body;
    }

    std::mt19937_64& random;
    Rules grammar;
};

using Pieces = std::vector<std::string>;

Pieces split(const std::string& text, char separator) {
    Pieces pieces;
    std::istringstream stream(text);
    for (std::string piece; std::getline(stream, piece, separator);) {
        pieces.push_back(piece);
    }
    return pieces;
}

std::string joined(const Pieces& pieces, char separator) {
    std::string text;
    for (const std::string& piece : pieces) {
        text += (text.empty() ? "" : std::string(1, separator)) + piece;
    }
    return text;
}

/// Removes pieces but the first, as long as `fails`. Backwards, because what comes last depends on what comes first.
/// @param isThorough  tries every range of pieces; otherwise halves, quarters and so on.
template <typename Fails>
bool shrink(Pieces& pieces, bool isThorough, const Fails& fails) {
    const std::size_t before = pieces.size();
    for (std::size_t size = pieces.size() / 2; size > 0; size = isThorough ? size - 1 : size / 2) {
        for (std::size_t end = pieces.size(); end > 1;) {
            const std::size_t begin = std::max<std::size_t>(end > size ? end - size : 0, 1);
            Pieces fewer(pieces.begin(), pieces.begin() + static_cast<std::ptrdiff_t>(begin));
            fewer.insert(fewer.end(), pieces.begin() + static_cast<std::ptrdiff_t>(end), pieces.end());
            const bool isFailing = fails(fewer);
            if (isFailing) {
                pieces = fewer;
            }
            end = isThorough && !isFailing ? end - 1 : begin;
        }
    }
    return pieces.size() < before;
}

}  // namespace

StepSequence randomSequence(std::mt19937_64& random, std::size_t count, const std::string& rules) {
    Generator generator(random, rules);
    static const char* const engines[] = {"1 ", "1 ", "0 ", "32767 ", "74565 "};
    std::string text = std::string("engine ") + engines[random() % 5] + std::to_string(random() % 4) + '\n';
    for (std::size_t i = 0; i < count; ++i) {
        text += generator.step() + '\n';
    }
    return sequenceFrom(text);
}

StepSequence shrunk(const StepSequence& sequence, const std::function<bool(const StepSequence&)>& fails,
                    std::chrono::milliseconds time) {
    const auto deadline = std::chrono::steady_clock::now() + time;
    const auto linesFail = [&fails, deadline](const Pieces& lines) {
        try {
            return std::chrono::steady_clock::now() < deadline && fails(sequenceFrom(joined(lines, '\n')));
        } catch (const std::logic_error&) {  // These words are no steps.
            return false;
        }
    };
    Pieces lines = split(textOf(sequence), '\n');
    for (bool helped = true; helped;) {
        helped = shrink(lines, false, linesFail);
        for (std::string& line : lines) {
            Pieces words = split(line, ' ');
            helped = shrink(words, true,
                            [&](const Pieces& fewer) {
                                const std::string before = line;
                                line = joined(fewer, ' ');
                                const bool isFailing = linesFail(lines);
                                line = isFailing ? line : before;
                                return isFailing;
                            }) ||
                     helped;
        }
    }
    return sequenceFrom(joined(lines, '\n'));
}

}  // namespace com_tesk::test
