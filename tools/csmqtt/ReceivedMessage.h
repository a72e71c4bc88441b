#pragma once

#include <string>
#include <string_view>

namespace com_tesk::mqtt {

/// A message from the broker. The views are valid during the call only.
struct ReceivedMessage {
    std::string_view topic;
    std::string_view payload;
    bool isRetained = false;
    std::string runId;  ///< The user property `run-id`; empty without it, and always with MQTT 3.1.1.
};

}  // namespace com_tesk::mqtt
