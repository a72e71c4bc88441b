#pragma once

namespace com_tesk {

/// Sleeps `seconds` whole seconds on the calling thread. A signal does not shorten the sleep.
/// A cancellation point.
void sleepWholeSeconds(unsigned int seconds);

}  // namespace com_tesk
