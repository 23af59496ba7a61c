// What a tree of items must be: plain nodes, found by walking, written for being right rather than
// fast. The same calls that go to the dictionary service go to one of these, and both must agree.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>
#include <vorn/dictionary/IDictionary.h>

namespace vorn::fuzz {

using dictionary::IDictionary;
using dictionary::Item;
using dictionary::ItemType;
using dictionary::UpdateAction;

// In the order of ItemType; the last stands for a dictionary, which has no value.
using Value = std::variant<bool, int64_t, double, std::string, std::monostate>;

bool isAccessibleAs(ItemType type, const Value& value);
bool toBool(const Value& value);
int64_t toInt64(const Value& value);
double toFloat64(const Value& value);
std::optional<std::string> toText(const Value& value);

struct Node : std::enable_shared_from_this<Node> {
    std::string name;
    Value value;
    Node* parent = nullptr;
    std::vector<std::shared_ptr<Node>> children;
    const Item* twin = nullptr; // the item of the service, once seen: it must stay the same

    Node(std::string_view nodeName, Value nodeValue, Node* nodeParent)
        : name(nodeName), value(std::move(nodeValue)), parent(nodeParent) {}

    ItemType type() const {
        return static_cast<ItemType>(value.index());
    }
    bool isDictionary() const {
        return type() == ItemType::eDictionary;
    }
    const Node* root() const {
        return parent ? parent->root() : this;
    }
    bool isAround(const Node& other) const { // strictly
        return other.parent && (other.parent == this || isAround(*other.parent));
    }
    std::string fullPath() const; // "/" for a root
    size_t count() const;         // of nodes, itself included
    std::shared_ptr<Node> copy() const;

    Node* child(std::string_view childName) const;
    Node* find(std::string_view path);
    Node* element(size_t index) const {
        return child(std::to_string(index));
    }

    // Null, and nothing changed, for an impossible path or type.
    Node* create(std::string_view path, ItemType wanted);

    // In place; children go.
    void set(Value newValue);

    // In place; elements that exist stay, all other children go.
    void setArray(const std::vector<Value>& elements);

    // The number of children when they are named "0" to "n-1", otherwise 0.
    size_t arrayLength() const;
    ItemType preferredArrayType() const;

    // Out of its parent's children.
    void detach();
};

Value neutralValue(ItemType type);

// Asks with the destination, or null, and the source; true accepts.
using Ask = std::function<bool(Node* dst, const Node& src)>;

// Merges src, taken as it is now, into what is at path below base. Dictionaries become values when
// all else is done. At an impossible path it ends with the first question.
void merge(Node& base, const std::string& path, const Node& src, const Ask& ask);

} // namespace vorn::fuzz
