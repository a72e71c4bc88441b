#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "message/Export.h"
#include "session/Number.h"
#include "session/Output.h"

namespace com_tesk {

/// How far a value can be relied on. The order is that of the checks: the first that applies is reported.
enum class Quality : std::uint8_t {
    NEVER,        ///< No value has ever arrived; `value` is 0.
    LOST,         ///< There is no connection. The value is the last that arrived.
    UNCONFIRMED,  ///< The host has not confirmed the input on this connection. The value is from an earlier one.
    STALE,        ///< The value is older than the input's maximum age.
    GOOD,         ///< None of these.
};

/// Returns the name of the enumerator in lower case: "good". Constant text.
CSCLIENT_EXPORT const char* toString(Quality quality);

/// A value of an input, with what is known about it.
template <typename T>
struct Reading {
    T value = T();                                   ///< Converted by value when the host sends another type.
    Quality quality = Quality::NEVER;                ///< At the time of the call.
    std::chrono::steady_clock::time_point received;  ///< When it arrived; the clock's epoch for `Quality::NEVER`.
    std::uint64_t number = 0;                        ///< Values that have arrived for this input, this one included.
};

/// A handle of an input: a value that this program receives. `T` is as for `Output`; a `bool` is true for every number
/// but 0. A number that `std::int32_t` cannot hold becomes the nearest it can; what is no number becomes 0. `T` may also
/// be `Number`, which keeps the host's type; the input is registered as a float.
///
/// Make one with `Session::input`. It is as small as a pointer. Copies refer to the same input. Any thread may use it.
/// It is valid as long as the session exists.
template <typename T>
class Input {
  public:
    /// A function that receives a value of this input.
    using Callback = std::function<void(const Reading<T>&)>;

    /// A handle of no input. Only assigning to it is permitted.
    Input() = default;

    /// Returns the newest value. Any thread. Takes no lock, allocates nothing and never blocks.
    Reading<T> read() const;

    /// Sets the function that `Session::dispatch` calls when the value or its quality has changed since its last
    /// call, and for the first value. It replaces any earlier function; an empty one removes it. For a
    /// value that has already arrived it is called, too.
    ///
    /// With `Delivery::EVERY` it is called for each value that arrives, also for equal ones, and not for changes of
    /// the quality. The values of all such inputs come in the order in which they have arrived.
    /// Any thread. Allocates. An earlier function that is running on another thread may still be running.
    void onChange(Callback callback) const;

    /// Sets the age from which a value is `Quality::STALE`; 0, the default, is never. Any thread; never blocks.
    void setMaxAge(std::chrono::milliseconds maxAge) const;

    /// Removes the input: the session unsubscribes from it, and no more values arrive. Declare it again to use it again. Any thread;
    /// never blocks.
    void withdraw() const;

    /// True when the host has confirmed the input on the current connection. Any thread; never blocks.
    bool isConfirmed() const;

    /// Returns the name. Any thread.
    const std::string& name() const;

  private:
    friend class Session;
    friend class ParameterHandle;
    explicit Input(session::InputSlot& declared) : slot(&declared) {}

    session::InputSlot* slot = nullptr;
};

extern template class CSCLIENT_EXPORT Input<float>;
extern template class CSCLIENT_EXPORT Input<std::int32_t>;
extern template class CSCLIENT_EXPORT Input<bool>;
extern template class CSCLIENT_EXPORT Input<Number>;

/// A handle of any output or input, for operations that take several.
class ParameterHandle {
  public:
    /// Refers to the same parameter as the handle.
    /// @{
    template <typename T>
    ParameterHandle(const Output<T>& handle) : output(handle.slot) {}  // NOLINT(google-explicit-constructor)
    template <typename T>
    ParameterHandle(const Input<T>& handle) : input(handle.slot) {}  // NOLINT(google-explicit-constructor)

    /// @}

  private:
    friend class Session;
    session::OutputSlot* output = nullptr;
    session::InputSlot* input = nullptr;
};

}  // namespace com_tesk
