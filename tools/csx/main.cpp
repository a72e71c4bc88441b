// csx: reads, writes and watches the values of a simulation host from a shell.

#include <CLI/CLI.hpp>
#include <exception>
#include <system_error>

#include "tools/csx/CommandLine.h"
#include "tools/csx/DataOutput.h"
#include "tools/csx/Signals.h"

namespace {

using namespace com_tesk::csx;

int run(const CommandLine& line) {
    Signals signals;
    try {
        return line.run(signals);
    } catch (const Interrupted& interrupted) {
        dieOf(interrupted.signal);
    } catch (const OutputClosed&) {
        dieOf(SIGPIPE);
    } catch (const std::system_error& error) {
        say(error.what());
    }
    return NOT_REACHED;
}

}  // namespace

// NOLINTNEXTLINE(bugprone-exception-escape): CLI11 throws for contradictory definitions, not for invalid arguments.
int main(int argc, char** argv) {
    CLI::App app;
    CommandLine line(app);
    CLI11_PARSE(app, argc, argv);
    return run(line);
}
