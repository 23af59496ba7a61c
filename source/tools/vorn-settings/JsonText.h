// JSON text that is edited in place: what is not touched stays as it is written, byte for byte -
// order, blanks, the form of numbers, and everything that a tree of settings cannot hold.
#pragma once

#include "SettingsPath.h"

#include <cstddef>
#include <deque>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace vorn::tool {

class JsonText {
public:
    // Throws as scanJson does.
    JsonText(const std::string& text, const std::string& source);

    JsonText(const JsonText&) = delete;
    JsonText& operator=(const JsonText&) = delete;

    // Puts the value at path, with the objects that are missing on the way; a value on the way
    // becomes an object. An array that gets a member which is not its next element becomes an
    // object of its elements by index. Of members of one name the last is meant.
    void set(const SettingsPath& path, const nlohmann::ordered_json& value);

    // Takes out what is at path, all members of one name; false when there is nothing. An array
    // that loses an element before its last becomes an object, so that the others keep their paths.
    bool remove(const SettingsPath& path);

    // The text with the edits.
    std::string text() const;

private:
    enum class Kind { eScalar, eObject, eArray };

    struct Member;
    using NameIndex = std::unordered_map<std::string, size_t>;

    // A value. All views are into m_texts.
    struct Node {
        Kind kind = Kind::eScalar;
        std::string_view text; // as written; holds as long as nothing below has changed
        std::vector<Member> members;
        std::unique_ptr<NameIndex> index; // of a wide object that has lost no member
        bool hasLostMember = false;
        bool isChanged = false;
    };

    // A value in its container: lead, head, value, tail, and then a comma or the closing bracket.
    struct Member {
        std::string name;      // of an object's member
        std::string_view lead; // blanks
        std::string_view head; // quoted name and colon
        Node value;
        std::string_view tail; // blanks
    };

    class Cutter;

    Node _cut(std::string text, const std::string& source);
    std::string_view _keep(std::string text);
    void _learnForm();

    static size_t _findInObject(Node& object, const std::string& name);
    static Member* _find(Node& container, const std::string& name);
    Node& _add(Node& container, const std::string& name, bool isInOneLine, size_t depth);
    static bool _standsInOneLine(const Node& node);
    void _remove(Node& container, Member* member);
    void _makeObject(Node& array);

    std::string _indentation(size_t depth) const;
    std::string _format(const nlohmann::ordered_json& value, bool isInOneLine, size_t depth) const;
    static void _append(std::string& out, const Node& node);

    std::deque<std::string> m_texts; // the source and what edits add, at addresses that stay
    Node m_root;
    std::string_view m_before; // what stands around the root
    std::string_view m_after;

    // The form of the source, for what edits add.
    std::string m_newline; // empty when all stands in one line
    std::string m_indent;  // of one level
    std::string m_colon;   // with the blanks around it
};

} // namespace vorn::tool
