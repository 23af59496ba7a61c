// From JSON text to a tree, event by event, without a document in between.
#include "JsonScanner.h"
#include "Progress.h"
#include "SettingsPath.h"
#include "TextPlace.h"
#include "ToolError.h"
#include "Tree.h"

#include <new>
#include <vector>

namespace vorn::tool {

namespace {

constexpr const char* kRootName = "<document>";

bool hasZeroCharacter(const std::string& text) {
    return text.find('\0') != std::string::npos;
}

class Loader : public JsonEvents {
public:
    Loader(const IDictionary& idict,
           std::string_view text,
           const std::string& source,
           LeftOut* leftOut)
        : m_idict(idict), m_text(text), m_source(source), m_leftOut(leftOut),
          m_root(nullptr, TreeDeleter{&idict}), m_progress("reading " + source, text.size()) {}

    OwnedTree load() {
        scanJson(m_text, m_source, *this);
        return std::move(m_root);
    }

    void onName(std::string& name, TextRange range) override {
        m_levels.back().name = std::move(name);
        m_levels.back().nameBegin = range.begin;
    }

    void onBegin(JsonContainer container, size_t bracketAt) override {
        const bool isWanted = _beginPlace(bracketAt);
        Item* item = isWanted ? _create(ItemType::eDictionary) : nullptr;
        m_levels.push_back({item, container == JsonContainer::eArray, 0, "", 0});
    }

    void onEnd(size_t) override {
        m_levels.pop_back();
    }

    void onScalar(JsonScalar& scalar, TextRange range) override {
        if (!_beginPlace(range.begin)) {
            return;
        }
        if (const char* problem = _problemOf(scalar)) {
            _leaveOut(problem, range.begin);
            return;
        }
        if (const auto* flag = std::get_if<bool>(&scalar)) {
            m_idict.setBool(_create(ItemType::eBool), *flag);
        } else if (const auto* integer = std::get_if<int64_t>(&scalar)) {
            m_idict.setInt64(_create(ItemType::eInt), *integer);
        } else if (const auto* number = std::get_if<double>(&scalar)) {
            m_idict.setFloat64(_create(ItemType::eFloat), *number);
        } else if (const auto* text = std::get_if<std::string>(&scalar)) {
            m_idict.setString(_create(ItemType::eString), text->c_str());
        }
    }

private:
    struct Level {
        Item* item; // null below something that is left out
        bool isArray;
        size_t elementCount;
        std::string name; // of the member at hand
        size_t nameBegin;
    };

    // Settles name and place of the value at hand; false when nothing is to be made of it.
    bool _beginPlace(size_t valueBegin) {
        m_progress.reached(valueBegin);
        if (m_levels.empty()) {
            return true;
        }
        Level& level = m_levels.back();
        if (level.isArray) {
            level.name = std::to_string(level.elementCount++);
            level.nameBegin = valueBegin;
        }
        if (!level.item) {
            return false;
        }
        if (const char* problem = _problemOf(level.name)) {
            _leaveOut(problem, level.nameBegin);
            return false;
        }
        if (Item* earlier = m_idict.getItemMutable(level.item, level.name.c_str())) {
            _leaveOut("repeated name", level.nameBegin);
            m_idict.destroyItem(earlier);
        }
        return true;
    }

    static const char* _problemOf(const std::string& name) {
        if (name.empty()) {
            return "empty name";
        }
        if (name.find('/') != std::string::npos) {
            return "name with \"/\"";
        }
        return hasZeroCharacter(name) ? "name with a zero character" : nullptr;
    }

    static const char* _problemOf(const JsonScalar& scalar) {
        if (std::holds_alternative<std::nullptr_t>(scalar)) {
            return "null";
        }
        if (std::holds_alternative<BigInteger>(scalar)) {
            return "integer past 64 bits";
        }
        const auto* text = std::get_if<std::string>(&scalar);
        return text && hasZeroCharacter(*text) ? "text with a zero character" : nullptr;
    }

    void _leaveOut(const std::string& problem, size_t at) {
        const std::string expected =
            "expected no " + problem + (m_levels.empty() ? "" : " at " + _path());
        if (!m_leftOut) {
            throw ToolError(ExitCode::eBadInput, "cannot be a setting",
                            placeText(m_source, m_text, at), expected, excerptAt(m_text, at));
        }
        if (m_leftOut->count++ == 0) {
            m_leftOut->first = placeText(m_source, m_text, at) + ": " + expected;
        }
    }

    std::string _path() const {
        std::string path = "/";
        for (const Level& level : m_levels) {
            path = childPathText(path, level.name);
        }
        return path;
    }

    Item* _create(ItemType type) {
        Item* item = m_levels.empty() ? m_idict.createItem(nullptr, kRootName, type)
                                      : m_idict.createItem(m_levels.back().item,
                                                           m_levels.back().name.c_str(), type);
        if (!item) {
            throw std::bad_alloc();
        }
        if (m_levels.empty()) {
            m_root.reset(item);
        }
        return item;
    }

    const IDictionary& m_idict;
    std::string_view m_text;
    const std::string& m_source;
    LeftOut* m_leftOut;
    OwnedTree m_root;
    Progress m_progress;
    std::vector<Level> m_levels;
};

} // namespace

OwnedTree loadTree(const IDictionary& idict,
                   std::string_view text,
                   const std::string& source,
                   LeftOut* leftOut) {
    return Loader(idict, text, source, leftOut).load();
}

} // namespace vorn::tool
