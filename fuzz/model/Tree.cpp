// Values and how they convert; trees and how they change.
#include "Tree.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <set>
#include <strings.h>

namespace vorn::fuzz {

// ---------------------------------------------------------------------------------------------
// Values

namespace {

bool isDecimal(std::string_view text) {
    const size_t digits = text.substr(0, 1) == "-" || text.substr(0, 1) == "+";
    return text.size() > digits &&
           text.find_first_not_of("0123456789", digits) == std::string_view::npos;
}

// What a text reads as: a bool or a number, when all of it is one.
std::optional<Value> read(const std::string& text) {
    for (const bool flag : {false, true}) {
        if (strcasecmp(text.c_str(), flag ? "true" : "false") == 0) {
            return flag;
        }
    }
    if (isDecimal(text)) {
        errno = 0;
        const int64_t value = std::strtoll(text.c_str(), nullptr, 10);
        if (errno == 0) {
            return value;
        }
    }
    const std::string magnitude = text.substr(text.find_first_of("+-") == 0);
    const bool isWord =
        strcasecmp(magnitude.c_str(), "inf") == 0 || strcasecmp(magnitude.c_str(), "nan") == 0;
    const bool isOfDigits = magnitude.find_first_not_of("0123456789+-.eE") == std::string::npos;
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (magnitude.empty() || *end != '\0' || (!isWord && !isOfDigits)) {
        return std::nullopt;
    }
    return value;
}

int64_t truncate(double value) {
    constexpr double kEnd = 9223372036854775808.0;
    if (std::isnan(value)) {
        return 0;
    }
    return value >= kEnd    ? std::numeric_limits<int64_t>::max()
           : value <= -kEnd ? std::numeric_limits<int64_t>::min()
                            : static_cast<int64_t>(value);
}

// The number that the value is or reads as, in the hands of use.
template <class T, class Use>
T convert(const Value& value, Use use) {
    if (const auto* text = std::get_if<std::string>(&value)) {
        const std::optional<Value> meant = read(*text);
        return meant ? convert<T>(*meant, use) : T();
    }
    if (const auto* flag = std::get_if<bool>(&value)) {
        return use(static_cast<int64_t>(*flag));
    }
    if (const auto* integer = std::get_if<int64_t>(&value)) {
        return use(*integer);
    }
    const auto* number = std::get_if<double>(&value);
    return number ? use(*number) : T();
}

std::string floatText(double value) {
    char text[64];
    *std::to_chars(text, text + sizeof(text), value).ptr = '\0';
    const bool isLikeInteger = std::string_view(text).find_first_of(".en") == std::string::npos;
    return std::string(text) + (isLikeInteger ? ".0" : "");
}

} // namespace

bool isAccessibleAs(ItemType type, const Value& value) {
    const bool isDictionary = std::holds_alternative<std::monostate>(value);
    if (type >= ItemType::eDictionary || isDictionary) {
        return type == ItemType::eDictionary && isDictionary;
    }
    const auto* text = std::get_if<std::string>(&value);
    return type == ItemType::eString || !text || read(*text).has_value();
}

bool toBool(const Value& value) {
    return convert<bool>(value, [](auto number) { return number != 0; });
}

int64_t toInt64(const Value& value) {
    return convert<int64_t>(value, [](auto number) {
        if constexpr (std::is_same_v<decltype(number), double>) {
            return truncate(number);
        } else {
            return number;
        }
    });
}

double toFloat64(const Value& value) {
    return convert<double>(value, [](auto number) { return static_cast<double>(number); });
}

std::optional<std::string> toText(const Value& value) {
    if (const auto* flag = std::get_if<bool>(&value)) {
        return *flag ? "true" : "false";
    }
    if (const auto* integer = std::get_if<int64_t>(&value)) {
        return std::to_string(*integer);
    }
    if (const auto* number = std::get_if<double>(&value)) {
        return floatText(*number);
    }
    const auto* text = std::get_if<std::string>(&value);
    return text ? std::optional(*text) : std::nullopt;
}

Value neutralValue(ItemType type) {
    switch (type) {
    case ItemType::eBool:
        return false;
    case ItemType::eInt:
        return int64_t{0};
    case ItemType::eFloat:
        return 0.0;
    case ItemType::eString:
        return std::string();
    case ItemType::eDictionary:
    case ItemType::eCount:
        break;
    }
    return std::monostate();
}

// ---------------------------------------------------------------------------------------------
// Trees

namespace {

// The first name of a path, and what is behind its first "/", if there is one.
struct SplitPath {
    std::string_view name;
    std::optional<std::string_view> rest;
};

SplitPath splitPath(std::string_view path) {
    const size_t slash = path.find('/');
    if (slash == std::string_view::npos) {
        return {path, {}};
    }
    return {path.substr(0, slash), path.substr(slash + 1)};
}

} // namespace

std::string Node::fullPath() const {
    std::string path = parent ? "" : "/";
    for (const Node* node = this; node->parent; node = node->parent) {
        path = "/" + node->name + path;
    }
    return path;
}

size_t Node::count() const {
    size_t sum = 1;
    for (const auto& child : children) {
        sum += child->count();
    }
    return sum;
}

std::shared_ptr<Node> Node::copy() const {
    auto twinless = std::make_shared<Node>(name, value, nullptr);
    for (const auto& child : children) {
        twinless->children.push_back(child->copy());
        twinless->children.back()->parent = twinless.get();
    }
    return twinless;
}

Node* Node::child(std::string_view childName) const {
    const auto found =
        std::find_if(children.begin(), children.end(),
                     [childName](const auto& child) { return child->name == childName; });
    return found == children.end() ? nullptr : found->get();
}

Node* Node::find(std::string_view path) {
    if (path.empty()) {
        return this;
    }
    Node* node = this;
    for (std::optional<std::string_view> rest = path; rest && node;) {
        const SplitPath split = splitPath(*rest);
        node = node->child(split.name); // no child has an empty name
        rest = split.rest;
    }
    return node;
}

Node* Node::create(std::string_view path, ItemType wanted) {
    const bool isPossible = path.empty() || (path.front() != '/' && path.back() != '/' &&
                                             path.find("//") == std::string_view::npos);
    if (!isPossible || wanted >= ItemType::eCount) {
        return nullptr;
    }
    Node* node = this;
    for (std::optional<std::string_view> rest = path; rest && !path.empty();) {
        const SplitPath split = splitPath(*rest);
        if (!node->isDictionary()) {
            node->set(std::monostate());
        }
        Node* next = node->child(split.name);
        if (!next) {
            const Value value = neutralValue(split.rest ? ItemType::eDictionary : wanted);
            node->children.push_back(std::make_shared<Node>(split.name, value, node));
            next = node->children.back().get();
        }
        node = next;
        rest = split.rest;
    }
    if (node->type() != wanted) {
        node->set(neutralValue(wanted));
    }
    return node;
}

void Node::set(Value newValue) {
    children.clear();
    value = std::move(newValue);
}

void Node::setArray(const std::vector<Value>& elements) {
    std::vector<std::shared_ptr<Node>> wanted;
    for (const Value& element : elements) {
        Node* place = child(std::to_string(wanted.size()));
        wanted.push_back(
            place ? place->shared_from_this()
                  : std::make_shared<Node>(std::to_string(wanted.size()), std::monostate(), this));
        wanted.back()->set(element);
    }
    set(std::monostate());
    children = std::move(wanted);
}

size_t Node::arrayLength() const {
    for (size_t index = 0; index < children.size(); ++index) {
        if (!element(index)) {
            return 0;
        }
    }
    return children.size();
}

ItemType Node::preferredArrayType() const {
    if (arrayLength() == 0) {
        return ItemType::eCount;
    }
    std::set<ItemType> types;
    bool isExactInFloats = true;
    for (const auto& child : children) {
        types.insert(child->type());
        if (const auto* integer = std::get_if<int64_t>(&child->value)) {
            const auto asFloat = static_cast<double>(*integer);
            isExactInFloats = isExactInFloats && asFloat < 9223372036854775808.0 &&
                              static_cast<int64_t>(asFloat) == *integer;
        }
    }
    if (types.count(ItemType::eDictionary) > 0) {
        return types.size() == 1 ? ItemType::eDictionary : ItemType::eCount;
    }
    const ItemType widest = *types.rbegin();
    return widest == ItemType::eFloat && !isExactInFloats ? ItemType::eString : widest;
}

void Node::detach() {
    const auto self = shared_from_this(); // alive to the end
    auto& siblings = parent->children;
    siblings.erase(std::find(siblings.begin(), siblings.end(), self));
    parent = nullptr;
}

namespace {

// Values that dictionaries are to become when the merge is done.
using LastWrites = std::vector<std::pair<Node*, Value>>;

void mergeCopy(
    Node& base, const std::string& path, const Node& src, const Ask& ask, LastWrites& lastWrites) {
    Node* dst = base.find(path);
    if (!dst || !dst->isDictionary() || !src.isDictionary()) {
        if (!ask(dst, src)) {
            return;
        }
        if (dst && dst->isDictionary()) {
            lastWrites.emplace_back(dst, src.value);
            return;
        }
        Node* const made = base.create(path, src.type());
        if (!made) {
            return; // an impossible destination, so this is the first question
        }
        if (!src.isDictionary()) {
            made->set(src.value);
        }
    }
    for (const auto& child : src.children) {
        const std::string childPath = path.empty() ? child->name : path + "/" + child->name;
        mergeCopy(base, childPath, *child, ask, lastWrites);
    }
}

} // namespace

void merge(Node& base, const std::string& path, const Node& src, const Ask& ask) {
    LastWrites lastWrites;
    mergeCopy(base, path, *src.copy(), ask, lastWrites);
    for (const auto& [node, value] : lastWrites) {
        node->set(value);
    }
}

} // namespace vorn::fuzz
