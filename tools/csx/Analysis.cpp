#include "tools/csx/Analysis.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "tools/csx/DataOutput.h"
#include "tools/csx/OpenRecording.h"
#include "tools/recording_tools/CsvExport.h"
#include "tools/recording_tools/Gnuplot.h"
#include "tools/recording_tools/OutputFile.h"
#include "tools/recording_tools/PcapExport.h"
#include "tools/recording_tools/ScenarioExport.h"

namespace com_tesk::csx {

namespace {

/// Writes to standard output, whose errors are those of all commands, or to a file.
ExitCode writeResult(const std::string& path, Signals& signals,
                     const std::function<void(const recording::Write&)>& produce) {
    if (path.empty()) {
        DataOutput output(signals);
        produce([&output](std::string_view bytes) { output.bytes(bytes); });
        return DONE;
    }
    std::optional<Signals::Uncaught> uncaught;
    if (recording::isPipeOrDevice(path)) {
        uncaught.emplace(signals);  // A pipe may block for long, and nothing is left over to remove.
    }
    recording::OutputFile file(path);
    produce([&file](std::string_view bytes) { file.write(bytes); });
    file.complete();
    return DONE;
}

/// Runs what makes a result of a recording. A result never replaces the recording.
ExitCode analyse(const AnalysisOptions& options, Signals& signals,
                 const std::function<ExitCode(recording::Reading&)>& produce) {
    const auto source = openRecording(options.log);
    if (!source) {
        return NO_HOST;
    }
    std::error_code ignored;
    if (std::filesystem::equivalent(options.log, options.file, ignored)) {
        say(options.file + " is the recording itself");
        return NOT_REACHED;
    }
    recording::Reading reading(*source, [&signals] { throwWhenInterrupted(signals); });
    try {
        const ExitCode result = produce(reading);
        reportFlaws(*source);
        return result;
    } catch (const std::system_error&) {
        throw;
    } catch (const std::runtime_error& error) {
        say(error.what());
        return NOT_REACHED;
    }
}

}  // namespace

ExitCode convert(const AnalysisOptions& options, Signals& signals) {
    return analyse(options, signals, [&](recording::Reading& reading) {
        if (options.target == AnalysisOptions::Target::SCENARIO) {
            recording::writeScenario(reading, options.file);
            return DONE;
        }
        return writeResult(options.file, signals, [&](const recording::Write& write) {
            if (options.target == AnalysisOptions::Target::PCAP) {
                recording::writePcap(reading, write);
            } else {
                recording::writeCsv(reading, write);
            }
        });
    });
}

ExitCode plot(const AnalysisOptions& options, Signals& signals) {
    return analyse(options, signals, [&](recording::Reading& reading) {
        const bool isPng = options.file.substr(options.file.size() - 4) == ".png";
        const auto picture = isPng ? recording::Picture::PNG : recording::Picture::SVG;
        const recording::Plot drawing = recording::plotOf(reading, options.names, picture);
        recording::OutputFile file(options.file);
        recording::draw(drawing, file, [&signals] { throwWhenInterrupted(signals); });
        file.complete();
        return DONE;
    });
}

}  // namespace com_tesk::csx
