// csx get: prints each value once.

#include "tools/csx/Commands.h"
#include "tools/csx/Names.h"
#include "tools/csx/Texts.h"

namespace com_tesk::csx {

ExitCode get(const CommonOptions& common, const std::vector<std::string>& names, Signals& signals) {
    Client client(common, Patience::FIRST_FAILURE, signals);
    const std::vector<NamedInput> inputs = declareInputs(client.session(), names, Delivery::NEWEST);
    const ExitCode code = client.connect();
    DataOutput output(signals);
    Printer printer(common.format, TimeStyle::ABSOLUTE, output);
    for (const NamedInput& named : inputs) {
        const Reading<Number> reading = named.input.read();
        if (reading.quality != Quality::NEVER) {
            printer.value(reading.received, named.name, reading.value, false);
        }
    }
    if (code == UNCONFIRMED) {
        reportUnconfirmed(inputs, "within " + textOf(common.timeout));
    }
    return code;
}

}  // namespace com_tesk::csx
