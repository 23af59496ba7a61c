// Full paths, the node step and the tree step.
#include "ChangeDispatch.h"

#include <vector>

namespace vorn::settings {

namespace {

using dictionary::Item;

// Puts the full path of a node together. The root's own is "/", that of no node is empty.
void composeFullPath(HashedPath& fullPath, const Item* item, const Item* root) {
    constexpr size_t kNearDepth = 32;
    const char* names[kNearDepth]; // from the node up
    size_t depth = 0;
    std::vector<const char*> farNames; // above those
    for (const Item* node = item; node && node != root; node = g_idictionary->getItemParent(node)) {
        const char* name = g_idictionary->getItemName(node);
        if (depth < kNearDepth) [[likely]] {
            names[depth++] = name;
        } else {
            farNames.push_back(name);
        }
    }
    if (item && depth == 0) {
        names[depth++] = "";
    }
    if (!farNames.empty()) [[unlikely]] {
        fullPath.appendBackwards(farNames.data(), farNames.size());
    }
    fullPath.appendBackwards(names, depth);
}

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
void triggerCallbacks(const Item* item, ChangeEventType eventType, HashedPath& path) {
    Visitor visitor;
    triggerNodeChangeCallback(visitor, item, eventType, path);
    if (!g_treeChangeEventsSubscriptions.empty()) {
        triggerTreeChangeCallback(visitor, item, eventType, path);
    }
}

} // namespace

void getFullPath(MflString* fullPath, const Item* item, const Item* root) {
    if (fullPath) {
        HashedPath path;
        composeFullPath(path, item, root);
        *fullPath = path.path();
    }
}

void sendEvent(const Item* item, ChangeEventType eventType) {
    HashedPath fullPath;
    composeFullPath(fullPath, item, g_modifiedSettingsRoot);
    triggerCallbacks(item, eventType, fullPath);
}

void triggerAllChangeCallbacksFromPath(const char* fullpath, ChangeEventType eventType) {
    if (!isAnyoneSubscribed()) {
        return;
    }
    const Item* item = g_idictionary->getItem(g_modifiedSettingsRoot, fullpath + 1);
    HashedPath path{std::string_view(fullpath)};
    triggerCallbacks(item, eventType, path);
}

} // namespace vorn::settings
