#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/recording/TemporaryDirectory.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/OwnAddress.h"

namespace com_tesk::tunnel_test {

/// Returns the block of code of the manual's page that begins with the line; "" when the page has none.
inline std::string blockOfPage(const std::string& firstLine) {
    std::ostringstream page;
    page << std::ifstream(MANUAL_PAGE).rdbuf();
    const std::string text = page.str();
    const std::size_t begin = text.find("```\n" + firstLine + '\n');
    if (begin == std::string::npos) {
        ADD_FAILURE() << "the page has no block that begins with " << firstLine;
        return {};
    }
    const std::size_t first = begin + 4;
    return text.substr(first, text.find("```\n", first) - first);
}

/// Replaces each setting `name = from` by `name = to`, and fails when there is none.
inline void replaceSetting(std::string& text, const std::string& name, const std::string& from, const std::string& to) {
    const std::string whole = '\n' + name + " = " + from + '\n';
    const std::size_t at = text.find(whole);
    ASSERT_NE(at, std::string::npos) << "the page does not set " << name << " to " << from;
    text.replace(at, whole.size(), '\n' + name + " = " + to + '\n');
}

/// The two ends of the tunnel as the page describes them, on an address of this process. They are killed at the end.
class Tunnel {
  public:
    static constexpr std::uint16_t kNearPort = 55580;  // That of the page, to which programs connect.
    static constexpr std::uint16_t kFarPort = 55581;

    explicit Tunnel(std::uint16_t hostPort)
        : farFile(blockOfPage("; /etc/stunnel/csclient-host.conf")),
          nearFile(blockOfPage("; /etc/stunnel/csclient.conf")) {
        replaceSetting(farFile, "accept", "0.0.0.0:55581", place(kFarPort));
        replaceSetting(farFile, "connect", "127.0.0.1:55580", "127.0.0.1:" + std::to_string(hostPort));
        replaceSetting(nearFile, "accept", "127.0.0.1:55580", place(kNearPort));
        replaceSetting(nearFile, "connect", "198.51.100.10:55581", place(kFarPort));
        for (std::string* const file : {&farFile, &nearFile}) {
            replaceSetting(*file, "PSKsecrets", "/etc/stunnel/csclient.psk", directory.path("key"));
            // The tests may run without the rights of root.
            file->erase(file->find("setuid = "), std::string("setuid = stunnel4\n").size());
            file->erase(file->find("setgid = "), std::string("setgid = stunnel4\n").size());
        }
        writeKey("pump-3:" + std::string(64, 'a'));
    }

    /// Writes the file with the keys, which each end reads when it starts.
    void writeKey(const std::string& line) const {
        directory.write("key", line + '\n');
        std::filesystem::permissions(directory.path("key"), std::filesystem::perms::owner_read);
        std::filesystem::permissions(directory.path("key"), std::filesystem::perms::owner_write,
                                     std::filesystem::perm_options::add);
    }

    void startFar() { far = start("far.conf", farFile); }
    void startNear() { near = start("near.conf", nearFile); }
    void start() {
        startFar();
        startNear();
    }

    /// Kills the end next to the host.
    void killFar() { far.reset(); }

    test::ChildProcess& farEnd() { return *far; }
    test::ChildProcess& nearEnd() { return *near; }

    static std::string place(std::uint16_t port) { return test::ownAddress() + ':' + std::to_string(port); }

  private:
    std::unique_ptr<test::ChildProcess> start(const std::string& name, const std::string& text) const {
        test::ChildProcess::Setup setup;
        setup.path = CSCLIENT_STUNNEL;
        return std::make_unique<test::ChildProcess>(setup, std::vector<std::string>{directory.write(name, text)});
    }

    const recording_test::TemporaryDirectory directory;
    std::string farFile;
    std::string nearFile;
    std::unique_ptr<test::ChildProcess> far;
    std::unique_ptr<test::ChildProcess> near;
};

}  // namespace com_tesk::tunnel_test
