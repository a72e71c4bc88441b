#pragma once

#include <string>

#include "host/scenario/Message.h"

namespace com_tesk::scenario {

/// When a fault acts. Everything that is set must be true.
struct Trigger {
    enum class Moment {
        SEND,     ///< The host sends a message.
        RECEIVE,  ///< The host has received a message, and has not served it yet.
        ACCEPT,   ///< The host has accepted a connection.
    };

    Moment moment = Moment::SEND;
    Message message = Message::ANY;
    /// The message has a record of this name. Actions that change records change only these.
    std::string name;
    /// The connection, counted from 1 since the scenario began; 0 for every one.
    unsigned connection = 0;
    /// Of the occasions that match all of the above, only this one, or each one after so many; 0 for each.
    /// @{
    unsigned nth = 0;
    unsigned every = 0;
    /// @}
    /// The probability with which an occasion counts that matches all of the above.
    double chance = 1;
};

}  // namespace com_tesk::scenario
