#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tools/recording/Recording.h"
#include "tools/replay/Selection.h"

namespace com_tesk::replay {

/// What a replay must know before it begins: the result of a first reading of the recording.
struct Plan {
    using Registered = std::pair<recording::Direction, std::string>;

    /// An end of the connection that the recorded host has caused.
    struct Loss {
        Time at{};
        bool isReset = false;
        Time back{};  ///< When the host accepts connections again; `at` when it never refused any.
    };

    std::size_t entriesBefore = 0;            ///< The entries of the recording that precede the replay.
    Time begin{};                             ///< The time of the recording at which the replay begins.
    Time end{};                               ///< And ends.
    Time lastMessage{};                       ///< The time of the last message of either side in between.
    std::map<Registered, bool> registered;    ///< The parameters that the client has registered at the beginning; true
                                              ///< for an integer. With the names of the replay.
    std::map<std::string, HostValue> values;  ///< The values of the host at the beginning.
    std::map<std::string, HostValue> published;  ///< The values that the client has published before.
    std::string versionText;
    std::uint32_t protocolVersion = 1;
    std::optional<std::uint16_t> assignedId;  ///< The simulator id, when the host has assigned another.
    std::vector<Loss> losses;
    bool hasSeveralFiles = false;
};

/// Reads the recording from its beginning, once.
/// @throws std::runtime_error when it has nothing to replay; the text says why.
Plan planOf(recording::Recording& recording, const Options& options, const Selection& selection);

}  // namespace com_tesk::replay
