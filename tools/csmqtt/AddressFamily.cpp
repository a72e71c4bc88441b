#include "tools/csmqtt/AddressFamily.h"

#include <arpa/inet.h>

namespace com_tesk::mqtt {

namespace {

bool isNumericAddress(const std::string& host) {
    in_addr address{};
    return host.find(':') != std::string::npos || inet_pton(AF_INET, host.c_str(), &address) == 1;
}

AddressFamily after(AddressFamily family) {
    switch (family) {
        case AddressFamily::ANY:
            return AddressFamily::IPV4;
        case AddressFamily::IPV4:
            return AddressFamily::IPV6;
        case AddressFamily::IPV6:
            break;
    }
    return AddressFamily::ANY;
}

}  // namespace

FamilyCycle::FamilyCycle(const std::string& host) : isNumeric(isNumericAddress(host)) {}

bool FamilyCycle::fail() {
    constexpr unsigned kFamilies = 3;
    if (isNumeric) {
        return false;
    }
    family = after(family);
    return ++failures < kFamilies;
}

}  // namespace com_tesk::mqtt
