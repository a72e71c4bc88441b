#include "tools/recording/RecordingNames.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <optional>

#include "tools/WholeNumber.h"

namespace com_tesk::recording {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kMinDigits = 4;

/// Returns the number in `.0001`.
std::optional<unsigned> partOf(const std::string& suffix) {
    const bool isLongEnough = suffix.size() > kMinDigits && suffix.front() == '.';
    return isLongEnough ? tools::wholeNumber<unsigned>(std::string_view(suffix).substr(1)) : std::nullopt;
}

/// Returns the number in the name of a finished file.
std::optional<unsigned> partOf(const fs::path& file) {
    return partOf(file.stem().extension().string());
}

}  // namespace

std::string rotatedPath(const std::string& file, unsigned part) {
    const fs::path path(file);
    std::array<char, 16> suffix{};
    std::snprintf(suffix.data(), suffix.size(), ".%04u", part);
    return (path.parent_path() / (path.stem().string() + suffix.data() + path.extension().string())).string();
}

std::vector<RotatedFile> rotatedFiles(const std::string& file) {
    const fs::path path(file);
    const fs::path directory = path.has_parent_path() ? path.parent_path() : fs::path(".");
    std::vector<RotatedFile> found;
    std::error_code error;
    fs::directory_iterator entries(directory, error);
    for (; !error && entries != fs::directory_iterator(); entries.increment(error)) {
        const fs::path name = entries->path().filename();
        const std::optional<unsigned> part = partOf(name);
        if (part && rotatedPath(path.filename().string(), *part) == name.string()) {
            found.push_back({*part, rotatedPath(file, *part)});
        }
    }
    std::sort(found.begin(), found.end(), [](const RotatedFile& a, const RotatedFile& b) { return a.part < b.part; });
    return found;
}

std::vector<std::string> filesUpTo(const std::string& file) {
    const fs::path path(file);
    const std::optional<unsigned> last = partOf(path);
    const fs::path current = path.parent_path() / (path.stem().stem().string() + path.extension().string());
    std::vector<std::string> files;
    for (const RotatedFile& rotated : rotatedFiles(last ? current.string() : file)) {
        if (!last || rotated.part < *last) {
            files.push_back(rotated.path);
        }
    }
    files.push_back(file);
    return files;
}

}  // namespace com_tesk::recording
