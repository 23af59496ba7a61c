// Everything the store remembers between two calls. Defined in one block in State.cpp.
//
// Threads: nothing here has a lock but the string pools (PooledString.h), the registry of
// handed-out buffers and the spare room of merges; the rest is guarded by the thread tags of the
// table's slots.
#pragma once

#include "PooledString.h"
#include "Subscriptions.h"

#include <vorn/dictionary/IDictionary.h>
#include <vorn/extras/FreeListAllocator.h>

#include <mutex>
#include <unordered_set>
#include <vector>

namespace vorn::settings {

// What a caller's handle points to: the root of the transaction's private tree, owned by it.
struct Transaction {
    dictionary::Item* dictionary;
};

static_assert(sizeof(Transaction) == 8, "layout");

// A node that a merge accepted.
struct UpdatedItem {
    const dictionary::Item* item;   // null when the merge creates it or when it has been forgotten
    const dictionary::Item* source; // what it is merged from
};

extern dictionary::IDictionary* g_idictionary;
extern dictionary::Item* g_modifiedSettingsRoot;
extern bool g_isInitialized;

extern SubscribedPaths g_subscribedPaths;
extern ChangeEventsSubscriptions g_changeEventsSubscriptions;
extern ChangeEventsSubscriptions g_treeChangeEventsSubscriptions;
extern extras::FreeListAllocator g_subscriptionIdAlloc;
extern extras::FreeListAllocator g_transactionAlloc;
extern std::unordered_set<const char*> g_createdBuffers;
extern std::mutex g_createdBuffersMutex;
extern std::vector<UpdatedItem> g_spareUpdatedItems;
extern std::mutex g_spareUpdatedItemsMutex;

} // namespace vorn::settings
