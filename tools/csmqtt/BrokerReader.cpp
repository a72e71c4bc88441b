#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>

#include "tools/csmqtt/EntryReader.h"
#include "tools/csmqtt/TopicName.h"

namespace com_tesk::mqtt {

using scenario::Fields;

namespace {

constexpr std::uint16_t kPlainPort = 1883;
constexpr std::uint16_t kTlsPort = 8883;

std::string absolutePath(const std::string& path, const std::string& directory) {
    return path.empty() || path.front() == '/' ? path : directory + '/' + path;
}

/// Reports a file that cannot be read.
std::string readPath(Fields& fields, const YAML::Node& node, std::string_view what, const std::string& directory) {
    std::string path = absolutePath(fields.text(node, what), directory);
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || access(path.c_str(), R_OK) != 0) {
        fields.report(node, "cannot read " + path + ": " + std::generic_category().message(errno));
    } else if (S_ISDIR(status.st_mode)) {
        fields.report(node, path + " is a directory");
    } else if (S_ISFIFO(status.st_mode)) {
        fields.report(node, path + " is a pipe; the file is read again at each connection");
    }
    return path;
}

std::string readPasswordPath(Fields& fields, const YAML::Node& node, const std::string& directory) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): read at the start only.
    const char* const credentials = std::getenv("CREDENTIALS_DIRECTORY");
    std::string base = directory;
    if (credentials != nullptr && node.IsScalar() &&
        access(absolutePath(node.Scalar(), credentials).c_str(), F_OK) == 0) {
        base = credentials;
    }
    std::string path = readPath(fields, node, "password-file", base);
    struct stat status {};
    if (stat(path.c_str(), &status) == 0 && (status.st_mode & S_IRWXO) != 0) {
        fields.report(node, "other users can access " + path + "; run: chmod o= " + path);
    }
    return path;
}

std::optional<TlsSettings> readTls(Fields& fields, const YAML::Node& node, const std::string& directory) {
    if (node.IsScalar()) {
        return fields.word(node, "tls", {"true", "false"}) == "true" ? std::optional<TlsSettings>(TlsSettings())
                                                                     : std::nullopt;
    }
    TlsSettings tls;
    if (fields.isMapOf(node, {"ca", "cert", "key"})) {
        tls.caFile = node["ca"] ? readPath(fields, node["ca"], "ca", directory) : std::string();
        tls.certificateFile = node["cert"] ? readPath(fields, node["cert"], "cert", directory) : std::string();
        tls.keyFile = node["key"] ? readPath(fields, node["key"], "key", directory) : std::string();
        if (node["cert"].IsDefined() != node["key"].IsDefined()) {
            fields.report(node, "a client's certificate needs both cert and key");
        }
    }
    return tls;
}

void readLogin(Fields& fields, const YAML::Node& node, const std::string& directory, BrokerSettings& broker) {
    if (node["user"]) {
        broker.user = fields.text(node["user"], "user");
        if (!isPlainText(broker.user)) {
            fields.report(node["user"], "a user is UTF-8 without control characters");
        }
    }
    if (node["password"]) {
        fields.report(node["password"], "the password is not in this file but in a password-file");
    }
    if (node["password-file"]) {
        broker.passwordFile = readPasswordPath(fields, node["password-file"], directory);
        if (!node["user"]) {
            fields.report(node["password-file"], "a password needs a user");
        }
    }
}

bool isClientId(std::string_view text) {
    constexpr std::size_t kMaxSize = 200;
    return !text.empty() && text.size() <= kMaxSize && isPlainText(text);
}

}  // namespace

BrokerSettings readBroker(Fields& fields, const YAML::Node& node, const std::string& directory) {
    BrokerSettings broker;
    if (node.IsScalar()) {
        broker.address = readAddress(fields, node, kPlainPort);
        return broker;
    }
    if (!fields.isMapOf(
            node, {"address", "tls", "protocol", "user", "password", "password-file", "client-id", "keep-alive"})) {
        return broker;
    }
    if (node["tls"]) {
        broker.tls = readTls(fields, node["tls"], directory);
    }
    if (node["address"]) {
        broker.address = readAddress(fields, node["address"], broker.tls ? kTlsPort : kPlainPort);
    } else {
        fields.report(node, "a broker has an address");
    }
    if (node["protocol"] && fields.word(node["protocol"], "protocol", {"5", "3.1.1"}) == "3.1.1") {
        broker.protocol = ProtocolVersion::MQTT_311;
    }
    readLogin(fields, node, directory, broker);
    if (node["client-id"]) {
        broker.clientId = fields.text(node["client-id"], "client-id");
        if (node["client-id"].IsScalar() && !isClientId(broker.clientId)) {
            fields.report(node["client-id"], "a client-id has 1 to 200 bytes of UTF-8 without control characters");
        }
    }
    if (node["keep-alive"]) {
        const auto given = fields.duration(node["keep-alive"], "keep-alive");
        broker.keepAlive = std::chrono::duration_cast<std::chrono::seconds>(given);
        if (given < std::chrono::seconds(5) || given > std::chrono::hours(18)) {
            fields.report(node["keep-alive"], "keep-alive is 5s to 18h");
        }
    }
    return broker;
}

}  // namespace com_tesk::mqtt
