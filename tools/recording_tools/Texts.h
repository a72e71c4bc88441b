#pragma once

#include <string>

#include "host/Value.h"
#include "tools/Utc.h"
#include "tools/recording/Entry.h"

/// Texts and numbers of recorded values and times.
namespace com_tesk::recording {

/// Returns the shortest text that reads back as the same number: 12.5, 3, nan, -inf.
std::string textOf(const HostValue& value);

/// Returns the number. A double is exact for both types.
double numberOf(const HostValue& value);

/// Returns the name, or `#77` for an id whose name the recorder did not know.
std::string nameOf(const NamedValue& value);

/// Returns the time in seconds with six decimals.
std::string secondsOf(Time time);

/// Returns the time in seconds.
double numberOf(Time time);

/// Returns the time of day at which the recording began; the beginning of 1970 when its header does not tell.
tools::UtcTime beginOf(const Header& header);

}  // namespace com_tesk::recording
