#pragma once

#include <string>

#include "tools/csmqtt/Snapshot.h"

namespace com_tesk::mqtt {

/// The content type of metricsText(), for the header of a response.
constexpr const char* kMetricsContentType = "text/plain; version=0.0.4; charset=utf-8";

/// Returns the snapshot in the text format that scrapers read, version 0.0.4.
///
/// A value has series only while it is current: when the host is gone, `csmqtt_value` and `csmqtt_value_age_seconds`
/// disappear, and `csmqtt_host_up` is 0. The label `name` is the last level of the value's topic: the name,
/// percent-encoded. Counters begin at 0 when the bridge starts.
std::string metricsText(const Snapshot& snapshot);

/// Returns the number as this format has it: the shortest text that reads as the same number, `NaN`, `+Inf` or `-Inf`.
/// A number that a `float` can have gets the shortest text that reads as the same `float`.
std::string metricsNumber(double number);

/// Returns the text for the value of a label, without its quotes: backslash, quote and line feed are escaped.
std::string escapedLabel(const std::string& text);

}  // namespace com_tesk::mqtt
