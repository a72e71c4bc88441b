#include "tests/model/RandomLife.h"

#include <iterator>
#include <string>
#include <utility>
#include <vector>

namespace com_tesk::test {

namespace {

constexpr std::uint32_t kMinusOne = 0xFFFFFFFF;

class Drawing {
  public:
    Drawing(std::mt19937_64& randomNumbers, const Weights& groupWeights)
        : random(randomNumbers), weights(groupWeights) {}

    Step step() {
        struct Group {
            unsigned int weight;
            Step (Drawing::*draw)();
        };
        const Group groups[] = {
            {weights.registration, &Drawing::registration},
            {weights.unregistration, &Drawing::unregistration},
            {weights.publication, &Drawing::publication},
            {weights.confirmation, &Drawing::confirmation},
            {weights.update, &Drawing::update},
            {weights.version, &Drawing::version},
            {weights.damagedMessage, &Drawing::damagedMessage},
            {weights.loss, &Drawing::loss},
            {weights.close, &Drawing::close},
            // Whatever has ended the connection, it soon stands again.
            {4 + 6 * (weights.loss + weights.close + weights.failedWrite), &Drawing::connection},
            {weights.failedWrite, &Drawing::failedWrite},
            {weights.callbacks, &Drawing::callbacks},
            {weights.inside, &Drawing::inside},
            {weights.wait, &Drawing::wait},
            {weights.other, &Drawing::other},
        };
        unsigned int total = 0;
        for (const Group& group : groups) {
            total += group.weight;
        }
        unsigned int drawn = below(total);
        for (const Group& group : groups) {
            if (drawn < group.weight) {
                return (this->*group.draw)();
            }
            drawn -= group.weight;
        }
        return other();
    }

  private:
    unsigned int below(unsigned int limit) { return static_cast<unsigned int>(random() % limit); }
    bool oneIn(unsigned int count) { return below(count) == 0; }

    template <std::size_t Count>
    std::uint32_t oneOf(const std::uint32_t (&choices)[Count]) {
        return choices[below(Count)];
    }

    std::string name() {
        static const std::string common[] = {"A", "B", "C", "D", "E", "F", "G", "a"};
        static const std::string rare[] = {
            "",
            "two words",
            std::string("A\0B", 3),
            "\xC3\xBC%,'",
            std::string(31, 'x'),
            std::string(32, 'x'),
            std::string(33, 'x'),
            std::string(300, 'y'),
        };
        return oneIn(16) ? rare[below(std::size(rare))] : common[below(std::size(common))];
    }

    std::uint32_t type() {
        static constexpr std::uint32_t kTypes[] = {1, 1, 1, 2, 2, 2, 5, 0xFFFFFFFF};
        return oneIn(40) ? 0 : oneOf(kTypes);
    }

    std::uint32_t bits() {
        static constexpr std::uint32_t kKnown[] = {0, 1, 0x3F800000, 0x7F800001, 0x80000000, 0xFFFFFFFE};
        return oneIn(2) ? oneOf(kKnown) : static_cast<std::uint32_t>(random());
    }

    std::uint32_t id() {
        static constexpr std::uint32_t kOdd[] = {0, kWaiting, 0x80000000, 0xFFFFFFFF};
        return oneIn(10) ? oneOf(kOdd) : 1 + below(9);
    }

    std::size_t count() { return oneIn(20) ? below(12) : oneIn(2) ? 1 : 1 + below(4); }

    std::uint32_t announced() {
        static constexpr std::uint32_t kLies[] = {0, 1, 2, 5, 1000, 0x80000000, 0xFFFFFFFE};
        return oneIn(8) ? oneOf(kLies) : Step::kTrueCount;
    }

    std::uint32_t dropped() { return oneIn(8) ? 1 + below(60) : 0; }

    Step make(Step::Kind kind, std::vector<std::uint32_t> numbers = {}) {
        Step step;
        step.kind = kind;
        step.numbers = std::move(numbers);
        return step;
    }

    Step registration() {
        const bool isInput = oneIn(2);
        Step step = make(isInput ? Step::REGISTER_INPUTS : Step::REGISTER_OUTPUTS);
        for (std::size_t left = count(); left > 0; --left) {
            step.records.push_back({name(), {type(), isInput ? below(5) : 0, 0}});
        }
        return step;
    }

    Step unregistration() {
        const bool isInput = oneIn(2);
        if (oneIn(6)) {
            return make(isInput ? Step::UNREGISTER_ALL_INPUTS : Step::UNREGISTER_ALL_OUTPUTS);
        }
        Step step = make(isInput ? Step::UNREGISTER_INPUTS : Step::UNREGISTER_OUTPUTS);
        for (std::size_t left = count(); left > 0; --left) {
            step.records.push_back({name(), {}});
        }
        return step;
    }

    Step publication() {
        Step step = make(Step::PUBLISH, {oneIn(4) ? bits() : 0});
        for (std::size_t left = oneIn(3) ? count() : 1; left > 0; --left) {
            step.records.push_back({name(), {type(), bits(), 0}});
        }
        return step;
    }

    Step confirmation() {
        const bool isInput = oneIn(2);
        Step step = make(isInput ? Step::CONFIRM_INPUTS : Step::CONFIRM_OUTPUTS, {announced(), dropped()});
        for (std::size_t left = count(); left > 0; --left) {
            if (isInput) {
                step.records.push_back({name(), {id(), below(3), bits()}});
            } else {
                step.records.push_back({name(), {id(), 0, 0}});
            }
        }
        return step;
    }

    Step update() {
        Step step = make(Step::UPDATE, {announced(), dropped()});
        for (std::size_t left = count(); left > 0; --left) {
            step.records.push_back({"", {id(), below(3), bits()}});
        }
        return step;
    }

    Step version() {
        static constexpr std::uint32_t kIds[] = {1, 1, 2, 3, 0, 32767, 32768, 65535};
        Step step = make(Step::VERSION, {oneOf(kIds), bits(), oneIn(6) ? bits() : 1, oneIn(8) ? below(150) : 0});
        step.records.push_back({oneIn(4) ? std::string(120 + below(20), 'v') : name(), {}});
        return step;
    }

    /// One of the messages above with a few bytes changed, or any bytes.
    Step damagedMessage() {
        Step step = make(Step::BODY);
        std::string body;
        if (oneIn(4)) {
            body.resize(1 + below(40));
            for (char& byte : body) {
                byte = static_cast<char>(random());
            }
        } else {
            body = hostMessage(oneIn(3) ? update() : oneIn(6) ? version() : confirmation());
            for (unsigned int left = below(4); left > 0 && !body.empty(); --left) {
                body[below(static_cast<unsigned int>(body.size()))] = static_cast<char>(below(8));
            }
            body.append(oneIn(4) ? below(60) : 0, '\0');
        }
        step.records.push_back({body, {}});
        return step;
    }

    Step loss() { return make(Step::LOSE, {below(Step::LOSSES)}); }

    Step close() { return make(Step::FORCE_CLOSE); }

    Step connection() {
        switch (below(8)) {
            case 0:
                return make(oneIn(3) ? Step::REFUSE : Step::CONNECT);
            case 1:
            case 2:
                return make(Step::END);
            case 3:
            case 4:
                return make(Step::OPEN);
            default:
                return make(Step::CONNECT);
        }
    }

    Step failedWrite() {
        static constexpr std::uint32_t kResults[] = {kMinusOne, kMinusOne, 0, 5};
        static constexpr std::uint32_t kErrors[] = {32, 104, 11, 0};
        return make(Step::FAIL_WRITE, {oneOf(kResults), oneOf(kErrors)});
    }

    Step callbacks() {
        const bool isAdded = !oneIn(3);
        return make(isAdded ? Step::ADD : Step::REMOVE, {below(Step::kInterfaces + (oneIn(8) ? 1 : 0))});
    }

    Step wait() { return make(Step::WAIT, {below(6), below(3)}); }

    /// What a callback may do, and what another thread may do meanwhile.
    Step inside() {
        const bool isMeanwhile = oneIn(5);
        const std::uint32_t event = below(isMeanwhile ? Step::EVENTS : Step::CALLBACKS);
        const std::uint32_t callback = event < Step::CALLBACKS ? below(Step::kInterfaces) : 0;
        Step step = make(isMeanwhile ? Step::MEANWHILE : Step::DURING, {event, callback});
        for (unsigned int left = oneIn(3) ? 2 : 1; left > 0; --left) {
            step.inside.push_back(event == Step::WRITING ? duringAWrite() : insideOf());
        }
        return step;
    }

    /// What needs no table, as a rule: those are mostly locked then.
    Step duringAWrite() {
        switch (below(6)) {
            case 0:
            case 1:
                return close();
            case 2:
            case 3:
                return wait();
            case 4:
                return oneIn(2) ? callbacks() : other();
            default:
                return registration();
        }
    }

    Step insideOf() {
        switch (below(11)) {
            case 0:
            case 1:
            case 2:
                return registration();
            case 3:
            case 4:
                return unregistration();
            case 5:
                return callbacks();
            case 6:
                return failedWrite();
            case 7:
                return oneIn(3) ? close() : unregistration();
            case 8:
                return wait();
            default:
                return publication();
        }
    }

    Step other() {
        if (oneIn(2)) {
            return make(Step::SET_SIMULATOR_ID, {oneIn(5) ? 32767 + below(3) : below(4)});
        }
        Step step = make(Step::SEND, {below(4)});
        step.records.push_back({std::string(below(20), 's'), {}});
        return step;
    }

    std::mt19937_64& random;
    const Weights& weights;
};

}  // namespace

Life randomLife(std::mt19937_64& random, std::size_t count, const Weights& weights) {
    static constexpr std::uint32_t kIds[] = {1, 1, 0, 32767, 0x12345};
    Life life;
    life.simulatorId = kIds[random() % std::size(kIds)];
    life.options = static_cast<std::uint32_t>(random() % 4);
    Drawing drawing(random, weights);
    while (life.steps.size() < count) {
        life.steps.push_back(drawing.step());
    }
    return life;
}

}  // namespace com_tesk::test
