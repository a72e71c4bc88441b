// csx watch: prints values as they arrive.

#include <algorithm>
#include <set>
#include <utility>

#include "tools/csx/Commands.h"
#include "tools/csx/Names.h"
#include "tools/csx/Texts.h"

namespace com_tesk::csx {

namespace {

class Watch {
  public:
    Watch(const CommonOptions& commonOptions, const WatchOptions& watchOptions, Signals& signals)
        : common(commonOptions),
          options(watchOptions),
          client(commonOptions, Patience::TIMEOUT, signals),
          output(signals),
          printer(commonOptions.format, watchOptions.timeStyle, output) {
        for (const NamedInput& named : declareInputs(client.session(), options.names, Delivery::EVERY)) {
            rows.push_back(Row{named});
        }
        for (std::size_t i = 0; i < rows.size(); ++i) {
            rows[i].named.input.onChange([this, i](const Reading<Number>& reading) { arrived(i, reading); });
        }
        client.onEvent = [this](const LinkEvent& event) { note(event); };
        client.endWithOutput();
    }

    ExitCode run() {
        const Clock::time_point end = options.duration ? fromNow(*options.duration) : Clock::time_point::max();
        ExitCode code = DONE;
        try {
            code = client.connect([&] { return isComplete() || Clock::now() >= end; });
            if (code == NO_HOST) {
                return code;
            }
            if (code == UNCONFIRMED) {
                reportUnconfirmedRows();
            }
            while (!isComplete() && Clock::now() < end) {
                const Clock::time_point next = due.empty() ? end : std::min(end, due.begin()->first);
                // A value that arrives meanwhile may have to be printed earlier.
                client.runUntil([&] { return isComplete() || (!due.empty() && due.begin()->first < next); }, next);
                printDue(Clock::now());
            }
            printDue(Clock::time_point::max());
            code = isComplete() ? DONE : resultAtTheEnd();
        } catch (const Interrupted&) {
            code = DONE;
        }
        const std::uint64_t dropped = client.session().health().droppedInputs;
        if (dropped != 0) {
            say(std::to_string(dropped) + " values were dropped: standard output was not read fast enough");
        }
        return code;
    }

  private:
    struct Row {
        NamedInput named;
        std::optional<Number> printed{};
        Clock::time_point printedAt{};
        /// Waits for its time.
        std::optional<Reading<Number>> pending{};
    };

    bool isComplete() const { return options.count != 0 && lines >= options.count; }

    void arrived(std::size_t index, const Reading<Number>& reading) {
        Row& row = rows[index];
        if (options.isChangesOnly && !row.pending && row.printed && isSame(*row.printed, reading.value)) {
            return;
        }
        if (options.maxRate > 0 && row.printed) {
            const auto interval =
                std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(1 / options.maxRate));
            const Clock::time_point next = row.printedAt + interval;
            if (row.pending || Clock::now() < next) {
                row.pending = reading;
                due.emplace(next, index);
                return;
            }
        }
        print(row, reading);
    }

    void print(Row& row, const Reading<Number>& reading) {
        if (isComplete()) {
            return;
        }
        const bool isNew = row.printed && !isSame(*row.printed, reading.value);
        row.printed = reading.value;
        row.printedAt = Clock::now();
        printer.value(reading.received, row.named.name, reading.value, isNew);
        ++lines;
    }

    void printDue(Clock::time_point now) {
        while (!due.empty() && due.begin()->first <= now) {
            Row& row = rows[due.begin()->second];
            due.erase(due.begin());
            const std::optional<Reading<Number>> reading = std::exchange(row.pending, std::nullopt);
            if (reading && !(options.isChangesOnly && isSame(*row.printed, reading->value))) {
                print(row, *reading);
            }
        }
    }

    void note(const LinkEvent& event) {
        if (!client.hasAnswered()) {
            return;  // `connect` reports why.
        }
        if (event.cause != Cause::NONE && event.cause != Cause::STOPPED_BY_US) {
            wasLost = true;
            say(reasonOf(event));
        } else if (event.link == Link::READY && wasLost) {
            wasLost = false;
            say("connected again");
        }
    }

    bool reportUnconfirmedRows() const {
        std::vector<NamedInput> inputs;
        for (const Row& row : rows) {
            inputs.push_back(row.named);
        }
        return reportUnconfirmed(inputs, "within " + textOf(common.timeout));
    }

    ExitCode resultAtTheEnd() const {
        if (!client.hasAnswered()) {
            return client.reportFailure();
        }
        if (client.session().link() < Link::ANSWERED) {
            say("there was no connection when the time had passed");
            return LOST;
        }
        const bool areAllConfirmed =
            std::all_of(rows.begin(), rows.end(), [](const Row& row) { return row.named.input.isConfirmed(); });
        return areAllConfirmed ? DONE : UNCONFIRMED;
    }

    const CommonOptions& common;
    const WatchOptions& options;
    Client client;
    DataOutput output;
    Printer printer;
    std::vector<Row> rows;
    /// When the pending values of these rows are printed.
    std::set<std::pair<Clock::time_point, std::size_t>> due;
    std::uint64_t lines = 0;
    bool wasLost = false;
};

}  // namespace

ExitCode watch(const CommonOptions& common, const WatchOptions& options, Signals& signals) {
    try {
        return Watch(common, options, signals).run();
    } catch (const OutputClosed&) {
        return DONE;
    }
}

}  // namespace com_tesk::csx
