#pragma once

#include <deque>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "tools/replay/Player.h"
#include "tools/replay/Selection.h"

namespace com_tesk::replay {

/// Writes a recording again, with the publications of a program in place of the recorded ones. The new file replaces the
/// old one when it is complete.
class Blessing {
  public:
    /// @param recordedTimeOf  turns a time of the replay into one of the recording.
    /// @throws std::system_error  the new file cannot be written.
    Blessing(std::string recordingFile, const Selection& replaySelection, Time lastTime,
             std::function<Time(Time)> recordedTimeOf);
    Blessing(const Blessing&) = delete;
    Blessing& operator=(const Blessing&) = delete;
    /// Removes the new file when it is not complete.
    ~Blessing();

    /// The program has published a value. Any thread, in the order of time.
    void publish(const std::string& name, Time play, HostValue value);

    /// An entry of the replay, in the order of the recording. The others leave out what the selection has.
    void replace(const recording::Entry& entry);
    /// An entry before or after the replay.
    void copy(const recording::Entry& entry);
    /// The replay has ended: what the program has published until now is written.
    void endReplay();

    /// Replaces the recording.
    /// @throws std::system_error  the new file could not be written. The recording is as it was.
    void finish();

  private:
    struct Published {
        std::string name;
        Time play{};
        HostValue value = HostValue::real(0);
    };

    void writePublishedUntil(Time recorded);
    void write(const recording::Entry& entry);
    void replaceValues(recording::State& state) const;

    const std::string file;
    const std::string newFile;
    const Selection& selection;
    const Time last;
    const std::function<Time(Time)> recordedTime;
    std::ofstream stream;
    Time written{};
    std::uint32_t connection = 1;
    std::optional<recording::Entry> end;
    std::map<std::string, HostValue> values;  ///< The last ones of the program.

    std::mutex mutex;
    std::deque<Published> queue;  // guarded by mutex
};

}  // namespace com_tesk::replay
