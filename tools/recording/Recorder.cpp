#include "tools/recording/Recorder.h"

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <random>
#include <utility>

#include "tools/Json.h"
#include "tools/Utc.h"

namespace com_tesk::recording {

namespace {

constexpr std::size_t kItemCost = 100;  // roughly what an item needs besides its bytes
/// Lines reach the file after this time. Waking up for every frame would cost more than writing it.
constexpr std::chrono::milliseconds kGather{10};
constexpr std::chrono::milliseconds kIdle{100};
constexpr int kNiceness = 5;

Header filledIn(Header header) {
    std::random_device random;
    std::string bytes;
    for (int i = 0; i < 8; ++i) {
        bytes += static_cast<char>(random() & 0xFFU);
    }
    header.run = tools::hexOf(bytes);
    header.part = 1;
    header.started = tools::utcOf(std::chrono::system_clock::now());
    return header;
}

}  // namespace

Recorder::Recorder(const Options& recorderOptions, Header header, const RecordingFile::Say& say)
    : isRaw(recorderOptions.isRaw),
      maxQueued(recorderOptions.maxQueued),
      file(recorderOptions.file, filledIn(std::move(header)), say),
      thread([this] { run(); }) {}

Recorder::~Recorder() {
    stop();
}

Time Recorder::now() const {
    return std::chrono::duration_cast<Time>(std::chrono::steady_clock::now() - began);
}

void Recorder::add(std::uint32_t connection, Content content) {
    if (std::holds_alternative<Lost>(content)) {
        isLeftOut.erase(connection);
    }
    push({now(), connection, std::move(content)}, kItemCost);
}

void Recorder::addBytes(std::uint32_t connection, Side side, std::string_view bytes) {
    if (isLeftOut.count(connection) != 0) {
        return;
    }
    const Time time = now();
    bool isTooMuch = false;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        isTooMuch = queuedBytes + bytes.size() + kItemCost > maxQueued;
    }
    if (isTooMuch) {
        isLeftOut[connection] = true;
        const std::string why = "the recorder is too slow; the rest of this connection is not recorded";
        push({time, connection, Content(Unreadable{side, why})}, kItemCost);
        return;
    }
    push({time, connection, Piece{side, std::string(bytes)}}, bytes.size() + kItemCost);
}

void Recorder::push(Item item, std::size_t size) {
    bool wasEmpty = false;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        wasEmpty = queue.empty();
        queue.push_back(std::move(item));
        queuedBytes += size;
    }
    if (wasEmpty) {
        changed.notify_one();
    }
}

void Recorder::run() {
    // The thread that passes frames on comes first. Without permission, the thread stays as it is.
    setpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)), kNiceness);
    std::vector<Item> items;
    for (bool isLast = false; !isLast;) {
        {
            std::unique_lock<std::mutex> lock(mutex);
            changed.wait_for(lock, kIdle, [this] { return !queue.empty() || isStopping; });
            if (!isStopping) {
                changed.wait_for(lock, kGather, [this] { return isStopping; });
            }
            isLast = isStopping;
            items.swap(queue);
            queuedBytes = 0;
        }
        const Time time = now();
        for (Item& item : items) {
            write(item);
        }
        items.clear();
        file.flush(time);
    }
    file.end(now());
}

void Recorder::write(Item& item) {
    if (auto* content = std::get_if<Content>(&item.what)) {
        if (std::holds_alternative<Lost>(*content)) {
            decoders.erase(item.connection);
        }
        file.add({item.time, item.connection, std::move(*content)});
        return;
    }
    auto& piece = std::get<Piece>(item.what);
    const auto* const data = reinterpret_cast<const std::uint8_t*>(piece.bytes.data());
    std::vector<Content> contents = decoders[item.connection].feed(piece.side, data, piece.bytes.size());
    if (isRaw) {
        file.add({item.time, item.connection, Raw{piece.side, std::move(piece.bytes)}});
    }
    for (Content& content : contents) {
        file.add({item.time, item.connection, std::move(content)});
    }
}

void Recorder::stop() {
    if (!thread.joinable()) {
        return;
    }
    {
        const std::lock_guard<std::mutex> lock(mutex);
        isStopping = true;
    }
    changed.notify_one();
    thread.join();
}

}  // namespace com_tesk::recording
