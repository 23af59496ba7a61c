// Tells subscribers about changes of the tree: the subscribers of the node first, then those of
// the subtrees around it, from the nearest to the farthest; within one path newest first.
//
// Threads: callbacks run on the calling thread with no lock held. They may read, write, subscribe
// and unsubscribe; a subscription that goes away while it waits to be called is not called. What
// they must not do is destroy the node that is being told about or one around it: the tree
// step climbs from it when the callbacks have run.
#pragma once

#include "State.h"

namespace vorn::settings {

// Writes the full path of item into *fullPath: "/" and the names from below root down to item,
// joined by "/". The root itself is "/"; a null item gives the empty string. Null fullPath is
// ignored. REQUIRES: item is root or lies below it.
void getFullPath(MflString* fullPath, const dictionary::Item* item, const dictionary::Item* root);

// Whether any event could reach anyone. If not, no path is composed and no node looked at.
inline bool isAnyoneSubscribed() {
    return !g_changeEventsSubscriptions.empty() || !g_treeChangeEventsSubscriptions.empty();
}

// Sends the event of a node of the settings.
void sendEvent(const dictionary::Item* item, ChangeEventType eventType);
inline void triggerAllChangeCallbacks(const dictionary::Item* item, ChangeEventType eventType) {
    if (isAnyoneSubscribed()) [[unlikely]] {
        sendEvent(item, eventType);
    }
}

// Sends the event of whatever node lies at a full path; callbacks get null when there is none.
// REQUIRES: the path begins with "/".
void triggerAllChangeCallbacksFromPath(const char* fullpath, ChangeEventType eventType);

} // namespace vorn::settings
