// Full paths, the node step and the tree step.
#include "ChangeDispatch.h"

#include <algorithm>
#include <array>
#include <memory>
#include <vector>

namespace vorn::settings {

namespace {

using dictionary::Item;

class SubscriptionSnapshot;

// The snapshot that this thread walks, or null. A plain pointer, since a thread-local object with
// a destructor would keep the library in memory after it is unloaded.
constinit thread_local SubscriptionSnapshot* t_innermostSnapshot = nullptr;

// The subscriptions of one path as they were when its turn came. Snapshots that are being walked
// form a chain through the stack of their thread, so that unsubscribing reaches all of them.
class SubscriptionSnapshot {
public:
    explicit SubscriptionSnapshot(const ChangeEventsSubscriptions::Group& group)
        : m_subscriptionsToTrigger(_reserve(group.size())),
          m_end(m_subscriptionsToTrigger + group.size()), m_outer(t_innermostSnapshot) {
        group.copyNewestFirst(m_subscriptionsToTrigger);
        t_innermostSnapshot = this;
    }
    ~SubscriptionSnapshot() {
        t_innermostSnapshot = m_outer;
    }
    SubscriptionSnapshot(const SubscriptionSnapshot&) = delete;
    SubscriptionSnapshot& operator=(const SubscriptionSnapshot&) = delete;

    // The next subscription that still exists, or null after the last.
    const SubscriptionId* takeNext() {
        while (m_subscriptionsToTrigger != m_end) {
            if (const SubscriptionId* subscription = *m_subscriptionsToTrigger++) {
                return subscription;
            }
        }
        return nullptr;
    }

    // In this snapshot and those around it.
    void strikeOut(SubscriptionId* subscription) {
        constexpr SubscriptionId* kStruckOut = nullptr;
        for (SubscriptionSnapshot* snapshot = this; snapshot; snapshot = snapshot->m_outer) {
            std::replace(snapshot->m_subscriptionsToTrigger, snapshot->m_end, subscription,
                         kStruckOut);
        }
    }

private:
    static constexpr size_t kMaxSubscriptionsToTriggerStatic = 16;

    SubscriptionId** _reserve(size_t count) {
        if (count < kMaxSubscriptionsToTriggerStatic) {
            return m_subscriptionsToTriggerStatic;
        }
        m_subscriptionsToTriggerDynamic = std::make_unique<SubscriptionId*[]>(count);
        return m_subscriptionsToTriggerDynamic.get();
    }

    SubscriptionId* m_subscriptionsToTriggerStatic[kMaxSubscriptionsToTriggerStatic];
    std::unique_ptr<SubscriptionId*[]> m_subscriptionsToTriggerDynamic;
    SubscriptionId** m_subscriptionsToTrigger; // those that still wait
    SubscriptionId** m_end;
    SubscriptionSnapshot* m_outer;
};

// The names of the nodes met on the way up from a node. Kept in place at the usual depth.
class ClimbedNames {
public:
    // A name that is empty leaves no trace at the end of a path.
    void add(std::string_view name) {
        if (name.empty() && m_pathLength == 0) {
            return;
        }
        if (m_nearCount < m_near.size()) {
            m_near[m_nearCount++] = name;
        } else {
            m_far.push_back(name);
        }
        m_pathLength += 1 + name.size();
    }

    // From the last name to the first, a "/" in front of each; "/" alone when there are none.
    void composePath(MflString& path) const {
        if (m_pathLength == 0) {
            path.push_back('/');
            return;
        }
        path.reserve(m_pathLength);
        const auto append = [&](std::string_view name) { path.append(1, '/').append(name); };
        std::for_each(m_far.rbegin(), m_far.rend(), append);
        for (size_t i = m_nearCount; i > 0; --i) {
            append(m_near[i - 1]);
        }
    }

private:
    std::array<std::string_view, 16> m_near;
    size_t m_nearCount = 0;
    std::vector<std::string_view> m_far;
    size_t m_pathLength = 0;
};

template <class Call>
void forEachSubscription(const ChangeEventsSubscriptions& subscriptions,
                         const HashedPath& path,
                         Call call) {
    if (const ChangeEventsSubscriptions::Group* group = subscriptions.find(path)) {
        SubscriptionSnapshot snapshot(*group);
        while (const SubscriptionId* subscription = snapshot.takeNext()) {
            call(*subscription);
        }
    }
}

// The node step.
void triggerNodeChangeCallback(const Item* item,
                               ChangeEventType eventType,
                               const HashedPath& fullPath) {
    forEachSubscription(g_changeEventsSubscriptions, fullPath, [&](const SubscriptionId& id) {
        id.onNodeChangeEventFn(item, eventType, id.userData);
    });
}

// One path of the tree step: item is the enclosing node, originalItem the node of the event.
void triggerCustomTreeChangeCallbacks(const Item* item,
                                      const Item* originalItem,
                                      ChangeEventType eventType,
                                      const HashedPath& fullPath) {
    forEachSubscription(g_treeChangeEventsSubscriptions, fullPath, [&](const SubscriptionId& id) {
        id.onTreeChangeEventFn(item, originalItem, eventType, id.userData);
    });
}

// The tree step: cuts the path back to that of the node around it, time after time. The root of
// the settings, whose path is then empty, is left out.
void triggerTreeChangeCallback(const Item* item, ChangeEventType eventType, HashedPath path) {
    const Item* itemToReport = item;
    while (!path.path().empty()) {
        if (path.removeLast() != '/') {
            continue;
        }
        if (itemToReport) {
            itemToReport = g_idictionary->getItemParent(itemToReport);
        }
        if (path.path().size() > 1) {
            triggerCustomTreeChangeCallbacks(itemToReport, item, eventType, path);
        }
    }
}

// Both steps. Whether there are tree subscriptions is asked late, so that one made by a callback of
// the node step counts.
void triggerCallbacks(const Item* item, ChangeEventType eventType, const HashedPath& fullPath) {
    triggerNodeChangeCallback(item, eventType, fullPath);
    if (!g_treeChangeEventsSubscriptions.empty()) {
        triggerTreeChangeCallback(item, eventType, fullPath);
    }
}

} // namespace

void getFullPath(MflString* fullPath, const Item* item, const Item* root) {
    if (!fullPath) {
        return;
    }
    fullPath->clear();
    if (!item) {
        return;
    }
    ClimbedNames names;
    for (const Item* node = item; node && node != root; node = g_idictionary->getItemParent(node)) {
        names.add(g_idictionary->getItemName(node));
    }
    names.composePath(*fullPath);
}

void triggerAllChangeCallbacks(const Item* item, ChangeEventType eventType) {
    if (!isAnyoneSubscribed()) {
        return;
    }
    MflString fullPath;
    getFullPath(&fullPath, item, g_modifiedSettingsRoot);
    triggerCallbacks(item, eventType, HashedPath(fullPath));
}

void triggerAllChangeCallbacksFromPath(const char* fullpath, ChangeEventType eventType) {
    if (!isAnyoneSubscribed()) {
        return;
    }
    const char* pathWithoutSlash = *fullpath == '/' ? fullpath + 1 : fullpath;
    const Item* item = g_idictionary->getItem(g_modifiedSettingsRoot, pathWithoutSlash);
    triggerCallbacks(item, eventType, HashedPath(fullpath));
}

void strikeOutOfDispatches(SubscriptionId* subscriptionId) {
    if (t_innermostSnapshot) {
        t_innermostSnapshot->strikeOut(subscriptionId);
    }
}

} // namespace vorn::settings
