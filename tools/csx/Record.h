#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "tools/csx/Client.h"
#include "tools/recording/Proxy.h"
#include "tools/recording/Recorder.h"

namespace com_tesk::csx {

struct RecordOptions {
    recording::Recorder::Options recorder;
    std::vector<std::string> names;  ///< To subscribe to; none for a proxy.
    bool isProxy = false;
    recording::Proxy::Address listenAt{"", 55581};
    recording::Proxy::Address to;
    std::optional<std::chrono::microseconds> duration;  ///< Nothing is without end.
};

/// Records values or connections until a signal arrives or the time has passed. Both end the recording in order.
/// @return `DONE`; `NO_HOST` when there is no host to subscribe at; `UNCONFIRMED` when the host did not confirm some names;
///         `NOT_REACHED` when the proxy cannot listen.
ExitCode record(const CommonOptions& common, const RecordOptions& options, Signals& signals);

}  // namespace com_tesk::csx
