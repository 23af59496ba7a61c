// Full paths, the node step and the tree step.
#include "ChangeDispatch.h"

#include <vector>

namespace vorn::settings {

namespace {

using dictionary::Item;

// Calls use(names, count) for the names from a node up to just below the root, as the dictionary
// service keeps them, but for empty ones at the node's end. That of the root itself is one empty
// name.
template <class Use>
void withNamesUpwards(const Item* item, const Item* root, Use use) {
    constexpr size_t kNearDepth = 32;
    const char* near[kNearDepth];
    std::vector<const char*> far; // all of them, when they are more
    const dictionary::IDictionary* dictionary = g_idictionary;
    size_t count = 0;
    const Item* node = item;
    for (; node && node != root && count < kNearDepth; node = dictionary->getItemParent(node)) {
        near[count++] = dictionary->getItemName(node);
    }
    const char* const* names = near;
    if (node && node != root) [[unlikely]] {
        far.assign(near, near + count);
        for (; node && node != root; node = dictionary->getItemParent(node)) {
            far.push_back(dictionary->getItemName(node));
        }
        names = far.data();
        count = far.size();
    }
    for (; count > 0 && names[0][0] == '\0'; --count) {
        ++names;
    }
    if (item && count == 0) {
        near[0] = "";
        names = near;
        count = 1;
    }
    use(names, count);
}

using Type = SubscriptionId::Type;

// The node step.
void triggerNodeChangeCallback(const Item* item,
                               ChangeEventType eventType,
                               const SubscribedPaths::Way& way) {
    if (way.nearestDepth() == way.depth()) {
        way.nearest()->visit(Type::eNode, [&](const SubscriptionId& id) {
            id.onNodeChangeEventFn(item, eventType, id.userData);
        });
    }
}

// The tree step: from the node around it to that farthest out, but for the root of the settings.
// Whatever the callbacks of a path do, those around it have their nodes already.
void triggerTreeChangeCallback(const Item* item,
                               ChangeEventType eventType,
                               const SubscribedPaths::Way& way) {
    const dictionary::IDictionary* dictionary = g_idictionary;
    const Item* itemToReport = item;
    const auto climb = [&] {
        itemToReport = itemToReport ? dictionary->getItemParent(itemToReport) : nullptr;
    };
    const SubscribedPath* path = way.nearest();
    size_t depth = way.depth();
    for (; depth > way.nearestDepth() + 1; --depth) {
        climb();
    }
    if (depth == way.nearestDepth()) {
        path = path->parent;
    }
    for (; depth > 0; --depth) {
        climb();
        path->visit(Type::eTree, [&](const SubscriptionId& id) {
            id.onTreeChangeEventFn(itemToReport, item, eventType, id.userData);
        });
        path = path->parent;
    }
}

// Both steps. Whether there are tree subscriptions is asked late, so that one made by a callback of
// the node step counts.
void triggerCallbacks(const Item* item,
                      ChangeEventType eventType,
                      const SubscribedPaths::Way& way) {
    const SubscribedPaths::Visit visit(way);
    triggerNodeChangeCallback(item, eventType, way);
    if (!g_treeChangeEventsSubscriptions.empty()) {
        triggerTreeChangeCallback(item, eventType, way);
    }
}

} // namespace

void getFullPath(MflString* fullPath, const Item* item, const Item* root) {
    if (!fullPath) {
        return;
    }
    fullPath->clear();
    withNamesUpwards(item, root, [&](const char* const* names, size_t count) {
        while (count > 0) {
            fullPath->append(1, '/').append(names[--count]);
        }
    });
}

// Every write that somebody watches comes here: all of it in one function.
[[gnu::flatten]] void sendEvent(const Item* item, ChangeEventType eventType) {
    SubscribedPaths::Way way(g_subscribedPaths);
    withNamesUpwards(item, g_modifiedSettingsRoot, [&](const char* const* names, size_t count) {
        way.goBackwards(names, count);
    });
    triggerCallbacks(item, eventType, way);
}

void triggerAllChangeCallbacksFromPath(const char* fullpath, ChangeEventType eventType) {
    if (!isAnyoneSubscribed()) {
        return;
    }
    const Item* item = g_idictionary->getItem(g_modifiedSettingsRoot, fullpath + 1);
    SubscribedPaths::Way way(g_subscribedPaths);
    way.go(fullpath + 1);
    triggerCallbacks(item, eventType, way);
}

} // namespace vorn::settings
