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
        WAIT,
        DURING,
        MEANWHILE,
    };

    /// The ways in which `LOSE` loses a connection, its only number.
    enum Loss { HEADER_CLOSED, HEADER_ERROR, HEADER_SHORT, HEADER_FOREIGN, NO_BODY, BODY_CLOSED, BODY_ERROR, LOSSES };

    /// When the steps inside a `DURING` or a `MEANWHILE` can happen, its first number: in a callback, and with `MEANWHILE`
    /// also in a write, before its result is decided, and in a sleep.
    enum Event {
        STATE_CHANGED,
        INPUTS_CONFIRMED,
        INPUTS_UPDATED,
        OUTPUTS_CONFIRMED,
        CALLBACKS,
        WRITING = CALLBACKS,
        SLEEPING,
        EVENTS
    };

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
    /// The steps inside a `DURING`, which the thread of the event takes, or a `MEANWHILE`, which another thread takes while
    /// the thread of the event waits for it.
    std::vector<Step> inside;
};

/// Whether a step waits for a thread that changes the tables, or writes what is registered. While the thread of the event
/// holds that lock, another thread leaves the step out.
bool needsTables(const Step& step);

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
///     wait               state seconds
///     during, meanwhile  event interface  step ; step ...   (the interface of a write or a sleep is 0)
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
