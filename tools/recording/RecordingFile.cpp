#include "tools/recording/RecordingFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

#include "tools/recording/EntryText.h"
#include "tools/recording/RecordingNames.h"

namespace com_tesk::recording {

namespace {

constexpr std::size_t kMaxBuffered = std::size_t{256} * 1024;
constexpr std::chrono::seconds kStateInterval{60};
constexpr std::chrono::seconds kRetryInterval{1};

std::string textOf(int error) {
    return std::generic_category().message(error);
}

}  // namespace

std::string fileError(const std::string& file) {
    if (std::filesystem::exists(std::filesystem::symlink_status(file))) {
        return file + " exists; a recording never overwrites a file";
    }
    if (const auto older = rotatedFiles(file); !older.empty()) {
        return older.front().path + " exists; it would become a part of this recording";
    }
    return {};
}

RecordingFile::RecordingFile(RecordingOptions recordingOptions, Header recordingHeader, Say sayToUser)
    : options(std::move(recordingOptions)), say(std::move(sayToUser)), header(std::move(recordingHeader)) {
    if (const int error = create(); error != 0) {
        throw std::system_error(error, std::generic_category(), options.file);
    }
    appendHead();
    write();
}

RecordingFile::~RecordingFile() {
    if (descriptor >= 0) {
        close(descriptor);
    }
}

void RecordingFile::add(Entry entry) {
    entry.time = std::max(entry.time, latest);
    latest = entry.time;
    const bool isTooLarge = options.rotateSize != 0 && sizeOfPart >= options.rotateSize;
    const bool isTooOld = options.rotateTime && entry.time - fileBegan >= *options.rotateTime;
    if ((isTooLarge || isTooOld) && !hasFailed) {
        rotate();
    } else if (entry.time - lastState >= kStateInterval) {
        appendState();
    }
    known.note(entry);
    append(entry);
}

void RecordingFile::append(const Entry& entry) {
    if (hasFailed) {
        ++dropped;
        return;
    }
    const std::size_t before = text.size();
    appendLine(text, entry);
    sizeOfPart += text.size() - before;
    ++lines;
    if (text.size() >= kMaxBuffered) {
        write();
    }
}

void RecordingFile::appendState() {
    lastState = latest;
    append({latest, 0, known.state()});
}

void RecordingFile::appendHead() {
    append({latest, 0, header});
    appendState();
}

int RecordingFile::create() {
    descriptor = open(options.file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (descriptor < 0) {
        return errno;
    }
    fileSize = 0;
    fileBegan = latest;
    isDirty = true;
    sizeOfPart = 0;
    syncDirectory();
    return 0;
}

void RecordingFile::rotate() {
    write();
    if (hasFailed) {
        return;
    }
    fdatasync(descriptor);
    const std::string finished = rotatedPath(options.file, header.part);
    if (std::rename(options.file.c_str(), finished.c_str()) != 0) {
        say(finished + ": " + textOf(errno) + "; the recording goes on in " + options.file);
        fileBegan = latest;
        sizeOfPart = 0;  // The next attempt follows after as many bytes again.
        return;
    }
    close(descriptor);
    descriptor = -1;
    ++header.part;
    if (const int error = create(); error != 0) {
        fail(error);
        return;
    }
    appendHead();
    removeOldFiles();
}

void RecordingFile::removeOldFiles() const {
    if (options.keep == 0) {
        return;
    }
    std::vector<RotatedFile> finished = rotatedFiles(options.file);
    const std::size_t kept = options.keep - 1;
    for (std::size_t i = 0; i + kept < finished.size(); ++i) {
        std::remove(finished[i].path.c_str());
    }
}

void RecordingFile::syncDirectory() const {
    const std::string parent = std::filesystem::path(options.file).parent_path().string();
    const int directory = open(parent.empty() ? "." : parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory >= 0) {
        fsync(directory);
        close(directory);
    }
}

void RecordingFile::write() {
    std::size_t written = 0;
    while (!hasFailed && written < text.size()) {
        const ssize_t count = ::write(descriptor, text.data() + written, text.size() - written);
        if (count > 0) {
            written += static_cast<std::size_t>(count);
        } else if (count == 0 || errno != EINTR) {
            const int error = count == 0 ? EIO : errno;
            // Lines before the failure stay. The part of a line after them is removed.
            const std::size_t whole = written == 0 ? 0 : text.rfind('\n', written - 1) + 1;
            fileSize += whole;
            lines = static_cast<std::uint64_t>(
                std::count(text.begin() + static_cast<std::ptrdiff_t>(whole), text.end(), '\n'));
            text.erase(0, whole);
            fail(error);
            cutPartOfLine();
            return;
        }
    }
    fileSize += written;
    isDirty = isDirty || written != 0;
    text.clear();
    lines = 0;
}

void RecordingFile::fail(int error) {
    hasFailed = true;
    failure = error;
    dropped = lines;
    text.clear();
    lines = 0;
    lastAttempt = latest;
    say(options.file + ": " + textOf(error) + "; lines are dropped until writing works again");
}

bool RecordingFile::cutPartOfLine() const {
    return ftruncate(descriptor, static_cast<off_t>(fileSize)) == 0 &&
           lseek(descriptor, static_cast<off_t>(fileSize), SEEK_SET) >= 0;
}

void RecordingFile::tryAgain(Time now) {
    if (now - lastAttempt < kRetryInterval) {
        return;
    }
    lastAttempt = now;
    latest = std::max(latest, now);
    if (descriptor < 0 && create() != 0) {
        return;
    }
    // When the file cannot be cut, a line feed ends the part of a line that the failure has left.
    std::string again = cutPartOfLine() ? "" : "\n";
    if (fileSize == 0) {
        fileBegan = latest;
        appendLine(again, {latest, 0, header});
    }
    appendLine(again,
               {latest, 0, Unreadable{Side::HOST, std::to_string(dropped) + " lines were lost: " + textOf(failure)}});
    appendLine(again, {latest, 0, known.state()});
    const ssize_t count = ::write(descriptor, again.data(), again.size());
    if (count != static_cast<ssize_t>(again.size())) {
        cutPartOfLine();
        return;
    }
    lastState = latest;
    fileSize += again.size();
    isDirty = true;
    hasFailed = false;
    say(options.file + ": written again; " + std::to_string(dropped) + " lines were lost");
}

void RecordingFile::flush(Time now) {
    if (hasFailed) {
        tryAgain(now);
        return;
    }
    if (now - lastState >= kStateInterval) {
        latest = std::max(latest, now);
        appendState();
    }
    write();
    if (isDirty && !hasFailed && now - lastSync >= options.sync) {
        if (fdatasync(descriptor) != 0 && errno != EINVAL && errno != EROFS) {
            fail(errno);
            return;
        }
        isDirty = false;
        lastSync = now;
    }
}

void RecordingFile::end(Time now) {
    if (hasFailed) {
        lastAttempt = now - kRetryInterval;
        tryAgain(now);
    }
    add({now, 0, End{}});
    write();
    if (hasFailed) {
        say(options.file + ": " + std::to_string(dropped) + " lines were lost");
    } else {
        fdatasync(descriptor);
    }
}

}  // namespace com_tesk::recording
