// Watching settings.
#include "Watch.h"

namespace vorn::tool {

using settings::ChangeEventType;

namespace {

// Stands for an inner node, whose children are told of by themselves.
constexpr const char* kInnerNode = "{}";

} // namespace

Watch::Watch(const Store& store, Output& output, const SettingsPath& path, bool isJson)
    : m_store(store), m_output(output), m_path(path), m_isJson(isJson) {
    _remember(store.find(path));
    const std::string storePath = Store::storePath(path);
    m_nodeSubscription = store.settings().subscribeToNodeChangeEvents(
        storePath.c_str(),
        [](const Item* item, ChangeEventType type, void* self) {
            static_cast<Watch*>(self)->_onEvent(item, type);
        },
        this);
    m_treeSubscription = store.settings().subscribeToTreeChangeEvents(
        storePath.c_str(),
        [](const Item*, const Item* item, ChangeEventType type, void* self) {
            static_cast<Watch*>(self)->_onEvent(item, type);
        },
        this);
}

Watch::~Watch() {
    m_store.settings().unsubscribeToChangeEvents(m_nodeSubscription);
    m_store.settings().unsubscribeToChangeEvents(m_treeSubscription);
}

void Watch::_remember(const Item* item) {
    if (!item) {
        return;
    }
    m_known[m_store.pathText(item)] = _valueOf(item);
    for (const Item* child : childrenOf(m_store.idict(), item)) {
        _remember(child);
    }
}

// Also forgets what was below: a node that became a value has lost it without an event.
void Watch::_forget(const std::string& path) {
    m_known.erase(path);
    const std::string below = childPathText(path, "");
    for (auto known = m_known.lower_bound(below);
         known != m_known.end() && known->first.starts_with(below);) {
        known = m_known.erase(known);
    }
}

std::string Watch::_valueOf(const Item* item) const {
    return isDictionary(m_store.idict(), item) ? kInnerNode : jsonText(m_store.idict(), item);
}

void Watch::_onEvent(const Item* item, ChangeEventType type) {
    if (!item) {
        return; // created and already gone again
    }
    Change change = {m_store.pathText(item), {}, {}};
    if (const auto known = m_known.find(change.path); known != m_known.end()) {
        change.before = known->second;
    }
    if (type == ChangeEventType::eDestroyed) {
        m_known.erase(change.path);
        _report("destroyed", change);
        return;
    }
    change.after = _valueOf(item);
    if (change.after != kInnerNode) {
        _forget(change.path);
    }
    m_known[change.path] = *change.after;
    _report(change.before ? "changed" : "created", change);
}

void Watch::_report(const std::string& kind, const Change& change) {
    const bool isInner = change.before.value_or(kInnerNode) == kInnerNode &&
                         change.after.value_or(kInnerNode) == kInnerNode;
    if (m_isJson) {
        m_output.line("{\"event\":\"" + kind + "\"," + Output::changeJson(change) + "}");
    } else if (isInner) {
        m_output.line(kind + " " + childPathText(change.path, ""));
    } else {
        m_output.line(kind + " " + m_output.changeText(change));
    }
}

} // namespace vorn::tool
