// Runs a fuzz target once on every file of a corpus directory, for compilers without a fuzzing engine.

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

#include "fuzz/Fuzzing.h"

int main(int argumentCount, char** arguments) {
    if (argumentCount != 2) {
        std::fprintf(stderr, "Syntax: %s <corpus directory>\n", arguments[0]);
        return EXIT_FAILURE;
    }
    std::set<std::filesystem::path> files;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(arguments[1], error)) {
        if (entry.is_regular_file()) {
            files.insert(entry.path());
        }
    }
    for (const std::filesystem::path& file : files) {
        // Print before the run, so that a failure follows the name of its input.
        std::printf("%s\n", file.c_str());
        std::fflush(stdout);
        std::ifstream stream(file, std::ios::binary);
        const com_tesk::fuzz::Bytes bytes{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
        if (!stream) {
            std::fprintf(stderr, "this file cannot be read\n");
            return EXIT_FAILURE;
        }
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    std::printf("%zu inputs replayed\n", files.size());
    return files.empty() ? EXIT_FAILURE : EXIT_SUCCESS;
}
