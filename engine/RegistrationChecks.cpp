#include "engine/RegistrationChecks.h"

#include "comms/Diagnostics.h"
#include "engine/CSClientProtocol.h"

namespace com_tesk::checks {

using diagnostics::Decimal;

bool isTooLong(const std::string& name) {
    return name.size() >= CSClientProtocol::kMaxParameterNameLength;
}

void reportInvalidSubscriptionType(const std::string& name) {
    diagnostics::error({"Subscription type of parameter id string '", name, "' is invalid!"});
}

void reportInvalidOutputType(const std::string& name) {
    diagnostics::error({"Invalid parameter type for output id string '", name, "'!"});
}

void reportTooLong(const std::string& name) {
    constexpr unsigned int kMaximum = CSClientProtocol::kMaxParameterNameLength;
    diagnostics::error({"Length of parameter id string '", name, "' exceeds maximum ", Decimal(kMaximum)});
}

void reportAlreadyRegistered(const std::string& name) {
    diagnostics::error({"Parameter '", name, "' already registered."});
}

void reportRequestedTwice(const std::string& name) {
    diagnostics::error({"Parameter '", name, "' is requested more than once in the same subscription call."});
}

void reportUnknown(const std::string& name) {
    diagnostics::error({"Unknown parameter ID: ", name});
}

}  // namespace com_tesk::checks
