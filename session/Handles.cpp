// The operations of the handles of outputs and inputs.

#include <algorithm>
#include <limits>
#include <utility>

#include "session/Input.h"
#include "session/InputSlot.h"
#include "session/Output.h"
#include "session/OutputSlot.h"
#include "session/SlotOwner.h"

namespace com_tesk {

using session::InputSlot;
using session::Sample;
using session::SampleReading;

namespace {

template <typename T>
T valueOf(const Sample& sample) {
    return session::fromBits<T>(sample.bits);
}
template <>
Number valueOf<Number>(const Sample& sample) {
    if (sample.isInteger) {
        const auto integer = session::fromBits<std::int32_t>(sample.bits);
        return {true, static_cast<float>(integer), integer};
    }
    const auto real = session::fromBits<float>(sample.bits);
    return {false, real, session::toInteger(real)};
}

template <typename T>
Reading<T> typed(const SampleReading& reading) {
    return {valueOf<T>(reading.sample), reading.quality, InputSlot::timeOf(reading.sample), reading.sample.number};
}

}  // namespace

template <typename T>
bool Output<T>::set(T value) const {
    return slot->set(session::toBits(value));
}

template <typename T>
void Output<T>::withdraw() const {
    slot->owner.withdraw(*slot);
}

template <typename T>
bool Output<T>::isConfirmed() const {
    return slot->isConfirmed();
}

template <typename T>
const std::string& Output<T>::name() const {
    return slot->name();
}

template <typename T>
Reading<T> Input<T>::read() const {
    return typed<T>(slot->read());
}

template <typename T>
void Input<T>::onChange(Callback callback) const {
    InputSlot::Callback untyped;
    if (callback) {
        untyped = [typedCallback = std::move(callback)](const SampleReading& reading) {
            typedCallback(typed<T>(reading));
        };
    }
    slot->owner.setCallback(*slot, std::move(untyped));
}

template <typename T>
void Input<T>::setMaxAge(std::chrono::milliseconds maxAge) const {
    constexpr std::chrono::milliseconds::rep kMaxAge = std::numeric_limits<std::uint32_t>::max();
    slot->maxAgeMilliseconds =
        static_cast<std::uint32_t>(std::clamp<std::chrono::milliseconds::rep>(maxAge.count(), 0, kMaxAge));
    slot->owner.maxAgeChanged(*slot);
}

template <typename T>
void Input<T>::withdraw() const {
    slot->owner.withdraw(*slot);
}

template <typename T>
bool Input<T>::isConfirmed() const {
    return slot->isConfirmed();
}

template <typename T>
const std::string& Input<T>::name() const {
    return slot->name();
}

template class Output<float>;
template class Output<std::int32_t>;
template class Output<bool>;
template class Input<float>;
template class Input<std::int32_t>;
template class Input<bool>;
template class Input<Number>;

}  // namespace com_tesk
