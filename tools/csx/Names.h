#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "session/Session.h"

namespace com_tesk::csx {

class Client;

/// The input of a name.
struct NamedInput {
    std::string name;
    Input<Number> input;
};

/// Declares an input for each different name, in the order of the names.
std::vector<NamedInput> declareInputs(Session& session, const std::vector<std::string>& names, Delivery delivery);

/// Reports on standard error which of these the host has not confirmed.
/// @return true when there is one.
bool reportUnconfirmed(const std::vector<std::pair<std::string, bool>>& confirmed, const std::string& when);

/// As above, for inputs.
bool reportUnconfirmed(const std::vector<NamedInput>& inputs, const std::string& when);

}  // namespace com_tesk::csx
