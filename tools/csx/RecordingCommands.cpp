#include "tools/csx/RecordingCommands.h"

#include <CLI/CLI.hpp>
#include <optional>

#include "tools/WholeNumber.h"
#include "tools/csx/OptionTypes.h"
#include "tools/csx/Texts.h"

namespace com_tesk::csx {

namespace {

/// Reads a size: a whole number and `K`, `M` or `G`.
std::optional<std::uint64_t> sizeOf(const std::string& text) {
    constexpr std::uint64_t kMaxNumber = 1'000'000;
    const std::size_t unit = text.empty() ? std::string::npos : std::string("KMG").find(text.back());
    if (unit == std::string::npos) {
        return std::nullopt;
    }
    const auto number = tools::wholeNumber<std::uint64_t>(std::string_view(text).substr(0, text.size() - 1));
    const bool isInRange = number && *number >= 1 && *number <= kMaxNumber;
    return isInRange ? std::optional(*number << (10U * (unit + 1))) : std::nullopt;
}

void takeRotation(const std::string& text, recording::RecordingOptions& options) {
    if (const auto size = sizeOf(text)) {
        options.rotateSize = *size;
        return;
    }
    const auto time = durationOf(text);
    if (!time || *time < std::chrono::seconds(1)) {
        throw CLI::ValidationError("--rotate", "neither a size such as 64M nor a time from 1s: " + text);
    }
    options.rotateTime = time;
}

void takeListen(const std::string& text, recording::Proxy::Address& address) {
    const std::size_t colon = text.rfind(':');
    const auto port =
        colon == std::string::npos ? std::nullopt : tools::wholeNumber<std::uint16_t>(text.substr(colon + 1));
    if (!port) {
        throw CLI::ValidationError("--listen", "no address and port, such as :55581: " + text);
    }
    address = {text.substr(0, colon), *port};
}

void takeFile(const std::string& text, std::string& file) {
    if (const std::string flaw = recording::fileError(text); !flaw.empty()) {
        throw CLI::ValidationError("--write", flaw);
    }
    file = text;
}

}  // namespace

RecordingCommands::RecordingCommands(CLI::App& app, const CommonOptions& commonOptions, Command& target)
    : common(commonOptions), command(target) {
    addRecord(app);
}

void RecordingCommands::addRecord(CLI::App& app) {
    CLI::App* const sub = app.add_subcommand("record", "records values, or a program's connections to its host");
    CLI::Option* const names =
        addNames(*sub, recordOptions.names, "names, or - for names from standard input, one a line");
    sub->add_option_function<std::string>(
           "-w,--write", [this](const std::string& text) { takeFile(text, recordOptions.recorder.file.file); },
           "the file of the recording; it must not exist")
        ->type_name("FILE")
        ->required();
    CLI::Option* const proxy = sub->add_flag("--proxy", recordOptions.isProxy,
                                             "pass the connections of programs on to a host, and record them");
    sub->add_option_function<std::string>(
           "--listen", [this](const std::string& text) { takeListen(text, recordOptions.listenAt); },
           "where the programs connect to; by default :55581")
        ->type_name("[ADDRESS]:PORT")
        ->needs(proxy);
    CLI::Option* const to = sub->add_option_function<std::string>(
                                   "--to",
                                   [this](const std::string& text) {
                                       recordOptions.to.port = CommonOptions().port;
                                       takeHost("--to", text, recordOptions.to.host, recordOptions.to.port);
                                   },
                                   "the host of these programs; by default that of --host")
                                ->type_name("HOST[:PORT]")
                                ->needs(proxy);
    sub->add_flag("--raw", recordOptions.recorder.isRaw, "also record the bytes as they arrive")->needs(proxy);
    addDuration(*sub, "--for", "end after this time",
                [this](std::chrono::microseconds time) { recordOptions.duration = time; });
    sub->add_option_function<std::string>(
           "--rotate", [this](const std::string& text) { takeRotation(text, recordOptions.recorder.file); },
           "begin a new file after this size or time")
        ->type_name("SIZE|TIME");
    sub->add_option("--keep", recordOptions.recorder.file.keep, "files to keep; by default all")
        ->type_name("N")
        ->check(CLI::Range(1, 1'000'000));
    addDuration(*sub, "--sync", "store on the disk at least so often; by default 1s",
                [this](std::chrono::microseconds time) { recordOptions.recorder.file.sync = time; });
    sub->callback([this, names, proxy, to] {
        if ((names->count() > 0) == (proxy->count() > 0)) {
            throw CLI::ValidationError("record", "either names or --proxy");
        }
        if (to->count() == 0) {
            recordOptions.to = {common.host, common.port};
        }
        command = [this](Signals& signals) { return record(common, recordOptions, signals); };
    });
}

}  // namespace com_tesk::csx
