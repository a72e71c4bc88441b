// Lines of recordings. The input is the text of a file.

#include <algorithm>
#include <string>
#include <string_view>

#include "fuzz/Fuzzing.h"
#include "tools/recording/EntryText.h"
#include "tools/recording/KnownState.h"

using namespace com_tesk;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(data, data + size);
    recording::KnownState known;
    for (std::string_view rest = text; !rest.empty();) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        std::string flaw;
        const auto entry = recording::entryOf(line, flaw);
        CSCLIENT_FUZZ_CHECK(entry.has_value() == flaw.empty());
        if (!entry) {
            continue;
        }
        // An accepted entry is written as one line, which reads back as the same entry.
        std::string written;
        recording::appendLine(written, *entry);
        CSCLIENT_FUZZ_CHECK(written.find('\n') == written.size() - 1);
        written.pop_back();
        const auto again = recording::entryOf(written, flaw);
        CSCLIENT_FUZZ_CHECK(again.has_value());
        std::string rewritten;
        recording::appendLine(rewritten, *again);
        rewritten.pop_back();
        CSCLIENT_FUZZ_CHECK(rewritten == written);
        known.note(*entry);
    }
    std::string state;
    recording::appendLine(state, {recording::Time(0), 0, known.state()});
    state.pop_back();
    std::string flaw;
    CSCLIENT_FUZZ_CHECK(recording::entryOf(state, flaw).has_value());
    return 0;
}
