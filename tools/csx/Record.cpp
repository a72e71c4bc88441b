// csx record: records values, or a program's connections to its host.

#include "tools/csx/Record.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <stdexcept>
#include <utility>

#include "client/CSClient.h"
#include "tools/csx/Names.h"
#include "tools/csx/Texts.h"

namespace com_tesk::csx {

namespace {

using recording::Recorder;

HostValue hostValueOf(const Number& number) {
    return number.isInteger ? HostValue::integer(number.integer) : HostValue::real(number.real);
}

recording::Header headerOf(const char* mode, const std::string& host) {
    recording::Header header;
    header.recorder = std::string("csx ") + CSClient::getClientVersion();
    header.mode = mode;
    header.host = host;
    return header;
}

Clock::time_point endOf(const RecordOptions& options) {
    return options.duration ? fromNow(*options.duration) : Clock::time_point::max();
}

/// Records the values of a session, and its connections.
class Subscriber {
  public:
    Subscriber(const CommonOptions& common, const RecordOptions& recordOptions, Signals& signals)
        : options(recordOptions),
          client(common, Patience::TIMEOUT, signals),
          recorder(recordOptions.recorder, headerOf("subscriber", client.place()), say) {
        for (const NamedInput& named : declareInputs(client.session(), options.names, Delivery::EVERY)) {
            rows.push_back(Row{named});
        }
        for (Row& row : rows) {
            row.named.input.onChange([this, &row](const Reading<Number>& reading) { arrived(row, reading.value); });
        }
        client.onEvent = [this](const LinkEvent& event) { note(event); };
    }

    ExitCode run(const CommonOptions& common) {
        const Clock::time_point end = endOf(options);
        ExitCode code = DONE;
        try {
            const auto limit = std::min(common.timeout, options.duration.value_or(common.timeout));
            code = client.connect([] { return false; }, limit);
            if (code == UNCONFIRMED) {
                reportUnconfirmed(inputs(), "within " + textOf(common.timeout));
            }
            if (code != NO_HOST) {
                client.runUntil([] { return false; }, end);
                code = areAllConfirmed() ? DONE : UNCONFIRMED;
            }
        } catch (const Interrupted&) {
            code = DONE;
        }
        recorder.stop();
        if (code == NO_HOST) {
            std::remove(options.recorder.file.file.c_str());  // Nothing was recorded.
        }
        if (const std::uint64_t dropped = client.session().health().droppedInputs; dropped != 0) {
            say(std::to_string(dropped) + " values were dropped: they arrived faster than they were recorded");
        }
        return code;
    }

  private:
    struct Row {
        NamedInput named;
        bool isRecorded = false;  ///< Its confirmation, on this connection.
        bool isConfirmed = false;
    };

    std::vector<NamedInput> inputs() const {
        std::vector<NamedInput> all;
        std::transform(rows.begin(), rows.end(), std::back_inserter(all), [](const Row& row) { return row.named; });
        return all;
    }

    bool areAllConfirmed() const {
        return std::all_of(rows.begin(), rows.end(), [](const Row& row) { return row.isConfirmed; });
    }

    void arrived(Row& row, const Number& number) {
        begin();
        if (!row.isRecorded) {
            confirm(row, hostValueOf(number));
            return;
        }
        recorder.add(connection, recording::Update{{{row.named.name, 0, hostValueOf(number)}}});
    }

    void confirm(Row& row, HostValue value) {
        row.isRecorded = true;
        row.isConfirmed = true;
        recorder.add(connection, recording::Confirmation{recording::Direction::INPUTS,
                                                         {{row.named.name, value.isInteger(), 0, value}}});
    }

    void note(const LinkEvent& event) {
        if (event.cause != Cause::NONE) {
            end(event);
            return;
        }
        if (event.link >= Link::CONNECTED) {
            begin();
        }
        if (event.link >= Link::ANSWERED && !isVersionRecorded) {
            isVersionRecorded = true;
            const Health health = client.session().health();
            recorder.add(connection, recording::Version{health.hostVersion, health.protocolVersion,
                                                        static_cast<std::uint16_t>(health.simulatorId), 1});
        }
        if (event.link == Link::READY && wasLost) {
            wasLost = false;
            say("connected again");
        }
    }

    void begin() {
        if (!isConnected) {
            isConnected = true;
            ++connection;
            recorder.add(connection, recording::Connected{});
        }
    }

    void end(const LinkEvent& event) {
        if (!isConnected) {
            return;
        }
        isConnected = false;
        isVersionRecorded = false;
        for (Row& row : rows) {
            row.isRecorded = false;
        }
        if (event.cause != Cause::STOPPED_BY_US) {
            recorder.add(connection, recording::Lost{recording::Side::HOST, reasonOf(event)});
            wasLost = true;
            say(reasonOf(event));
        }
    }

    const RecordOptions& options;
    Client client;
    Recorder recorder;
    std::vector<Row> rows;
    std::uint32_t connection = 0;
    bool isConnected = false;
    bool isVersionRecorded = false;
    bool wasLost = false;
};

ExitCode runProxy(const RecordOptions& options, Signals& signals) {
    recording::Proxy proxy(options.listenAt, options.to, say);
    const std::string host = options.to.host + ':' + std::to_string(options.to.port);
    Recorder recorder(options.recorder, headerOf("proxy", host), say);
    say("proxy at " + proxy.place() + " for " + host + ", recording to " + options.recorder.file.file);
    proxy.run(recorder, signals.descriptor(), endOf(options));
    recorder.stop();
    signals.taken();  // A pending signal would end the process as soon as it is unblocked.
    return DONE;
}

}  // namespace

ExitCode record(const CommonOptions& common, const RecordOptions& options, Signals& signals) {
    std::signal(SIGXFSZ, SIG_IGN);  // A limit for files is then an error like a full disk.
    try {
        return options.isProxy ? runProxy(options, signals) : Subscriber(common, options, signals).run(common);
    } catch (const std::runtime_error& error) {
        say(error.what());
        return NOT_REACHED;
    }
}

}  // namespace com_tesk::csx
