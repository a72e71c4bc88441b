#include "tools/csx/AnalysisCommands.h"

#include <CLI/CLI.hpp>

#include "tools/csx/OptionTypes.h"

namespace com_tesk::csx {

namespace {

constexpr char kFooter[] =
    "Exit codes:\n"
    "  0          done; lines that cannot be read were left out and reported\n"
    "  1          the result cannot be made or written\n"
    "  2          the recording cannot be read\n"
    "  100 to 127 the command line is invalid\n";

CLI::App* addCommand(CLI::App& app, const std::string& name, const std::string& description, AnalysisOptions& options) {
    CLI::App* const sub = app.add_subcommand(name, description);
    sub->footer(kFooter);
    sub->add_option("LOG", options.log, "the recording")->type_name("")->required();
    return sub;
}

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() > end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

}  // namespace

void addAnalysis(CLI::App& app, const CommonOptions& common, AnalysisOptions& options,
                 std::function<ExitCode(Signals&)>& command) {
    using Target = AnalysisOptions::Target;
    CLI::App* const convertApp = addCommand(app, "convert", "writes a recording as a file of another kind", options);
    addChoice<Target>(*convertApp, "--to", options.target,
                      {{"csv", Target::CSV}, {"scenario", Target::SCENARIO}, {"pcap", Target::PCAP}},
                      "the kind of file");
    convertApp->get_option("--to")->required();
    convertApp->add_option("-o,--file", options.file, "the file; standard output unless given")->type_name("FILE");
    convertApp->callback([&options, &command] {
        if (options.target == Target::SCENARIO && options.file.empty()) {
            throw CLI::ValidationError("convert", "a scenario needs -o, because its values are files next to it");
        }
        command = [&options](Signals& signals) { return convert(options, signals); };
    });

    CLI::App* const plotApp = addCommand(app, "plot", "draws values of a recording over time, with gnuplot", options);
    plotApp->add_option("NAME", options.names, "the names")->type_name("")->required();
    plotApp->add_option("-o,--file", options.file, "the picture, which ends with .svg or .png")
        ->type_name("FILE")
        ->required();
    plotApp->callback([&options, &command] {
        if (!endsWith(options.file, ".svg") && !endsWith(options.file, ".png")) {
            throw CLI::ValidationError("--file", "neither .svg nor .png: " + options.file);
        }
        command = [&options](Signals& signals) { return plot(options, signals); };
    });

    CLI::App* const statsApp = addCommand(app, "stats", "prints rates, gaps and extremes of a recording", options);
    statsApp->footer(kFooter + std::string("Before or after the command: --output, as 'csx --help' describes."));
    statsApp->callback([&common, &options, &command] {
        command = [&common, &options](Signals& signals) { return stats(common, options, signals); };
    });
}

}  // namespace com_tesk::csx
