#pragma once

#include <yaml-cpp/yaml.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/Value.h"
#include "host/scenario/Actions.h"
#include "tools/scenario/Flaws.h"

namespace com_tesk::scenario {

/// Reads the fields of a scenario file, and collects what is wrong. Each operation reports its flaws, and then returns
/// a value with which the reading can go on.
class Fields {
  public:
    explicit Fields(std::vector<Flaw>& foundFlaws) : flaws(foundFlaws) {}

    void report(const YAML::Node& node, const std::string& text);

    /// Runs `read`, reports a text that is no YAML, and sorts all flaws by their places.
    void readDocument(const std::function<void()>& read);

    /// Reports the keys of a map that are not among the valid ones, and those that occur twice. Reports a node that is
    /// no map.
    /// @return true when it is a map.
    bool isMapOf(const YAML::Node& node, const std::vector<std::string_view>& validKeys);

    /// Reports a node that is no list.
    bool isList(const YAML::Node& node, std::string_view what);

    std::string text(const YAML::Node& node, std::string_view what);
    /// A name of a parameter: 1 to 31 bytes.
    std::string name(const YAML::Node& node);
    std::vector<std::string> names(const YAML::Node& node, std::string_view what);
    /// One of the words.
    std::string word(const YAML::Node& node, std::string_view what, const std::vector<std::string_view>& words);

    double number(const YAML::Node& node, std::string_view what);
    std::int64_t integer(const YAML::Node& node, std::string_view what,
                         std::int64_t least = std::numeric_limits<std::int32_t>::min(),
                         std::int64_t largest = std::numeric_limits<std::uint32_t>::max());
    unsigned count(const YAML::Node& node, std::string_view what);
    Duration duration(const YAML::Node& node, std::string_view what);
    /// Such as "50Hz".
    double rate(const YAML::Node& node);
    /// A float such as "1.5", or an integer such as "i:3".
    HostValue value(const YAML::Node& node);

  private:
    std::vector<Flaw>& flaws;
};

/// Returns the line and column of a node; 0 for one that is not there.
Flaw placeOf(const YAML::Node& node);

}  // namespace com_tesk::scenario
