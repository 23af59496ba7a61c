// Everything the store remembers between two calls. Defined in one block in State.cpp.
//
// Threads: nothing here has a lock but the string pools (PooledString.h) and the registry of
// handed-out buffers; the rest is guarded by the thread tags of the table's slots.
#pragma once

#include "PooledString.h"
#include "Subscriptions.h"

#include <vorn/dictionary/IDictionary.h>
#include <vorn/extras/FreeListAllocator.h>

#include <mutex>
#include <unordered_set>

namespace vorn::settings {

// What a caller's handle points to: the root of the transaction's private tree, owned by it.
struct Transaction {
    dictionary::Item* dictionary;
};

static_assert(sizeof(Transaction) == 8, "layout");

extern dictionary::IDictionary* g_idictionary;
extern dictionary::Item* g_modifiedSettingsRoot;
extern bool g_isInitialized;

extern ChangeEventsSubscriptions g_changeEventsSubscriptions;
extern ChangeEventsSubscriptions g_treeChangeEventsSubscriptions;
extern extras::FreeListAllocator g_subscriptionIdAlloc;
extern extras::FreeListAllocator g_transactionAlloc;
extern std::unordered_set<const char*> g_createdBuffers;
extern std::mutex g_createdBuffersMutex;

} // namespace vorn::settings
