#pragma once

#include <string>
#include <vector>

namespace com_tesk {

/// What the publisher's command line asks for.
struct PublishCommandLine {
    enum Request {
        SYNTAX_ERROR,  ///< Nothing else is set.
        SHOW_VERSION,  ///< Nothing else is set.
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

    /// Reads a command line; prints nothing. Text that is no number counts as 0.
    static PublishCommandLine parse(int argumentCount, const char* const* arguments);
};

}  // namespace com_tesk
