#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace com_tesk::test {

/// The id of a parameter that the host has not confirmed.
constexpr std::uint32_t kUnassigned = 0xFFFFF;

/// One call of the application, one message of the host or one event of the connection, as data.
struct Step {
    enum Kind {
        REGISTER_INPUTS,
        REGISTER_OUTPUTS,
        UNREGISTER_INPUTS,
        UNREGISTER_OUTPUTS,
        UNREGISTER_ALL_INPUTS,
        UNREGISTER_ALL_OUTPUTS,
        PUBLISH,
        REREGISTER,
        QUERY,
        CONFIRM_INPUTS,
        CONFIRM_OUTPUTS,
        UPDATE,
        VERSION,
        BODY,
        DISPATCH,
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

    /// How a connection is lost: the only number of `LOSE`.
    enum Loss { HEADER_CLOSED, HEADER_ERROR, HEADER_SHORT, HEADER_FOREIGN, NO_BODY, BODY_CLOSED, BODY_ERROR, LOSSES };

    /// When the steps inside a `DURING` or a `MEANWHILE` happen, its first number: in a callback, and with `MEANWHILE`
    /// also in a write, before its result is decided, and in a sleep.
    enum Event {
        STATE_CHANGED,
        INPUTS_CONFIRMED,
        INPUTS_UPDATED,
        OUTPUTS_CONFIRMED,
        CALLBACKS,
        WRITING = CALLBACKS,
        SLEEPING,
        EVENTS,
        ANY_CALLBACK = EVENTS,  ///< The next callback that no other step waits for; the interface is 0.
    };

    /// In a message: announce as many records as there are.
    static constexpr std::uint32_t kTrueCount = 0xFFFFFFFF;

    /// Callback interfaces are numbered from 0; this number stands for a null pointer.
    static constexpr std::uint32_t kInterfaces = 3;

    struct Record {
        std::string name;
        std::array<std::uint32_t, 3> values{};
    };

    bool isNested() const { return kind == DURING || kind == MEANWHILE; }

    Kind kind = END;
    std::array<std::uint32_t, 4> numbers{};
    std::vector<Record> records;
    /// The steps inside a `DURING` run on the thread of the event. Those inside a `MEANWHILE` run on another thread, and
    /// the thread of the event waits for it.
    std::vector<Step> inside;
};

/// How an engine is made, and what then happens.
struct StepSequence {
    std::uint32_t simulatorId = 1;
    std::uint32_t options = 0;
    std::vector<Step> steps;
};

/// The text form of a sequence: first "engine <simulator id> <options>", then a line for each step, with all its numbers.
/// In names and bytes, most characters but letters, digits and "_.-" are a percent sign and two hex digits; an empty name
/// is two quotation marks.
///
///     registerInputs     name,type,mode ...
///     registerOutputs    name,type ...
///     unregisterInputs   name ...             (also unregisterOutputs, unregisterAllInputs, unregisterAllOutputs)
///     publish            mode  name,type,bits ...
///     reregister                              (what follows a new simulator id)
///     query              name ...
///     confirmInputs      announced dropped  name,id,flag,bits ...
///     confirmOutputs     announced dropped  name,id ...
///     update             announced dropped  '',id,flag,bits ...
///     version            id protocol status dropped  text
///     body, dispatch     bytes                (a frame's body; `dispatch` in any state, past the transport)
///     lose               loss                 (see `Step::Loss`)
///     open, connect, refuse, forceClose, end
///     failWrite          result errno
///     send               type  bytes
///     setSimulatorId     id
///     add, remove        interface
///     wait               state seconds
///     during, meanwhile  event interface  step ; step ...   (the interface of a write or a sleep is 0)
///
/// `announced` is the record count that the message claims (4294967295: the true one), `dropped` the number of bytes
/// missing at its end.
std::string textOf(const StepSequence& sequence);
std::string textOf(const Step& step);

/// The reverse. Empty lines and what follows a '#' are skipped.
/// @throw std::logic_error  when a step is unknown, or a number is missing, surplus or too large.
StepSequence sequenceFrom(const std::string& text);

/// A name as it stands in the text form.
std::string escaped(const std::string& name);

/// Appends a name and its values: "name,1,2".
void appendItem(std::string& text, const std::string& name, std::initializer_list<std::uint32_t> values);

/// The body of the host message that a step stands for.
std::string hostMessage(const Step& step);

std::vector<std::string> namesOf(const std::vector<Step::Record>& records);

/// A big-endian word of the wire.
std::string wireWord(std::uint32_t value);

/// A field of the wire: `text`, cut or padded with zeros.
std::string wireField(std::string text, std::size_t width);

}  // namespace com_tesk::test
