#pragma once

#include <string>
#include <vector>

namespace com_tesk::recording {

/// A file of a recording. The recorder writes to LOG.jsonl. When it rotates, it renames that file to LOG.0001.jsonl, the
/// next one to LOG.0002.jsonl, and so on.
struct RotatedFile {
    unsigned part = 0;  ///< The number in its name.
    std::string path;
};

/// Returns the name that part `part` of a recording gets when the recorder has finished it.
std::string rotatedPath(const std::string& file, unsigned part);

/// Returns the finished files of a recording that are there, older first.
std::vector<RotatedFile> rotatedFiles(const std::string& file);

/// Returns the files to read for one that a user names, older first and this one last. The file may be a finished one.
std::vector<std::string> filesUpTo(const std::string& file);

}  // namespace com_tesk::recording
