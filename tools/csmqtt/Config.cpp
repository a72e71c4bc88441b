#include "tools/csmqtt/Config.h"

#include "tools/WholeNumber.h"
#include "tools/csmqtt/TopicName.h"

namespace com_tesk::mqtt {

std::string Address::text() const {
    const bool isIpv6 = host.find(':') != std::string::npos;
    return (isIpv6 ? '[' + host + ']' : host) + ':' + std::to_string(port);
}

std::optional<Address> addressOf(std::string_view text, std::uint16_t defaultPort) {
    std::string_view host = text;
    std::optional<std::string_view> port;
    if (!text.empty() && text.front() == '[') {
        const std::size_t bracket = text.find(']');
        const std::string_view rest = bracket == std::string_view::npos ? "" : text.substr(bracket + 1);
        if (bracket == std::string_view::npos || (!rest.empty() && rest.front() != ':')) {
            return std::nullopt;
        }
        host = text.substr(1, bracket - 1);
        port = rest.empty() ? std::nullopt : std::optional(rest.substr(1));
    } else if (const std::size_t colon = text.find(':');
               colon != std::string_view::npos && text.find(':', colon + 1) == std::string_view::npos) {
        host = text.substr(0, colon);
        port = text.substr(colon + 1);
    }
    const auto number = port ? tools::wholeNumber<std::uint16_t>(*port) : std::optional(defaultPort);
    if (!number || host.empty() || host.find_first_of(" /\t[]") != std::string_view::npos) {
        return std::nullopt;
    }
    return Address{std::string(host), *number};
}

std::string Config::valueTopic(const std::string& name) const {
    return base + "/v/" + encodedName(name);
}

std::string Config::setTopic(const std::string& name) const {
    return base + "/set/" + encodedName(name);
}

}  // namespace com_tesk::mqtt
