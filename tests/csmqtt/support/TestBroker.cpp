#include "tests/csmqtt/support/TestBroker.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <utility>

#include "tests/csmqtt/support/OwnPlace.h"
#include "tests/support/OwnAddress.h"
#include "tests/support/Waiting.h"

namespace com_tesk::mqtt_test {

namespace {

bool isListening(std::uint16_t port) {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = ownPlace(port);
    const bool isAccepted = connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(descriptor);
    return isAccepted;
}

pid_t startProcess(const std::string& path, TestBroker::Disk disk) {
    const pid_t process = fork();
    if (process == 0) {
        // The broker must not outlast a test that crashes.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (disk == TestBroker::Disk::FULL) {
            const rlimit none{0, 0};
            setrlimit(RLIMIT_FSIZE, &none);
            signal(SIGXFSZ, SIG_IGN);
        }
        const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
        dup2(nothing, STDOUT_FILENO);
        dup2(nothing, STDERR_FILENO);
        execl("/usr/sbin/mosquitto", "mosquitto", "-c", path.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    return process;
}

}  // namespace

TemporaryDirectory::TemporaryDirectory()
    : directory((std::filesystem::temp_directory_path() / "csmqtt-test-XXXXXX").string()) {
    EXPECT_NE(mkdtemp(directory.data()), nullptr) << directory;
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
}

std::string TemporaryDirectory::write(const std::string& name, const std::string& text) const {
    std::ofstream(path(name)) << text;
    chmod(path(name).c_str(), S_IRUSR | S_IWUSR);
    return path(name);
}

bool TemporaryDirectory::run(const std::string& command) const {
    // NOLINTNEXTLINE(cert-env33-c,concurrency-mt-unsafe): the test's own commands, on the test's only thread.
    return std::system(("cd '" + directory + "' && " + command + " >/dev/null 2>&1").c_str()) == 0;
}

TestBroker::TestBroker(std::string lines, Disk ownDisk)
    : settings(std::move(lines)), disk(ownDisk), ownPort(unusedPort()) {
    start();
}

TestBroker::~TestBroker() {
    kill();
}

void TestBroker::start() {
    // As root the broker would become another user, who cannot read the files of the test.
    const std::string user = geteuid() == 0 ? "user root\n" : "";
    const std::string path =
        files.write("broker.conf", "listener " + std::to_string(ownPort) + ' ' + test::ownAddress() + '\n' + user +
                                       "persistence false\nlog_dest none\n" + settings);
    process = startProcess(path, disk);
    ASSERT_TRUE(test::waitUntil([this] { return isListening(ownPort); })) << "no broker on port " << ownPort;
}

void TestBroker::kill() {
    if (process > 0) {
        ::kill(process, SIGKILL);
        waitpid(process, nullptr, 0);
        process = -1;
    }
}

void TestBroker::restart() {
    kill();
    start();
}

void TestBroker::hang() const {
    ::kill(process, SIGSTOP);
}

void TestBroker::resume() const {
    ::kill(process, SIGCONT);
}

std::uint16_t unusedPort() {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = ownPlace(0);
    socklen_t size = sizeof address;
    EXPECT_EQ(bind(descriptor, reinterpret_cast<const sockaddr*>(&address), size), 0);
    getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size);
    close(descriptor);
    return ntohs(address.sin_port);
}

}  // namespace com_tesk::mqtt_test
