#pragma once

namespace com_tesk {

/// Sleeps `seconds` whole seconds on the calling thread. A signal that interrupts the sleep does not shorten it.
/// A cancellation point.
void sleepWholeSeconds(unsigned int seconds);

}  // namespace com_tesk
