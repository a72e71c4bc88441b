// csx wait: ends when conditions hold.

#include <algorithm>

#include "tools/csx/Commands.h"
#include "tools/csx/Names.h"
#include "tools/csx/Texts.h"

namespace com_tesk::csx {

namespace {

class Wait {
  public:
    Wait(const CommonOptions& commonOptions, const WaitOptions& waitOptions, Signals& stopSignals)
        : common(commonOptions),
          options(waitOptions),
          signals(stopSignals),
          client(commonOptions, Patience::TIMEOUT, stopSignals) {
        std::vector<std::string> names;
        for (const Condition& condition : options.conditions) {
            names.push_back(condition.name);
        }
        inputs = declareInputs(client.session(), names, Delivery::EVERY);
        values.resize(inputs.size());
        for (std::size_t i = 0; i < inputs.size(); ++i) {
            inputs[i].input.onChange([this, i](const Reading<Number>& reading) { arrived(i, reading); });
        }
        for (const Condition& condition : options.conditions) {
            const auto input = std::find_if(inputs.begin(), inputs.end(), [&condition](const NamedInput& named) {
                return named.name == condition.name;
            });
            checks.push_back({condition, static_cast<std::size_t>(input - inputs.begin())});
        }
        client.onEvent = [this](const LinkEvent& event) { note(event); };
    }

    ExitCode run() {
        const Clock::time_point end = fromNow(options.within);
        const ExitCode code = client.connect([&] { return isReached() || Clock::now() >= end; }, options.within);
        if (code == NO_HOST) {
            return code;
        }
        while (!isReached() && Clock::now() < end) {
            // A value that arrives meanwhile begins the time of holding, or ends it.
            const std::optional<Clock::time_point> since = heldSince;
            client.runUntil([&] { return isReached() || heldSince != since; },
                            since ? std::min(end, *since + options.hold) : end);
        }
        if (isReached()) {
            print();
            return DONE;
        }
        return reportUnreached();
    }

  private:
    struct Check {
        Condition condition;
        std::size_t input;
    };

    bool isReached() {
        examine();
        wasReached = wasReached || (heldSince && Clock::now() - *heldSince >= options.hold);
        return wasReached;
    }

    void arrived(std::size_t index, const Reading<Number>& reading) {
        if (reading.received != newest) {
            examine();
        }
        if (wasReached) {
            return;  // What comes later does not count, nor is it printed.
        }
        values[index] = reading;
        newest = reading.received;
        isExamined = false;
    }

    /// Compares the values with the conditions. Those of one message count together.
    void examine() {
        if (isExamined) {
            return;
        }
        isExamined = true;
        const bool doAllHold = std::all_of(checks.begin(), checks.end(), [this](const Check& check) {
            return values[check.input] && check.condition.holdsFor(values[check.input]->value);
        });
        if (doAllHold && !heldSince) {
            heldSince = newest;
        } else if (!doAllHold) {
            heldSince.reset();
        }
        wasReached = heldSince && newest - *heldSince >= options.hold;
    }

    /// Without a connection nothing is known about the values.
    void note(const LinkEvent& event) {
        if (event.cause == Cause::NONE || event.cause == Cause::STOPPED_BY_US || isReached()) {
            return;
        }
        if (!client.hasAnswered()) {
            if (!wasReportedAsAbsent) {
                wasReportedAsAbsent = true;
                say("no host yet: " + reasonOf(event));
            }
            return;
        }
        say(reasonOf(event));
        isExamined = true;
        heldSince.reset();
        std::fill(values.begin(), values.end(), std::nullopt);
    }

    void print() {
        DataOutput output(signals);
        Printer printer(common.format, TimeStyle::ABSOLUTE, output);
        for (std::size_t i = 0; i < inputs.size(); ++i) {
            if (values[i]) {
                printer.value(values[i]->received, inputs[i].name, values[i]->value, false);
            }
        }
    }

    ExitCode reportUnreached() const {
        if (!client.hasAnswered()) {
            return client.reportFailure();
        }
        if (client.session().link() < Link::ANSWERED) {
            say("there was no connection when the time had passed");
            return LOST;
        }
        if (reportUnconfirmed(inputs, "within " + textOf(options.within))) {
            return UNCONFIRMED;
        }
        for (const Check& check : checks) {
            const auto& reading = values[check.input];
            if (!reading || !check.condition.holdsFor(reading->value)) {
                say("not reached within " + textOf(options.within) + ": " + check.condition.text + ", it is " +
                    (reading ? textOf(reading->value) : "unknown"));
            }
        }
        if (heldSince) {
            say("the conditions have not held for " + textOf(options.hold));
        }
        return NOT_REACHED;
    }

    const CommonOptions& common;
    const WaitOptions& options;
    Signals& signals;
    Client client;
    std::vector<NamedInput> inputs;
    std::vector<std::optional<Reading<Number>>> values;
    std::vector<Check> checks;
    /// The time of the last value.
    Clock::time_point newest;
    bool isExamined = true;
    /// Since when all conditions hold.
    std::optional<Clock::time_point> heldSince;
    bool wasReached = false;
    bool wasReportedAsAbsent = false;
};

}  // namespace

ExitCode wait(const CommonOptions& common, const WaitOptions& options, Signals& signals) {
    return Wait(common, options, signals).run();
}

}  // namespace com_tesk::csx
