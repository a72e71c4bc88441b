#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace com_tesk::recording {

class JsonTree;

/// A value in a tree. It refers to the tree, which must outlive it.
class JsonValue {
  public:
    enum class Kind : std::uint8_t { ARRAY, BOOLEAN, NOTHING, NUMBER, OBJECT, STRING };

    JsonValue(const JsonTree& ownTree, std::uint32_t ownIndex) : tree(&ownTree), index(ownIndex) {}

    Kind kind() const;

    /// Returns the text of a string, or of a number as it was written. Empty for the other kinds.
    std::string_view text() const;

    /// Returns the member of an object, the last one when it has several; nothing when it has none, or is no object.
    std::optional<JsonValue> member(std::string_view name) const;

    /// Calls `take` with each element of an array, in order.
    template <typename Take>
    void forEach(const Take& take) const {
        if (kind() == Kind::ARRAY) {
            for (std::uint32_t i = index + 1; i < endIndex(index); i = endIndex(i)) {
                take(JsonValue(*tree, i));
            }
        }
    }

  private:
    std::uint32_t endIndex(std::uint32_t ofIndex) const;

    const JsonTree* tree;
    std::uint32_t index;
};

/// A text of JSON, in memory that is proportional to the text. Numbers keep their texts: a float that is read through a
/// double can become another float.
class JsonTree {
  public:
    static constexpr std::size_t kMaxDepth = 8;
    static constexpr std::size_t kMaxValues = 8'000'000;

    /// Reads a text of any content, at most 4 GiB.
    /// @param flaw  receives the reason when there is no tree.
    /// @return nothing when the text is no JSON, is nested deeper than kMaxDepth or has more than `maxValues` values.
    static std::optional<JsonTree> parse(std::string_view text, std::string& flaw, std::size_t maxValues = kMaxValues);

    JsonValue root() const { return {*this, 0}; }

  private:
    friend class JsonValue;
    class Builder;

    /// A value, or the name of a member, which precedes the member's value.
    struct Item {
        JsonValue::Kind kind;
        std::uint32_t textBegin;
        std::uint32_t textSize;
        std::uint32_t end;  ///< The index after its last element or member.
    };

    std::vector<Item> items;
    std::string texts;
};

}  // namespace com_tesk::recording
