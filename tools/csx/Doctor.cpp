// csx doctor: checks step by step what can be wrong, and names the first failure.

#include <arpa/inet.h>
#include <netdb.h>

#include <array>
#include <cstdio>
#include <functional>

#include "tools/csx/Commands.h"
#include "tools/csx/Diagnosis.h"
#include "tools/csx/Names.h"
#include "tools/csx/Texts.h"

namespace com_tesk::csx {

namespace {

/// A connection that is open for so long, or whose host has answered, was not closed at once.
constexpr std::chrono::milliseconds kAtOnce{200};

class Doctor {
  public:
    Doctor(const CommonOptions& commonOptions, const DoctorOptions& doctorOptions, Signals& signals)
        : common(commonOptions),
          options(doctorOptions),
          // A message that stops must fail before the wait for the answer ends.
          client(commonOptions, Patience::FIRST_FAILURE, signals, commonOptions.timeout * 3 / 4),
          output(signals),
          printer(commonOptions.format, TimeStyle::NONE, output) {
        client.onEvent = [this](const LinkEvent& event) { wasConnected = wasConnected || hasAccepted(event); };
    }

    ExitCode run() {
        // Each step begins with the end of the one before it. The first that fails ends the examination.
        const bool isHealthy =
            checkAddress() && checkConnect() && checkOpen() && checkAnswer() && checkNames() && checkEcho();
        if (isHealthy) {
            report("verdict", true, "everything works", "");
        }
        return code;
    }

  private:
    bool checkAddress() {
        addrinfo wanted{};
        wanted.ai_family = AF_INET;
        wanted.ai_socktype = SOCK_STREAM;
        addrinfo* found = nullptr;
        const int error = getaddrinfo(common.host.c_str(), nullptr, &wanted, &found);
        if (error != 0) {
            return fail("address", gai_strerror(error), diagnosisOf(Failure::NAME_NOT_FOUND));
        }
        std::array<char, INET_ADDRSTRLEN> address{};
        const auto* const socketAddress = reinterpret_cast<const sockaddr_in*>(found->ai_addr);
        inet_ntop(AF_INET, &socketAddress->sin_addr, address.data(), address.size());
        freeaddrinfo(found);
        return pass("address", address.data());
    }

    bool checkConnect() {
        deadline = fromNow(common.timeout);
        client.session().start();
        if (client.runUntil([this] { return wasConnected; }, deadline)) {
            return pass("connect", "port " + std::to_string(common.port));
        }
        return failWithLink("connect", Failure::UNREACHABLE);
    }

    bool checkOpen() {
        const Clock::time_point open = std::min(deadline, fromNow(kAtOnce));
        client.runUntil([this] { return client.hasAnswered(); }, open);
        if (!client.hasFailed() || client.lastFailure()->cause == Cause::NOT_A_HOST) {
            return pass("open", "the host does not close the connection");
        }
        return failWithLink("open", Failure::CLOSED_AT_ONCE);
    }

    bool checkAnswer() {
        if (reaches([this] { return client.hasAnswered(); }, deadline)) {
            const Health health = client.session().health();
            return pass("answer", "version " + printable(health.hostVersion) + ", protocol " +
                                      std::to_string(health.protocolVersion) + ", round trip " +
                                      textOf(health.roundTrip));
        }
        return failWithLink("answer", Failure::NO_ANSWER);
    }

    bool checkNames() {
        std::vector<std::string> names = options.names;
        if (!options.publishedName.empty()) {
            names.push_back(options.publishedName);
        }
        inputs = declareInputs(client.session(), names, Delivery::NEWEST);
        const Clock::time_point limit = fromNow(common.timeout);
        for (const NamedInput& named : inputs) {
            const std::string step = "name " + shownName(named.name);
            if (!reaches([&named] { return named.input.isConfirmed(); }, limit)) {
                return failWithLink(step, Failure::NAME_NOT_CONFIRMED);
            }
            pass(step, "confirmed");
        }
        for (const NamedInput& named : inputs) {
            const std::string step = "value " + shownName(named.name);
            if (!reaches([&named] { return named.input.read().number != 0; }, limit)) {
                return failWithLink(step, Failure::NO_VALUE);
            }
            const Number value = named.input.read().value;
            pass(step, textOf(value) + (value.isInteger ? " (int)" : " (float)") +
                           (valueOf(value) == 0 ? "; a name that no program has published is 0, too" : ""));
        }
        return true;
    }

    /// Publishes the value that the name has, so that nothing changes.
    bool checkEcho() {
        if (options.publishedName.empty()) {
            return true;
        }
        const Input<Number> input = client.session().input<Number>(options.publishedName);
        const Reading<Number> before = input.read();
        return before.value.isInteger
                   ? checkEchoOf(client.session().output<std::int32_t>(options.publishedName), before.value.integer)
                   : checkEchoOf(client.session().output<float>(options.publishedName), before.value.real);
    }

    template <typename T>
    bool checkEchoOf(const Output<T>& out, T value) {
        const std::string name = shownName(options.publishedName);
        const Clock::time_point limit = fromNow(common.timeout);
        if (!reaches([&out] { return out.isConfirmed(); }, limit)) {
            return failWithLink("output " + name, Failure::OUTPUT_NOT_CONFIRMED);
        }
        pass("output " + name, "confirmed");
        const Input<Number> input = client.session().input<Number>(options.publishedName);
        const std::uint64_t number = input.read().number;
        out.set(value);
        client.session().flush();
        if (!reaches([&] { return input.read().number > number; }, limit)) {
            return failWithLink("echo " + name, Failure::NO_ECHO);
        }
        return pass("echo " + name, textOf(input.read().value) + " came back");
    }

    /// As Client::runUntil. False also when the connection has failed and the session has connected again.
    bool reaches(const std::function<bool()>& condition, Clock::time_point limit) {
        return client.runUntil(condition, limit) && !client.hasFailed();
    }

    bool pass(const std::string& step, const std::string& detail) {
        report(step, true, detail, "");
        return true;
    }

    bool fail(const std::string& step, const std::string& detail, const Diagnosis& diagnosis) {
        report(step, false, detail, "");
        report("verdict", false, diagnosis.verdict, diagnosis.hint);
        code = diagnosis.code;
        return false;
    }

    /// Fails for the reason of the link when it has failed, otherwise because the time has passed.
    bool failWithLink(const std::string& step, Failure otherwise) {
        const std::optional<LinkEvent>& failure = client.lastFailure();
        if (!failure) {
            return fail(step, "not within " + textOf(common.timeout), diagnosisOf(otherwise));
        }
        return fail(step, reasonOf(*failure), diagnosisOf(failureOf(*failure, wasConnected, client.hasAnswered())));
    }

    void report(const std::string& step, bool isGood, const std::string& detail, const std::string& hint) {
        const Clock::time_point now = Clock::now();
        std::array<char, 40> time{};
        std::snprintf(time.data(), time.size(), "%.3f", std::chrono::duration<double, std::milli>(now - began).count());
        if (common.format == Format::TEXT) {
            const bool isVerdict = step == "verdict";
            output.line((isVerdict ? "verdict: " : (isGood ? "ok    " : "FAIL  ") + step + ": ") + detail +
                        (isVerdict ? "" : std::string(" (") + time.data() + " ms)"));
            if (!hint.empty()) {
                output.line("hint: " + hint);
            }
        } else {
            printer.record({{"step", step},
                            {"ok", isGood ? "true" : "false", true},
                            {"ms", time.data(), true},
                            {"detail", detail},
                            {"hint", hint}});
        }
        began = Clock::now();
    }

    const CommonOptions& common;
    const DoctorOptions& options;
    Client client;
    DataOutput output;
    Printer printer;
    std::vector<NamedInput> inputs;
    bool wasConnected = false;
    ExitCode code = DONE;
    Clock::time_point deadline;
    /// When the current step began.
    Clock::time_point began = Clock::now();
};

}  // namespace

ExitCode doctor(const CommonOptions& common, const DoctorOptions& options, Signals& signals) {
    return Doctor(common, options, signals).run();
}

}  // namespace com_tesk::csx
