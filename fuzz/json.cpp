// Any bytes as the text of a settings file: what is accepted, the tree that is made of it, the text
// made of the tree, and edits of the text, against a plain JSON document. Behind the first zero
// byte stand the edits.
#include "Draw.h"
#include "JsonText.h"
#include "Plugins.h"
#include "Target.h"
#include "ToolError.h"
#include "Tree.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>

namespace vorn::fuzz {
namespace {

using nlohmann::json;
using tool::IDictionary;
using tool::SettingsPath;

// A run of digits that may be an integer past 64 bits, which the plain document rounds.
bool hasLongNumber(std::string_view text) {
    size_t length = 0;
    return std::any_of(text.begin(), text.end(), [&length](char byte) {
        length = isdigit(static_cast<unsigned char>(byte)) ? length + 1 : 0;
        return length > 18;
    });
}

bool canBeName(const std::string& name) {
    return !name.empty() && name.find('/') == name.npos && name.find('\0') == name.npos;
}

// The elements by their indices, if these are all the names there are.
json asArray(const json& object) {
    json array = json::array();
    for (size_t index = 0; index < object.size(); ++index) {
        const auto element = object.find(std::to_string(index));
        if (element == object.end()) {
            return object;
        }
        array.push_back(*element);
    }
    return array.empty() ? object : array;
}

json asObject(const json& array) {
    json object = json::object();
    for (size_t index = 0; index < array.size(); ++index) {
        object[std::to_string(index)] = array[index];
    }
    return object;
}

// What a tree holds of the document, as a document; nothing when it cannot hold any of it.
std::optional<json> held(const json& document) {
    if (document.is_structured()) {
        const json members = document.is_array() ? asObject(document) : document;
        json object = json::object();
        for (const auto& [name, value] : members.items()) {
            if (const std::optional<json> child = held(value); child && canBeName(name)) {
                object[name] = *child;
            }
        }
        return asArray(object);
    }
    const bool isPast = document.is_number_unsigned() && document.get<uint64_t>() > INT64_MAX;
    const bool isUnheld = document.is_null() || isPast ||
                          (document.is_string() &&
                           document.get_ref<const std::string&>().find('\0') != std::string::npos);
    return isUnheld ? std::nullopt : std::optional(document);
}

// -- edits of the plain document

json* memberOf(json& container, const std::string& name) {
    if (container.is_array()) {
        const size_t index = name.size() < 10 ? std::strtoul(name.c_str(), nullptr, 10) : SIZE_MAX;
        return index < container.size() && std::to_string(index) == name ? &container[index]
                                                                         : nullptr;
    }
    const auto found = container.is_object() ? container.find(name) : container.end();
    return container.is_object() && found != container.end() ? &*found : nullptr;
}

void set(json& document, const SettingsPath& path, const json& value) {
    json* node = &document;
    for (const std::string& name : path.names()) {
        if (!node->is_structured()) {
            *node = json::object();
        }
        json* member = memberOf(*node, name);
        if (!member && node->is_array() && name == std::to_string(node->size())) {
            node->push_back(nullptr);
            member = &node->back();
        }
        if (!member && node->is_array()) {
            *node = asObject(*node);
        }
        node = member ? member : &(*node)[name];
    }
    *node = value;
}

bool remove(json& document, const SettingsPath& path) {
    json* container = nullptr;
    json* node = &document;
    for (const std::string& name : path.names()) {
        container = std::exchange(node, memberOf(*node, name));
        if (!node) {
            return false;
        }
    }
    if (!container) {
        document = json::object();
    } else if (container->is_array() && node == &container->back()) {
        container->erase(container->size() - 1);
    } else {
        *container = container->is_array() ? asObject(*container) : *container;
        container->erase(path.names().back());
    }
    return true;
}

// -- the target

class Case {
public:
    Case(const IDictionary& idict, std::string text) : m_idict(idict), m_text(std::move(text)) {}

    // Whether the text is JSON.
    bool load() const {
        const bool isAccepted = json::accept(m_text);
        tool::LeftOut leftOut;
        try {
            const tool::OwnedTree tree = tool::loadTree(m_idict, m_text, "text", &leftOut);
            _expect(isAccepted, "broken text was loaded");
            _compare(tree.get(), leftOut);
            return true;
        } catch (const tool::ToolError& error) {
            const bool isTooDeep = std::string_view(error.what()).starts_with("nested too deep");
            _expect(!isAccepted || isTooDeep, error.what());
        }
        return false;
    }

    void edit(Draw& draw) const {
        json expected = json::parse(m_text);
        tool::JsonText edited(m_text, "text");
        _expect(edited.text() == m_text, "a text without edits is another");
        std::string edits;
        while (draw.left() > 0) {
            ++g_operations.count;
            const SettingsPath path = _path(draw);
            constexpr const char* kValues[] = {"1",  "-2.5", "true",    "\"s\"",
                                               "[]", "{}",   "[1,[2]]", "{\"a\":{\"b\":[]}}"};
            if (draw.pick(3) == 0) {
                edits += "\nremove " + path.text();
                const bool isThere = remove(expected, path);
                _expect(edited.remove(path) == isThere, "whether there was something" + edits);
            } else {
                const char* const value = draw.pickFrom(kValues);
                edits += "\nset " + path.text() + " " + value;
                set(expected, path, json::parse(value));
                edited.set(path, nlohmann::ordered_json::parse(value));
            }
            const std::string text = edited.text();
            const json found = json::parse(text, nullptr, false);
            _expect(found.dump() == expected.dump(),
                    edits + "\ngave " + text + "\nnot  " + expected.dump());
        }
    }

private:
    void _expect(bool isTrue, const std::string& what) const {
        if (!isTrue) {
            diverge(m_text + "\n" + what);
        }
    }

    void _compare(const tool::Item* tree, const tool::LeftOut& leftOut) const {
        const std::optional<json> expected = held(json::parse(m_text));
        if (!tree) {
            _expect(!expected || hasLongNumber(m_text), "nothing was loaded");
            return;
        }
        const std::string dumped = tool::jsonText(m_idict, tree);
        if (!hasLongNumber(m_text)) {
            _expect(expected && json::parse(dumped).dump() == expected->dump(),
                    "gave " + dumped + "\nnot  " + (expected ? expected->dump() : ""));
        }
        // What a tree held, a tree holds again, with nothing left out.
        const tool::OwnedTree again = tool::loadTree(m_idict, dumped, "dumped", nullptr);
        _expect(tool::jsonText(m_idict, again.get()) == dumped, "loaded again: not " + dumped);
        try {
            tool::loadTree(m_idict, m_text, "text", nullptr);
            _expect(leftOut.count == 0, "nothing was left out of a strict load");
        } catch (const tool::ToolError& error) {
            _expect(leftOut.count > 0, error.what());
        }
    }

    static SettingsPath _path(Draw& draw) {
        constexpr const char* kNames[] = {"a", "b", "0", "1", "a b", "01", "\"", "\xC3\xA9"};
        SettingsPath path;
        for (size_t depth = draw.pick(4); depth > 0; --depth) {
            path = path.child(draw.pickFrom(kNames));
        }
        return path;
    }

    const IDictionary& m_idict;
    std::string m_text;
};

} // namespace
} // namespace vorn::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace vorn::fuzz;
    static foreign::Plugin plugin;
    static const IDictionary& idict = [&]() -> const IDictionary& {
        const IDictionary& table = loadTable<IDictionary>(plugin, "dictionary");
        plugin.startup();
        return table;
    }();
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const size_t end = std::min(input.find('\0'), input.size());
    ++g_operations.count;
    const Case target(idict, std::string(input.substr(0, end)));
    if (target.load()) {
        Draw draw(input.substr(std::min(end + 1, input.size())));
        target.edit(draw);
    }
    return 0;
}
