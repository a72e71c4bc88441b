#include "tools/recording_tools/Gnuplot.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>

namespace com_tesk::recording {

namespace {

constexpr char kMissing[] = "gnuplot is not installed; on Debian, the package gnuplot-nox has it";

/// A temporary file whose name is removed at once. Its descriptor is above those that a child gets.
class NamelessFile {
  public:
    explicit NamelessFile(const std::string& text) {
        std::string name = (std::filesystem::temp_directory_path() / "csx-plot-XXXXXX").string();
        const int opened = mkostemp(name.data(), O_CLOEXEC);
        if (opened < 0) {
            fail(name);
        }
        unlink(name.c_str());
        constexpr int kFirst = 10;
        file = fcntl(opened, F_DUPFD_CLOEXEC, kFirst);
        close(opened);
        std::size_t done = 0;
        while (file >= 0 && done < text.size()) {
            const ssize_t written = ::write(file, text.data() + done, text.size() - done);
            if (written < 0 && errno != EINTR) {
                const int error = errno;
                close(file);
                errno = error;
                file = -1;
            }
            done += written > 0 ? static_cast<std::size_t>(written) : 0;
        }
        if (file < 0) {
            fail(name);
        }
        lseek(file, 0, SEEK_SET);
    }
    ~NamelessFile() { close(file); }
    NamelessFile(const NamelessFile&) = delete;
    NamelessFile& operator=(const NamelessFile&) = delete;

    int descriptor() const { return file; }

  private:
    [[noreturn]] static void fail(const std::string& name) {
        throw std::system_error(errno, std::generic_category(), "cannot write " + name);
    }

    int file = -1;
};

/// A running gnuplot. It is killed at the end, when it still runs.
class Child {
  public:
    Child(int script, int picture, int values) {
        constexpr int kValues = 3;
        posix_spawn_file_actions_t files;
        posix_spawn_file_actions_init(&files);
        posix_spawn_file_actions_adddup2(&files, script, STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&files, picture, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&files, values, kValues);
        sigset_t none;
        sigset_t defaults;
        sigemptyset(&none);
        sigemptyset(&defaults);
        sigaddset(&defaults, SIGPIPE);
        posix_spawnattr_t attributes;
        posix_spawnattr_init(&attributes);
        posix_spawnattr_setsigmask(&attributes, &none);
        posix_spawnattr_setsigdefault(&attributes, &defaults);
        posix_spawnattr_setpgroup(&attributes, 0);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
        std::string program = "gnuplot";
        char* arguments[] = {program.data(), nullptr};
        const int error = posix_spawnp(&process, program.c_str(), &files, &attributes, arguments, environ);
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&files);
        if (error == ENOENT) {
            throw std::runtime_error(kMissing);
        }
        if (error != 0) {
            throw std::system_error(error, std::generic_category(), "cannot start gnuplot");
        }
    }
    ~Child() {
        if (!hasEnded) {
            kill(-process, SIGKILL);
            waitpid(process, nullptr, 0);
        }
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    /// Returns the status when it has ended.
    std::optional<int> ended() {
        int status = 0;
        hasEnded = waitpid(process, &status, WNOHANG) == process;
        return hasEnded ? std::optional(status) : std::nullopt;
    }

  private:
    pid_t process = -1;
    bool hasEnded = false;
};

}  // namespace

void draw(const Plot& plot, const OutputFile& file, const std::function<void()>& pause) {
    const NamelessFile script(plot.script);
    const NamelessFile values(plot.values);
    Child gnuplot(script.descriptor(), file.descriptor(), values.descriptor());
    constexpr std::chrono::milliseconds kInterval(20);
    const auto limit = std::chrono::steady_clock::now() + std::chrono::minutes(5);
    std::optional<int> status;
    while (!(status = gnuplot.ended())) {
        if (std::chrono::steady_clock::now() >= limit) {
            throw std::runtime_error("gnuplot has not ended within five minutes");
        }
        pause();
        std::this_thread::sleep_for(kInterval);
    }
    constexpr int kNotFound = 127;  // Where the child finds out, it ends with this code, as shells do.
    if (WIFEXITED(*status) && WEXITSTATUS(*status) == kNotFound) {
        throw std::runtime_error(kMissing);
    }
    if (!WIFEXITED(*status) || WEXITSTATUS(*status) != 0) {
        throw std::runtime_error("gnuplot has failed; the picture was not written");
    }
}

}  // namespace com_tesk::recording
