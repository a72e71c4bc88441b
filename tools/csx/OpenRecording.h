#pragma once

#include <memory>
#include <string>

#include "tools/csx/Signals.h"
#include "tools/recording/Recording.h"

namespace com_tesk::csx {

/// Opens a recording. Returns nothing when it cannot be read; a line on standard error has then said why.
std::unique_ptr<recording::Recording> openRecording(const std::string& log);

/// Says which lines have been left out, and whether the beginning is missing.
void reportFlaws(const recording::Recording& recording);

/// @throw Interrupted  SIGINT or SIGTERM has arrived.
void throwWhenInterrupted(Signals& signals);

}  // namespace com_tesk::csx
