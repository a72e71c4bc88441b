#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace com_tesk::test {

/// The id of what the host has not confirmed.
constexpr std::uint32_t kWaiting = 0xFFFFF;

/// One thing that happens in the life of an engine, as data: what the application calls, what the host sends, what
/// becomes of the connection. It has a text form of one line, so that a life can be written down and replayed.
struct Step {
    enum Kind {
        REGISTER_INPUTS,
        REGISTER_OUTPUTS,
        UNREGISTER_INPUTS,
        UNREGISTER_OUTPUTS,
        UNREGISTER_ALL_INPUTS,
        UNREGISTER_ALL_OUTPUTS,
        PUBLISH,
        CONFIRM_INPUTS,
        CONFIRM_OUTPUTS,
        UPDATE,
        VERSION,
        BODY,
        LOSE,
        OPEN,
        CONNECT,
        REFUSE,
        FORCE_CLOSE,
        END,
        FAIL_WRITE,
        SEND,
        SET_SIMULATOR_ID,
        ADD,
        REMOVE,
        DURING,
    };

    /// The ways in which `LOSE` loses a connection, its only number.
    enum Loss { HEADER_CLOSED, HEADER_ERROR, HEADER_SHORT, HEADER_FOREIGN, NO_BODY, BODY_CLOSED, BODY_ERROR, LOSSES };

    /// The callbacks in which the steps inside a `DURING` can happen, its first number.
    enum Event { STATE_CHANGED, INPUTS_CONFIRMED, INPUTS_UPDATED, OUTPUTS_CONFIRMED, EVENTS };

    /// In a response or an update: announce as many records as there are.
    static constexpr std::uint32_t kTrueCount = 0xFFFFFFFF;

    /// Callback interfaces are numbered from 0; this number stands for a null pointer.
    static constexpr std::uint32_t kInterfaces = 3;

    struct Record {
        std::string name;
        std::array<std::uint32_t, 3> values{};
    };

    Kind kind = END;
    std::vector<std::uint32_t> numbers;
    std::vector<Record> records;
    /// The steps inside a `DURING`.
    std::vector<Step> inside;
};

/// A whole life: how the engine is made, and its steps.
struct Life {
    std::uint32_t simulatorId = 1;
    std::uint32_t options = 0;
    std::vector<Step> steps;
};

/// The text form of a life: first "engine <simulator id> <options>", then a line for each step. In names, what is not
/// a letter, a digit or one of "_.-" is a percent sign and two hex digits; an empty name is two quotation marks.
///
///     registerInputs     name,type,mode ...
///     registerOutputs    name,type ...
///     unregisterInputs   name ...             (also unregisterOutputs, unregisterAllInputs, unregisterAllOutputs)
///     publish            mode  name,type,bits ...
///     confirmInputs      announced dropped  name,id,flag,bits ...
///     confirmOutputs     announced dropped  name,id ...
///     update             announced dropped  id,flag,bits ...
///     version            id protocol status dropped  text
///     body               hex                  (a frame's body as it is)
///     lose               loss                 (see `Step::Loss`)
///     open, connect, refuse, forceClose, end
///     failWrite          result errno
///     send               type  hex
///     setSimulatorId     id
///     add, remove        interface
///     during             event interface  step ; step ...
///
/// `announced` is the record count that the message claims (4294967295: the true one), `dropped` the number of bytes
/// missing at its end.
std::string textOf(const Life& life);
std::string textOf(const Step& step);

/// The reverse. Empty lines and what follows a '#' are skipped.
/// @throw std::invalid_argument
Life lifeFrom(const std::string& text);

/// A name as it stands in the text form, for other texts too.
std::string escaped(const std::string& name);

/// The body of the host message that a step stands for.
std::string hostMessage(const Step& step);

}  // namespace com_tesk::test
