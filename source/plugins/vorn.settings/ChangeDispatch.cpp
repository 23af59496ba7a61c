// Full paths, the node step and the tree step.
#include "ChangeDispatch.h"

#include <cstring>

namespace vorn::settings {

namespace {

using dictionary::Item;

// The full path of a node, composed from its end while climbing. Of usual length it lies in the
// object itself.
class FullPath {
public:
    FullPath(const Item* item, const Item* root) {
        if (!item) {
            return;
        }
        for (const Item* node = item; node && node != root;
             node = g_idictionary->getItemParent(node)) {
            const char* name = g_idictionary->getItemName(node);
            const size_t length = std::strlen(name);
            _makeRoom(length + 2);
            if (m_begin != m_end) {
                *--m_begin = '/';
            }
            m_begin -= length;
            std::memcpy(m_begin, name, length);
        }
        *--m_begin = '/';
    }
    FullPath(const FullPath&) = delete;
    FullPath& operator=(const FullPath&) = delete;

    std::string_view view() const {
        return {m_begin, static_cast<size_t>(m_end - m_begin)};
    }

private:
    static constexpr size_t kNearCapacity = 256;

    void _makeRoom(size_t length) {
        const std::string_view composed = view();
        if (static_cast<size_t>(m_begin - m_storage) >= length) [[likely]] {
            return;
        }
        MflString larger(2 * (composed.size() + length), '\0');
        larger.replace(larger.size() - composed.size(), composed.size(), composed);
        m_far = std::move(larger);
        m_storage = m_far.data();
        m_end = m_storage + m_far.size();
        m_begin = m_end - composed.size();
    }

    char m_near[kNearCapacity];
    MflString m_far;
    char* m_storage = m_near;
    char* m_end = m_near + kNearCapacity;
    char* m_begin = m_end;
};

using Visitor = ChangeEventsSubscriptions::Visitor;

// The node step.
void triggerNodeChangeCallback(Visitor& visitor,
                               const Item* item,
                               ChangeEventType eventType,
                               const HashedPath& fullPath) {
    if (!g_changeEventsSubscriptions.empty()) {
        g_changeEventsSubscriptions.visit(visitor, fullPath, [&](const SubscriptionId& id) {
            id.onNodeChangeEventFn(item, eventType, id.userData);
        });
    }
}

// One path of the tree step: item is the enclosing node, originalItem the node of the event.
void triggerCustomTreeChangeCallbacks(Visitor& visitor,
                                      const Item* item,
                                      const Item* originalItem,
                                      ChangeEventType eventType,
                                      const HashedPath& fullPath) {
    g_treeChangeEventsSubscriptions.visit(visitor, fullPath, [&](const SubscriptionId& id) {
        id.onTreeChangeEventFn(item, originalItem, eventType, id.userData);
    });
}

// The tree step: cuts the path back to that of the node around it, time after time. The root of
// the settings, whose path is then empty, is left out.
void triggerTreeChangeCallback(Visitor& visitor,
                               const Item* item,
                               ChangeEventType eventType,
                               HashedPath& path) {
    const Item* itemToReport = item;
    while (path.cutLast()) {
        if (itemToReport) {
            itemToReport = g_idictionary->getItemParent(itemToReport);
        }
        if (path.path().size() > 1) {
            triggerCustomTreeChangeCallbacks(visitor, itemToReport, item, eventType, path);
        }
    }
}

// Both steps. Whether there are tree subscriptions is asked late, so that one made by a callback of
// the node step counts.
void triggerCallbacks(const Item* item, ChangeEventType eventType, std::string_view fullPath) {
    Visitor visitor;
    HashedPath path(fullPath);
    triggerNodeChangeCallback(visitor, item, eventType, path);
    if (!g_treeChangeEventsSubscriptions.empty()) {
        triggerTreeChangeCallback(visitor, item, eventType, path);
    }
}

} // namespace

void getFullPath(MflString* fullPath, const Item* item, const Item* root) {
    if (fullPath) {
        *fullPath = FullPath(item, root).view();
    }
}

void sendEvent(const Item* item, ChangeEventType eventType) {
    const FullPath fullPath(item, g_modifiedSettingsRoot);
    triggerCallbacks(item, eventType, fullPath.view());
}

void triggerAllChangeCallbacksFromPath(const char* fullpath, ChangeEventType eventType) {
    if (!isAnyoneSubscribed()) {
        return;
    }
    const Item* item = g_idictionary->getItem(g_modifiedSettingsRoot, fullpath + 1);
    triggerCallbacks(item, eventType, fullpath);
}

} // namespace vorn::settings
