#pragma once

#include <string>
#include <vector>

namespace com_tesk {

/// The request in the publisher's command line.
struct PublishCommandLine {
    enum Request {
        SYNTAX_ERROR,  ///< No other member is set.
        SHOW_VERSION,  ///< No other member is set.
        PUBLISH_VALUES
    };

    struct NamedValue {
        std::string name;
        float value;
    };

    Request request = SYNTAX_ERROR;
    unsigned int simulatorId = 0;
    std::string address;
    std::vector<NamedValue> values;

    /// Parses a command line; prints nothing. Text that is not a number counts as 0.
    static PublishCommandLine parse(int argumentCount, const char* const* arguments);
};

}  // namespace com_tesk
