#include "tools/recording/Recording.h"

#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "tools/recording/EntryText.h"
#include "tools/recording/LineReader.h"
#include "tools/recording/RecordingNames.h"

namespace com_tesk::recording {

namespace {

constexpr unsigned kFormat = 1;
constexpr std::size_t kMaxFlaws = 10;

/// Returns the header of a file; nothing when its first line is none.
/// @throws std::system_error
std::optional<Header> headerOf(const std::string& file, std::string& flaw) {
    LineReader reader(file);
    const auto line = reader.next();
    flaw = "it is empty";
    const auto entry = line ? entryOf(line->text, flaw) : std::nullopt;
    if (!entry) {
        return std::nullopt;
    }
    const Header* const header = std::get_if<Header>(&entry->content);
    if (header == nullptr) {
        flaw = "its first line has another type";
        return std::nullopt;
    }
    if (header->format != kFormat) {
        throw std::runtime_error(file + ": the recording has format " + std::to_string(header->format) +
                                 ", this program reads format " + std::to_string(kFormat));
    }
    return *header;
}

}  // namespace

class Recording::Impl {
  public:
    explicit Impl(const std::string& file) {
        std::string flaw;
        const std::vector<std::string> candidates = filesUpTo(file);
        // A recorder that was killed while it rotated has left a file without a whole header, or none yet.
        const bool isMissing = candidates.size() > 1 && !std::filesystem::exists(file);
        std::optional<Header> last = isMissing ? std::nullopt : headerOf(file, flaw);
        for (auto older = candidates.rbegin() + 1; !last && older != candidates.rend(); ++older) {
            std::string ignored;
            last = headerOf(*older, ignored);
        }
        if (!last) {
            throw std::runtime_error(file + ": not a recording: " + flaw);
        }
        for (const std::string& candidate : candidates) {
            if (candidate == file) {
                if (!isMissing) {
                    add(file, *last);
                }
                continue;
            }
            std::string ignored;
            const std::optional<Header> header = headerOf(candidate, ignored);
            if (header && header->run == last->run) {
                add(candidate, *header);
            }
        }
    }

    std::optional<Entry> next() {
        for (;;) {
            if (fileIndex == files.size()) {
                return std::nullopt;
            }
            if (!reader) {
                open(files[fileIndex]);
                continue;
            }
            const auto line = reader->next();
            if (!line) {
                reader.reset();
                ++fileIndex;
                continue;
            }
            std::string flaw = line->isTooLong ? "longer than 64 MiB" : "";
            std::optional<Entry> entry = line->isTooLong ? std::nullopt : entryOf(line->text, flaw);
            if (entry && isInOrder(*entry, flaw)) {
                return entry;
            }
            note(files[fileIndex] + ':' + std::to_string(reader->number()) + ": " +
                 (line->isWhole ? flaw : "the line is torn"));
        }
    }

    void rewind() {
        reader.reset();
        fileIndex = 0;
        latest = Time(0);
        flawTexts.clear();
        flawCount = 0;
    }

    const Header& header() const { return first; }

    std::vector<std::string> flaws() const {
        std::vector<std::string> all = flawTexts;
        if (flawCount > all.size()) {
            all.push_back("and " + std::to_string(flawCount - all.size()) + " lines more");
        }
        return all;
    }

  private:
    void add(const std::string& file, const Header& header) {
        first = files.empty() ? header : first;
        files.push_back(file);
    }

    bool isInOrder(const Entry& entry, std::string& flaw) {
        const Header* const header = std::get_if<Header>(&entry.content);
        if (header != nullptr && header->run != first.run) {
            flaw = "the header of another recording";
        } else if (entry.time < latest) {
            flaw = "earlier than the line before";
        } else {
            latest = entry.time;
            return true;
        }
        return false;
    }

    /// A recorder may remove its oldest file at any time.
    void open(const std::string& file) {
        try {
            reader = std::make_unique<LineReader>(file);
        } catch (const std::runtime_error& error) {
            note(error.what());
            ++fileIndex;
        }
    }

    void note(const std::string& flaw) {
        ++flawCount;
        if (flawTexts.size() < kMaxFlaws) {
            flawTexts.push_back(flaw);
        }
    }

    std::vector<std::string> files;
    Header first;
    std::unique_ptr<LineReader> reader;
    std::size_t fileIndex = 0;
    Time latest{};
    std::vector<std::string> flawTexts;
    std::uint64_t flawCount = 0;
};

Recording::Recording(const std::string& file) : impl(std::make_unique<Impl>(file)) {}
Recording::~Recording() = default;

std::optional<Entry> Recording::next() {
    return impl->next();
}

void Recording::rewind() {
    impl->rewind();
}

const Header& Recording::header() const {
    return impl->header();
}

std::vector<std::string> Recording::flaws() const {
    return impl->flaws();
}

bool Recording::isIncomplete() const {
    return impl->header().part != 1;
}

}  // namespace com_tesk::recording
