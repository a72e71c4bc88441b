#include "tools/csx/OpenRecording.h"

#include <exception>

#include "tools/csx/Client.h"
#include "tools/csx/DataOutput.h"

namespace com_tesk::csx {

std::unique_ptr<recording::Recording> openRecording(const std::string& log) {
    try {
        return std::make_unique<recording::Recording>(log);
    } catch (const std::exception& error) {  // The system's refusal, or what is no recording.
        say(error.what());
        return nullptr;
    }
}

void reportFlaws(const recording::Recording& recording) {
    if (recording.isIncomplete()) {
        say("the first files of the recording are missing");
    }
    for (const std::string& flaw : recording.flaws()) {
        say("left out: " + flaw);
    }
}

void throwWhenInterrupted(Signals& signals) {
    if (const int signal = signals.taken(); signal != 0) {
        throw Interrupted{signal};
    }
}

}  // namespace com_tesk::csx
