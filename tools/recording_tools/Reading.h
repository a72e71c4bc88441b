#pragma once

#include <functional>
#include <optional>
#include <utility>

#include "tools/recording/Recording.h"

namespace com_tesk::recording {

/// The entries of a recording for a command that takes long. It keeps one entry in memory.
class Reading {
  public:
    /// Is called every few entries. An exception of it ends the command.
    using Pause = std::function<void()>;

    /// @param source  outlives this object.
    Reading(Recording& source, Pause atPauses) : recording(source), pause(std::move(atPauses)) {}

    std::optional<Entry> next() {
        constexpr unsigned kEntriesBetweenPauses = 64;
        if (++count % kEntriesBetweenPauses == 0) {
            pause();
        }
        return recording.next();
    }

    void rewind() { recording.rewind(); }
    const Header& header() const { return recording.header(); }

  private:
    Recording& recording;
    const Pause pause;
    unsigned count = 0;
};

}  // namespace com_tesk::recording
