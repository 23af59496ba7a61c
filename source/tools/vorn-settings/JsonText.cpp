// Editing JSON text in place.
//
// The text is cut into a tree of nodes that point into it. An edit replaces nodes and marks the
// containers above as changed; writing the text out copies an unchanged node as it stands and puts
// a changed container together from its members and the blanks around them.
#include "JsonText.h"

#include "JsonScanner.h"

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>

namespace vorn::tool {

using nlohmann::ordered_json;

namespace {

constexpr size_t kWide = 100; // members from which on looking through them all is too slow

// The value on one line, with the gap after commas and colons.
std::string inOneLine(const ordered_json& value, const std::string& gap) {
    if (!value.is_structured()) {
        return value.dump();
    }
    std::string text;
    for (const auto& member : value.items()) {
        text += text.empty() ? "" : "," + gap;
        text += value.is_object() ? ordered_json(member.key()).dump() + ":" + gap : "";
        text += inOneLine(member.value(), gap);
    }
    return value.is_object() ? "{" + text + "}" : "[" + text + "]";
}

} // namespace

// ---------------------------------------------------------------------------------------------
// Cutting

class JsonText::Cutter : public JsonEvents {
public:
    explicit Cutter(std::string_view text) : m_text(text) {}

    Node takeRoot() {
        return std::move(m_root);
    }

    void onName(std::string& name, TextRange range) override {
        _beginMember(range.begin);
        m_open.back().node.members.back().name = std::move(name);
    }

    void onBegin(JsonContainer container, size_t bracketAt) override {
        _beginValue(bracketAt);
        Node node;
        node.kind = container == JsonContainer::eArray ? Kind::eArray : Kind::eObject;
        m_open.push_back({std::move(node), bracketAt});
        m_end = bracketAt + 1;
    }

    void onEnd(size_t bracketAt) override {
        Level level = std::move(m_open.back());
        m_open.pop_back();
        if (!level.node.members.empty()) {
            level.node.members.back().tail = _slice(m_end, bracketAt);
        }
        level.node.text = _slice(level.begin, bracketAt + 1);
        _place(std::move(level.node), bracketAt + 1);
    }

    void onScalar(JsonScalar&, TextRange range) override {
        _beginValue(range.begin);
        Node node;
        node.text = _slice(range.begin, range.end);
        _place(std::move(node), range.end);
    }

private:
    struct Level {
        Node node;
        size_t begin;
    };

    std::string_view _slice(size_t begin, size_t end) const {
        return m_text.substr(begin, end - begin);
    }

    // Opens a member; the blanks and the comma before it are shared out to it and the one before.
    void _beginMember(size_t begin) {
        std::vector<Member>& members = m_open.back().node.members;
        if (!members.empty()) {
            const size_t comma = m_text.find(',', m_end);
            members.back().tail = _slice(m_end, comma);
            m_end = comma + 1;
        }
        members.emplace_back().lead = _slice(m_end, begin);
        m_end = begin;
    }

    // An element begins with its value, an object's member with its name.
    void _beginValue(size_t begin) {
        if (m_open.empty()) {
            return;
        }
        if (m_open.back().node.kind == Kind::eArray) {
            _beginMember(begin);
        } else {
            m_open.back().node.members.back().head = _slice(m_end, begin);
        }
    }

    void _place(Node node, size_t end) {
        m_end = end;
        (m_open.empty() ? m_root : m_open.back().node.members.back().value) = std::move(node);
    }

    std::string_view m_text;
    Node m_root;
    std::vector<Level> m_open;
    size_t m_end = 0; // of what has been dealt with
};

JsonText::Node JsonText::_cut(std::string text, const std::string& source) {
    const std::string_view kept = _keep(std::move(text));
    Cutter cutter(kept);
    scanJson(kept, source, cutter);
    return cutter.takeRoot();
}

std::string_view JsonText::_keep(std::string text) {
    return m_texts.emplace_back(std::move(text));
}

JsonText::JsonText(const std::string& text, const std::string& source)
    : m_root(_cut(text, source)) {
    const std::string& kept = m_texts.front();
    m_before = std::string_view(kept.data(), m_root.text.data());
    m_after = std::string_view(kept).substr(m_before.size() + m_root.text.size());
    _learnForm();
}

void JsonText::_learnForm() {
    m_newline = m_texts.front().find("\r\n") != std::string::npos ? "\r\n" : "\n";
    m_indent = "  ";
    m_colon = ": ";
    const Node* node = &m_root;
    if (!node->members.empty()) {
        const std::string_view lead = node->members.front().lead;
        const size_t newline = lead.rfind('\n');
        if (newline == std::string_view::npos) {
            m_newline.clear();
            m_colon = ":";
        } else {
            m_indent = lead.substr(newline + 1);
        }
    }
    while (node->kind == Kind::eArray && !node->members.empty()) {
        node = &node->members.front().value;
    }
    if (!node->members.empty()) {
        const std::string_view head = node->members.front().head;
        m_colon = head.substr(head.rfind('"') + 1);
    }
}

// ---------------------------------------------------------------------------------------------
// Editing

void JsonText::set(const SettingsPath& path, const ordered_json& value) {
    Node* node = &m_root;
    size_t depth = 0;
    bool isInOneLine = m_newline.empty();
    for (const std::string& name : path.names()) {
        isInOneLine = isInOneLine || _standsInOneLine(*node);
        if (node->kind == Kind::eScalar) {
            *node = _cut("{}", path.text());
        }
        node->isChanged = true;
        Member* member = _find(*node, name);
        node = member ? &member->value : &_add(*node, name, isInOneLine, depth);
        ++depth;
    }
    isInOneLine = isInOneLine || _standsInOneLine(*node);
    *node = _cut(_format(value, isInOneLine, depth), path.text());
}

bool JsonText::remove(const SettingsPath& path) {
    if (path.isRoot()) {
        m_root = _cut("{}", path.text());
        return true;
    }
    std::vector<Node*> containers;
    Node* node = &m_root;
    Member* member = nullptr;
    for (const std::string& name : path.names()) {
        containers.push_back(node);
        member = _find(*node, name);
        if (!member) {
            return false;
        }
        node = &member->value;
    }
    for (Node* container : containers) {
        container->isChanged = true;
    }
    while (member) { // an object may have a name more than once
        _remove(*containers.back(), member);
        member = _find(*containers.back(), path.names().back());
    }
    return true;
}

// The place of the last member of that name; the number of members when there is none.
size_t JsonText::_findInObject(Node& object, const std::string& name) {
    const std::vector<Member>& members = object.members;
    if (members.size() < kWide || object.hasLostMember) {
        const auto found =
            std::find_if(members.rbegin(), members.rend(),
                         [&name](const Member& member) { return member.name == name; });
        return found == members.rend() ? members.size() : members.rend() - found - 1;
    }
    if (!object.index) {
        object.index = std::make_unique<NameIndex>();
        for (size_t place = 0; place < members.size(); ++place) {
            (*object.index)[members[place].name] = place;
        }
    }
    const auto found = object.index->find(name);
    return found == object.index->end() ? members.size() : found->second;
}

JsonText::Member* JsonText::_find(Node& container, const std::string& name) {
    std::vector<Member>& members = container.members;
    size_t place = members.size();
    if (container.kind == Kind::eArray) {
        std::from_chars(name.data(), name.data() + name.size(), place);
        place = name == std::to_string(place) ? place : members.size();
    } else {
        place = _findInObject(container, name);
    }
    return place < members.size() ? &members[place] : nullptr;
}

bool JsonText::_standsInOneLine(const Node& node) {
    return !node.members.empty() && node.text.find('\n') == std::string_view::npos;
}

JsonText::Node&
JsonText::_add(Node& container, const std::string& name, bool isInOneLine, size_t depth) {
    std::vector<Member>& members = container.members;
    if (container.kind == Kind::eArray && name != std::to_string(members.size())) {
        _makeObject(container);
    }
    if (container.index) {
        container.index->emplace(name, members.size());
    }
    Member member;
    member.name = name;
    if (container.kind == Kind::eObject) {
        member.head = _keep(ordered_json(name).dump() + m_colon);
    }
    if (members.empty() && !isInOneLine) {
        member.lead = _keep(_indentation(depth + 1));
        member.tail = _keep(_indentation(depth));
    } else if (!members.empty()) {
        const bool isAlone = members.size() == 1;
        member.lead = isAlone ? members[0].lead : members[1].lead;
        if (isAlone && member.lead.empty() && m_colon.ends_with(' ')) {
            member.lead = " ";
        }
        member.tail = std::exchange(members.back().tail, {});
    }
    return members.emplace_back(std::move(member)).value;
}

void JsonText::_remove(Node& container, Member* member) {
    std::vector<Member>& members = container.members;
    const auto at = members.begin() + (member - members.data());
    const bool isFirst = at == members.begin();
    const bool isLast = at + 1 == members.end();
    if (!isLast && container.kind == Kind::eArray) {
        _makeObject(container);
    }
    if (isFirst && !isLast) {
        (at + 1)->lead = at->lead;
    }
    if (isLast && !isFirst) {
        (at - 1)->tail = at->tail;
    }
    members.erase(at);
    container.index.reset();
    container.hasLostMember = true;
}

void JsonText::_makeObject(Node& array) {
    array.kind = Kind::eObject;
    for (size_t index = 0; index < array.members.size(); ++index) {
        Member& member = array.members[index];
        member.name = std::to_string(index);
        member.head = _keep("\"" + member.name + "\"" + m_colon);
    }
}

// ---------------------------------------------------------------------------------------------
// Writing

std::string JsonText::_indentation(size_t depth) const {
    std::string text = m_newline;
    for (size_t level = 0; level < depth; ++level) {
        text += m_indent;
    }
    return text;
}

std::string JsonText::_format(const ordered_json& value, bool isInOneLine, size_t depth) const {
    if (isInOneLine) {
        return inOneLine(value, m_colon.ends_with(' ') ? " " : "");
    }
    const char blank = m_indent.starts_with('\t') ? '\t' : ' ';
    std::string text = value.dump(static_cast<int>(m_indent.size()), blank);
    const std::string newline = _indentation(depth);
    for (size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at += newline.size()) {
        text.replace(at, 1, newline);
    }
    return text;
}

void JsonText::_append(std::string& out, const Node& node) {
    if (!node.isChanged) {
        out += node.text;
        return;
    }
    out += node.kind == Kind::eObject ? '{' : '[';
    for (size_t index = 0; index < node.members.size(); ++index) {
        const Member& member = node.members[index];
        out += index > 0 ? "," : "";
        out += member.lead;
        out += member.head;
        _append(out, member.value);
        out += member.tail;
    }
    out += node.kind == Kind::eObject ? '}' : ']';
}

std::string JsonText::text() const {
    std::string out(m_before);
    _append(out, m_root);
    out += m_after;
    return out;
}

} // namespace vorn::tool
