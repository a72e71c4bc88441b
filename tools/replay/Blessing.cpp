#include "tools/replay/Blessing.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>
#include <variant>

#include "tools/recording/EntryText.h"

namespace com_tesk::replay {

namespace {

using namespace recording;

[[noreturn]] void fail(const std::string& file) {
    throw std::system_error(errno, std::generic_category(), "cannot write " + file);
}

}  // namespace

Blessing::Blessing(std::string recordingFile, const Selection& replaySelection, Time lastTime,
                   std::function<Time(Time)> recordedTimeOf)
    : file(std::move(recordingFile)),
      newFile(file + ".new-" + std::to_string(getpid())),
      selection(replaySelection),
      last(lastTime),
      recordedTime(std::move(recordedTimeOf)),
      stream(newFile, std::ios::binary) {
    if (!stream) {
        fail(newFile);
    }
}

Blessing::~Blessing() {
    std::remove(newFile.c_str());
}

void Blessing::publish(const std::string& name, Time play, HostValue value) {
    const std::lock_guard<std::mutex> lock(mutex);
    queue.push_back({name, play, value});
}

void Blessing::replace(const Entry& entry) {
    writePublishedUntil(entry.time);
    if (std::holds_alternative<End>(entry.content)) {
        end = entry;
        return;
    }
    if (entry.connection != 0) {
        connection = entry.connection;
    }
    Entry changed = entry;
    if (auto* const publication = std::get_if<Publication>(&changed.content)) {
        auto& all = publication->values;
        all.erase(std::remove_if(all.begin(), all.end(),
                                 [this](const NamedValue& value) { return selection.nameOf(value.name).has_value(); }),
                  all.end());
        if (all.empty()) {
            return;
        }
    } else if (auto* const state = std::get_if<State>(&changed.content)) {
        replaceValues(*state);
    }
    write(changed);
}

void Blessing::replaceValues(State& state) const {
    for (NamedValue& value : state.values) {
        const auto name = selection.nameOf(value.name);
        if (name && values.count(*name) != 0) {
            value.value = values.at(*name);
        }
    }
}

void Blessing::copy(const Entry& entry) {
    if (entry.connection != 0) {
        connection = entry.connection;
    }
    write(entry);
}

void Blessing::endReplay() {
    writePublishedUntil(Time::max());
    if (end) {
        write(*end);
    }
}

void Blessing::writePublishedUntil(Time recorded) {
    for (;;) {
        Entry entry;
        {
            const std::lock_guard<std::mutex> lock(mutex);
            if (queue.empty() || recordedTime(queue.front().play) > recorded) {
                return;
            }
            const Published& next = queue.front();
            entry.time = std::min(recordedTime(next.play), last);
            entry.connection = connection;
            entry.content = Publication{{{selection.recordedNameOf(next.name), 0, next.value}}};
            values.insert_or_assign(next.name, next.value);
            queue.pop_front();
        }
        write(entry);
    }
}

void Blessing::write(const Entry& entry) {
    Entry inOrder = entry;
    inOrder.time = std::max(entry.time, written);
    written = inOrder.time;
    std::string line;
    appendLine(line, inOrder);
    stream << line;
}

void Blessing::finish() {
    stream.close();
    if (!stream) {
        fail(newFile);
    }
    std::error_code ignored;
    std::filesystem::permissions(newFile, std::filesystem::status(file, ignored).permissions(), ignored);
    const int descriptor = open(newFile.c_str(), O_WRONLY | O_CLOEXEC);
    const bool isOnDisk = descriptor >= 0 && fsync(descriptor) == 0;
    if (descriptor >= 0) {
        close(descriptor);
    }
    if (!isOnDisk || std::rename(newFile.c_str(), file.c_str()) != 0) {
        fail(newFile);
    }
}

}  // namespace com_tesk::replay
