#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <variant>
#include <vector>

#include "tools/recording/Decoder.h"
#include "tools/recording/RecordingFile.h"

namespace com_tesk::recording {

/// Writes a recording on a thread of its own, so that neither the reading of frames nor the disk delays the caller.
/// One thread calls its operations. None of them blocks but the constructor and `stop`.
class Recorder {
  public:
    struct Options {
        RecordingOptions file;
        bool isRaw = false;                                     ///< Also records the bytes as they arrived.
        std::size_t maxQueued = std::size_t{64} * 1024 * 1024;  ///< Bytes that may wait for the disk.
    };

    /// Creates the file. The header's `run`, `part` and `started` are filled in.
    /// @param say  see RecordingFile. Runs on the recorder's thread too.
    /// @throws std::system_error  the file is there already, or cannot be created.
    Recorder(const Options& recorderOptions, Header header, const RecordingFile::Say& say);
    /// Ends as `stop` does.
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    /// Records the content with the time of the call.
    void add(std::uint32_t connection, Content content);

    /// Records the frames in these bytes, which have arrived just now. When the disk is so slow that more than
    /// `maxQueued` bytes wait, the rest of that connection is left out, and a line says so.
    void addBytes(std::uint32_t connection, Side side, std::string_view bytes);

    /// Writes everything and the last line. Blocks as the disk does.
    void stop();

  private:
    struct Piece {
        Side side;
        std::string bytes;
    };
    struct Item {
        Time time;
        std::uint32_t connection;
        std::variant<Content, Piece> what;
    };

    Time now() const;
    void push(Item item, std::size_t size);
    void run();
    void write(Item& item);

    const std::chrono::steady_clock::time_point began = std::chrono::steady_clock::now();
    const bool isRaw;
    const std::size_t maxQueued;
    std::map<std::uint32_t, bool> isLeftOut;  // by the caller's thread only: connections that were too much

    // by the recorder's thread only
    RecordingFile file;
    std::map<std::uint32_t, Decoder> decoders;

    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Item> queue;      // guarded by mutex
    std::size_t queuedBytes = 0;  // guarded by mutex
    bool isStopping = false;      // guarded by mutex
    std::thread thread;
};

}  // namespace com_tesk::recording
