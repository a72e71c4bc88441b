// csx put: publishes values.

#include <unistd.h>

#include <cmath>
#include <map>
#include <variant>

#include "tools/csx/Assignment.h"
#include "tools/csx/Commands.h"
#include "tools/csx/Lines.h"
#include "tools/csx/Names.h"
#include "tools/csx/Texts.h"

namespace com_tesk::csx {

namespace {

/// An output of the type of its value.
class NumberOutput {
  public:
    NumberOutput(Session& session, const Assignment& assignment, Delivery delivery) {
        if (assignment.value.isInteger) {
            output = session.output<std::int32_t>(assignment.name, delivery);
        } else {
            output = session.output<float>(assignment.name, delivery);
        }
    }

    bool isInteger() const { return std::holds_alternative<Output<std::int32_t>>(output); }

    bool isConfirmed() const {
        return std::visit([](const auto& typed) { return typed.isConfirmed(); }, output);
    }

    bool set(const Number& value) const {
        return isInteger() ? std::get<Output<std::int32_t>>(output).set(value.integer)
                           : std::get<Output<float>>(output).set(value.real);
    }

  private:
    std::variant<Output<float>, Output<std::int32_t>> output;
};

/// True when a value that was received is the one that was sent, whatever type the host sends it with.
bool isEcho(const Number& sent, const Number& received) {
    return valueOf(sent) == valueOf(received) || (std::isnan(valueOf(sent)) && std::isnan(valueOf(received)));
}

/// The assignments of the command line, published with one request.
class Batch {
  public:
    Batch(Client& usedClient, const PutOptions& putOptions) : client(usedClient), options(putOptions) {
        for (const Assignment& assignment : options.assignments) {
            outputs.emplace_back(client.session(), assignment, Delivery::NEWEST);
            if (options.echo) {
                echoes.push_back(client.session().input<Number>(assignment.name));
            }
        }
    }

    /// Sets what the host has confirmed.
    void publish() {
        numbers.resize(echoes.size());
        isPublished.resize(outputs.size());
        for (std::size_t i = 0; i < outputs.size(); ++i) {
            if (i < echoes.size()) {
                numbers[i] = echoes[i].read().number;
            }
            isPublished[i] = outputs[i].isConfirmed();
            if (isPublished[i]) {
                outputs[i].set(options.assignments[i].value);
            }
        }
        client.session().flush();
    }

    /// Waits for the values. @return false when one has not come back.
    bool waitForEchoes() const {
        std::size_t first = 0;
        const auto areAllBack = [&] {
            while (first < echoes.size() && isBack(first)) {
                ++first;
            }
            return first == echoes.size();
        };
        return client.runUntil(areAllBack, fromNow(options.echo.value_or(std::chrono::microseconds(0))));
    }

    /// Reports the echoes that are missing.
    void reportMissingEcho() const {
        for (std::size_t i = 0; i < echoes.size(); ++i) {
            if (!isBack(i)) {
                const Reading<Number> reading = echoes[i].read();
                say(shownName(options.assignments[i].name) + " has not come back as " +
                    textOf(options.assignments[i].value) + " within " + textOf(*options.echo) + ": it is " +
                    textOf(reading.value));
            }
        }
    }

    bool reportUnconfirmedOutputs(std::chrono::microseconds timeout) const {
        std::vector<std::pair<std::string, bool>> confirmed;
        for (std::size_t i = 0; i < outputs.size(); ++i) {
            confirmed.emplace_back(options.assignments[i].name, outputs[i].isConfirmed());
        }
        return reportUnconfirmed(confirmed, "within " + textOf(timeout));
    }

  private:
    /// True when the value has come back, or was not published.
    bool isBack(std::size_t i) const {
        const Reading<Number> reading = echoes[i].read();
        return !isPublished[i] || (reading.number > numbers[i] && isEcho(options.assignments[i].value, reading.value));
    }

    Client& client;
    const PutOptions& options;
    std::vector<NumberOutput> outputs;
    std::vector<Input<Number>> echoes;
    /// Of the readings before the publication.
    std::vector<std::uint64_t> numbers;
    /// Of the outputs. After a loss of the connection, those that were published are unconfirmed too.
    std::vector<bool> isPublished;
};

/// Stays connected until a signal arrives.
void hold(Client& client) {
    client.becomePatient();
    client.onEvent = [](const LinkEvent& event) {
        if (event.cause != Cause::STOPPED_BY_US && (event.cause != Cause::NONE || event.link == Link::READY)) {
            say(reasonOf(event));
        }
    };
    try {
        client.runUntil([] { return false; }, Clock::time_point::max());
    } catch (const Interrupted&) {
        // The values have left long ago.
    }
}

ExitCode putBatch(const CommonOptions& common, const PutOptions& options, Signals& signals) {
    Client client(common, Patience::FIRST_FAILURE, signals);
    Batch batch(client, options);
    const ExitCode connected = client.connect();
    if (connected != DONE && connected != UNCONFIRMED) {
        return connected;
    }
    batch.publish();
    const bool isUnconfirmed = connected == UNCONFIRMED && batch.reportUnconfirmedOutputs(common.timeout);
    ExitCode code = isUnconfirmed ? UNCONFIRMED : DONE;
    if (options.echo && !batch.waitForEchoes()) {
        if (client.hasFailed()) {
            return client.reportFailure();
        }
        batch.reportMissingEcho();
        code = code == DONE ? NOT_REACHED : code;
    }
    if (options.isHeld) {
        hold(client);
    }
    const ExitCode finished = client.finish();
    return finished == DONE ? code : finished;
}

/// Publishes the lines of standard input as they come.
class LinePublisher {
  public:
    LinePublisher(const CommonOptions& commonOptions, Signals& signals)
        : common(commonOptions), client(commonOptions, Patience::FIRST_FAILURE, signals) {}

    ExitCode run() {
        if (const ExitCode connected = client.connect(); connected != DONE) {
            return connected;
        }
        ExitCode code = DONE;
        while (code != USAGE) {
            client.runUntil([this] { return lines.isReady(); }, Clock::time_point::max(), STDIN_FILENO,
                            [this] { lines.read(); });
            if (client.hasFailed()) {
                return client.reportFailure();
            }
            std::optional<std::string> line;
            while (code != USAGE && (line = lines.next())) {
                ++lineNumber;
                const ExitCode result = line->empty() ? DONE : publish(*line);
                code = result == DONE ? code : result;
                if (result == LOST) {
                    return result;
                }
            }
            client.session().flush();
            if (lines.isOver()) {
                break;
            }
        }
        const ExitCode finished = client.finish();
        return finished == DONE ? code : finished;
    }

  private:
    ExitCode publish(const std::string& line) {
        std::string flaw;
        const std::optional<Assignment> assignment = assignmentOf(line, flaw);
        if (!assignment) {
            say("line " + std::to_string(lineNumber) + ": " + flaw);
            return USAGE;
        }
        const auto known = outputs.find(assignment->name);
        if (known != outputs.end() && known->second.isInteger() != assignment->value.isInteger) {
            say("line " + std::to_string(lineNumber) + ": " + shownName(assignment->name) +
                " had a value of another type before");
            return USAGE;
        }
        const NumberOutput& output =
            known != outputs.end()
                ? known->second
                : outputs.emplace(assignment->name, NumberOutput(client.session(), *assignment, Delivery::EVERY))
                      .first->second;
        return send(output, *assignment);
    }

    /// Without an end of the wait for a host that reads nothing: the session gives it up.
    ExitCode send(const NumberOutput& output, const Assignment& assignment) {
        if (!output.isConfirmed() &&
            !client.runUntil([&output] { return output.isConfirmed(); }, fromNow(common.timeout))) {
            if (client.hasFailed()) {
                return client.reportFailure();
            }
            reportUnconfirmed({{assignment.name, false}}, "within " + textOf(common.timeout));
            return UNCONFIRMED;
        }
        while (!output.set(assignment.value)) {
            client.session().flush();
            client.runUntil([] { return false; }, fromNow(std::chrono::milliseconds(1)));
            if (client.hasFailed()) {
                return client.reportFailure();
            }
        }
        return DONE;
    }

    const CommonOptions& common;
    Client client;
    Lines lines{STDIN_FILENO};
    std::size_t lineNumber = 0;
    std::map<std::string, NumberOutput> outputs;
};

}  // namespace

ExitCode put(const CommonOptions& common, const PutOptions& options, Signals& signals) {
    return options.isFromInput ? LinePublisher(common, signals).run() : putBatch(common, options, signals);
}

}  // namespace com_tesk::csx
