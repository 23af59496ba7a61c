// The module-wide objects, constructed from top to bottom when the library is loaded and destroyed
// from bottom to top when it is unloaded.
#include "State.h"

namespace vorn::settings {

// Set by start-up. The table stays held after shut-down, for buffers that are given back late.
dictionary::IDictionary* g_idictionary = nullptr;

// The tree itself; not null exactly while the store is started. Start-up creates it, shut-down
// destroys it, every operation reads it.
dictionary::Item* g_modifiedSettingsRoot = nullptr;

// Set by the first initializeFromDictionary and never reset, not even by a restart.
bool g_isInitialized = false;

// First of the objects with a constructor, since strings of others may live in it. Touched through
// MflString alone, under its mutex; set up and released by start-up and shut-down.
pthread_mutex_t g_multiFreeListStringsAllocMutex = PTHREAD_MUTEX_INITIALIZER;
extras::MultiFreeListAllocator g_multiFreeListStringsAlloc;

// Who subscribed to what, by path and by record. Changed by subscribe and unsubscribe, read by the
// change dispatch, emptied by shut-down.
SubscribedPaths g_subscribedPaths;
ChangeEventsSubscriptions g_changeEventsSubscriptions(g_subscribedPaths,
                                                      SubscriptionId::Type::eNode);
ChangeEventsSubscriptions g_treeChangeEventsSubscriptions(g_subscribedPaths,
                                                          SubscriptionId::Type::eTree);

// Records of subscriptions and of open transactions. Touched by the slots that make and end them;
// set up by start-up, released by shut-down.
extras::FreeListAllocator g_subscriptionIdAlloc;
extras::FreeListAllocator g_transactionAlloc;

// Strings that callers have not given back. Touched by the string buffer slots, under the mutex,
// which is never held while the dictionary service runs. Outlives shut-down.
std::unordered_set<const char*> g_createdBuffers;
std::mutex g_createdBuffersMutex;

// Empty; the room that the report of one merge leaves to the next, under the mutex. Given up by
// shut-down.
std::vector<UpdatedItem> g_spareUpdatedItems;
std::mutex g_spareUpdatedItemsMutex;

} // namespace vorn::settings
