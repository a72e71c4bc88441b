#include "tools/recording/JsonTree.h"

#include <nlohmann/json.hpp>
#include <utility>

namespace com_tesk::recording {

using Kind = JsonValue::Kind;

/// Receives the parts of a text in order. Each operation returns false to end the parsing. The parser demands these names.
// NOLINTBEGIN(readability-identifier-naming)
class JsonTree::Builder {
  public:
    Builder(JsonTree& target, std::size_t maxValues) : tree(target), limit(maxValues) {}

    const std::string& flaw() const { return reason; }

    bool null() { return add(Kind::NOTHING, {}); }
    bool boolean(bool /*value*/) { return add(Kind::BOOLEAN, {}); }
    bool number_integer(std::int64_t value) { return add(Kind::NUMBER, std::to_string(value)); }
    bool number_unsigned(std::uint64_t value) { return add(Kind::NUMBER, std::to_string(value)); }
    bool number_float(double /*value*/, const std::string& text) { return add(Kind::NUMBER, text); }
    bool string(const std::string& text) { return add(Kind::STRING, text); }
    bool key(const std::string& text) { return add(Kind::STRING, text); }
    static bool binary(const nlohmann::json::binary_t& /*bytes*/) { return false; }
    bool start_object(std::size_t /*size*/) { return open(Kind::OBJECT); }
    bool start_array(std::size_t /*size*/) { return open(Kind::ARRAY); }
    bool end_object() { return close(); }
    bool end_array() { return close(); }
    bool parse_error(std::size_t /*position*/, const std::string& /*token*/, const std::exception& /*error*/) {
        reason = "not JSON";
        return false;
    }

  private:
    bool add(Kind kind, std::string_view text) {
        if (tree.items.size() == limit) {
            reason = "too many values";
            return false;
        }
        const auto index = static_cast<std::uint32_t>(tree.items.size());
        tree.items.push_back(
            {kind, static_cast<std::uint32_t>(tree.texts.size()), static_cast<std::uint32_t>(text.size()), index + 1});
        tree.texts += text;
        return true;
    }

    bool open(Kind kind) {
        if (unclosed.size() == kMaxDepth) {
            reason = "nested too deep";
            return false;
        }
        unclosed.push_back(tree.items.size());
        return add(kind, {});
    }

    bool close() {
        tree.items[unclosed.back()].end = static_cast<std::uint32_t>(tree.items.size());
        unclosed.pop_back();
        return true;
    }

    JsonTree& tree;
    const std::size_t limit;
    std::vector<std::size_t> unclosed;
    std::string reason;
};
// NOLINTEND(readability-identifier-naming)

std::optional<JsonTree> JsonTree::parse(std::string_view text, std::string& flaw, std::size_t maxValues) {
    JsonTree tree;
    Builder builder(tree, maxValues);
    if (text.find('\0') != std::string_view::npos) {
        flaw = "not JSON";  // The parser would end at a zero byte.
        return std::nullopt;
    }
    if (!nlohmann::json::sax_parse(text.begin(), text.end(), &builder)) {
        flaw = builder.flaw();
        return std::nullopt;
    }
    return tree;
}

std::uint32_t JsonValue::endIndex(std::uint32_t ofIndex) const {
    return tree->items[ofIndex].end;
}

Kind JsonValue::kind() const {
    return tree->items[index].kind;
}

std::string_view JsonValue::text() const {
    const JsonTree::Item& item = tree->items[index];
    return std::string_view(tree->texts).substr(item.textBegin, item.textSize);
}

std::optional<JsonValue> JsonValue::member(std::string_view name) const {
    std::optional<JsonValue> found;
    if (kind() == Kind::OBJECT) {
        for (std::uint32_t i = index + 1; i < endIndex(index); i = endIndex(i + 1)) {
            if (JsonValue(*tree, i).text() == name) {
                found.emplace(*tree, i + 1);
            }
        }
    }
    return found;
}

}  // namespace com_tesk::recording
