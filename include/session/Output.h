#pragma once

#include <cstdint>
#include <string>
#include <type_traits>

#include "message/Export.h"

namespace com_tesk {

class Session;

namespace session {
class OutputSlot;
class InputSlot;
}  // namespace session

/// Which values reach the other side.
enum class Delivery : std::uint8_t {
    NEWEST,  ///< The newest value. A value that is replaced before it was delivered is not delivered.
    EVERY,   ///< Every value, in order, from a queue of bounded size.
};

/// A handle of an output: a value that this program publishes. `T` is `float`, `std::int32_t` or `bool`. On the wire
/// a `bool` is the integer 0 or 1.
///
/// Make one with `Session::output`. It is as small as a pointer. Copies refer to the same output. Any thread may use
/// it. It is valid as long as the session exists.
template <typename T>
class Output {
  public:
    /// A handle of no output. Only assigning to it is permitted.
    Output() = default;

    /// Stages a value. It leaves with the next `Session::flush`, or by itself after `Session::Options::gather`.
    ///
    /// Any thread. Never blocks and allocates nothing. The only system call is the one that wakes the session's
    /// thread when that has nothing to do.
    ///
    /// Until the host has confirmed the output on the current connection, only the newest value is kept. It leaves
    /// when the host has confirmed the output.
    /// @return true when the value was taken. False when the output has been withdrawn, or, with `Delivery::EVERY`,
    ///         when the queue is full. The value is then dropped.
    bool set(T value) const;

    /// An integer output takes no number with a fraction.
    template <typename Other, typename = std::enable_if_t<std::is_floating_point_v<Other> && !std::is_same_v<T, float>>>
    bool set(Other value) const = delete;

    /// Removes the output: the session unregisters it, and later values are refused. Declare it again to use it again. Any
    /// thread; never blocks.
    void withdraw() const;

    /// True when the host has confirmed the output on the current connection. Any thread; never blocks.
    bool isConfirmed() const;

    /// Returns the name. Any thread.
    const std::string& name() const;

  private:
    friend class Session;
    friend class ParameterHandle;
    explicit Output(session::OutputSlot& declared) : slot(&declared) {}

    session::OutputSlot* slot = nullptr;
};

extern template class CSCLIENT_EXPORT Output<float>;
extern template class CSCLIENT_EXPORT Output<std::int32_t>;
extern template class CSCLIENT_EXPORT Output<bool>;

}  // namespace com_tesk
