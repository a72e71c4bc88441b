// The load program: the library and bare socket loops that move the same bytes, interleaved in one run.

#include <cmath>
#include <cstring>

#include "bench/Load.h"
#include "client/CSClient.h"

namespace com_tesk::bench {
namespace {

struct Arguments {
    Effort effort;
    std::string jsonFile;
    std::vector<std::string> rows;
    bool hasPeers = false;
};

[[noreturn]] void refuse(const char* program) {
    std::fprintf(stderr, "Syntax: %s [--rounds N] [--quick] [--json FILE] [--row NAME]... [--peers]\n", program);
    std::exit(1);
}

unsigned int roundsOf(const char* text, const char* program) {
    const std::size_t length = std::strlen(text);
    const bool isNumber = length > 0 && length <= 4 && std::strspn(text, "0123456789") == length;
    const auto rounds = isNumber ? static_cast<unsigned int>(std::strtoul(text, nullptr, 10)) : 0U;
    if (rounds == 0) {
        refuse(program);
    }
    return rounds;
}

Arguments parse(int argc, char** argv) {
    Arguments arguments;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        const bool hasNext = i + 1 < argc;
        if (option == "--quick") {
            arguments.effort = {11, 2};
        } else if (option == "--peers") {
            arguments.hasPeers = true;
        } else if (option == "--rounds" && hasNext) {
            arguments.effort.rounds = roundsOf(argv[++i], argv[0]);
        } else if (option == "--json" && hasNext) {
            arguments.jsonFile = argv[++i];
        } else if (option == "--row" && hasNext) {
            arguments.rows.emplace_back(argv[++i]);
        } else {
            refuse(argv[0]);
        }
    }
    return arguments;
}

bool isWanted(const std::string& name, const Arguments& arguments) {
    const auto& rows = arguments.rows;
    return rows.empty() || std::find(rows.begin(), rows.end(), name) != rows.end();
}

std::vector<Work> allWork(const Arguments& arguments) {
    std::vector<Work> all;
    // Memory first: memory that the other rows leave in the heap would falsify it.
    for (const std::vector<Work>& part :
         {memoryWork(), publishWork(), receiveWork(), roundTripWork(), registrationWork(), sessionWork()}) {
        all.insert(all.end(), part.begin(), part.end());
    }
    if (arguments.hasPeers) {
        const std::vector<Work> peers = peerWork();
        all.insert(all.end(), peers.begin(), peers.end());
    }
    for (const std::string& name : arguments.rows) {
        const bool isKnown = std::any_of(all.begin(), all.end(), [&name](const Work& work) {
            return std::find(work.names.begin(), work.names.end(), name) != work.names.end();
        });
        if (!isKnown) {
            std::fprintf(stderr, "There is no row %s. There are:\n", name.c_str());
            for (const Work& work : all) {
                for (const std::string& known : work.names) {
                    std::fprintf(stderr, "  %s\n", known.c_str());
                }
            }
            std::exit(1);
        }
    }
    return all;
}

std::string text(const std::optional<double>& figure, const char* format) {
    if (!figure) {
        return "-";
    }
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, format, *figure);
    return buffer;
}

void printRow(const Row& row) {
    const char* const verdict = !row.threshold ? "" : row.isOver() ? "over" : "ok";
    std::printf("%-25s %-44s %-9s %10s %10s %7s %9s  %-4s %7s %7s\n", row.name.c_str(), row.work.c_str(),
                row.unit.c_str(), text(row.raw, "%.2f").c_str(), text(row.library, "%.2f").c_str(),
                text(row.ratio, "%.3f").c_str(), text(row.threshold, "%.4g").c_str(), verdict,
                text(row.allocations, "%.3g").c_str(), text(row.systemCalls, "%.3g").c_str());
    std::fflush(stdout);
}

void printHeading() {
    std::printf("%-25s %-44s %-9s %10s %10s %7s %9s  %-4s %7s %7s\n", "row", "work", "unit", "raw", "library", "ratio",
                "threshold", "", "allocs", "calls");
}

std::string json(const std::optional<double>& figure) {
    return figure && std::isfinite(*figure) ? text(figure, "%.6g") : "null";
}

void writeJson(const std::vector<Row>& rows, const Arguments& arguments) {
    std::FILE* const file = std::fopen(arguments.jsonFile.c_str(), "w");
    check(file != nullptr, arguments.jsonFile.c_str());
    std::fprintf(file, "{\n  \"version\": \"%s\",\n  \"rounds\": %u,\n  \"rows\": [", CSClient::getClientVersion(),
                 arguments.effort.rounds);
    const char* separator = "\n";
    for (const Row& row : rows) {
        std::fprintf(file,
                     "%s    {\"name\": \"%s\", \"work\": \"%s\", \"unit\": \"%s\", \"raw\": %s, \"library\": %s, "
                     "\"ratio\": %s, \"threshold\": %s, \"over\": %s, \"allocations\": %s, \"system_calls\": %s}",
                     separator, row.name.c_str(), row.work.c_str(), row.unit.c_str(), json(row.raw).c_str(),
                     json(row.library).c_str(), json(row.ratio).c_str(), json(row.threshold).c_str(),
                     row.isOver() ? "true" : "false", json(row.allocations).c_str(), json(row.systemCalls).c_str());
        separator = ",\n";
    }
    std::fprintf(file, "\n  ]\n}\n");
    check(std::fclose(file) == 0, arguments.jsonFile.c_str());
}

int runAll(const Arguments& arguments) {
    const std::vector<Work> all = allWork(arguments);
    std::vector<Row> measured;
    printHeading();
    for (const Work& work : all) {
        if (std::none_of(work.names.begin(), work.names.end(),
                         [&](const std::string& name) { return isWanted(name, arguments); })) {
            continue;
        }
        for (const Row& row : work.measure(arguments.effort)) {
            if (isWanted(row.name, arguments)) {
                printRow(row);
                measured.push_back(row);
            }
        }
    }
    std::printf(
        "Medians of %u rounds. raw: the bare loop, or the time for a tenth of the names. Allocations and system "
        "calls: the library's, per call or update.\n",
        arguments.effort.rounds);
    if (!arguments.jsonFile.empty()) {
        writeJson(measured, arguments);
    }
    return 0;
}

}  // namespace
}  // namespace com_tesk::bench

int main(int argc, char** argv) {
    return com_tesk::bench::runAll(com_tesk::bench::parse(argc, argv));
}
