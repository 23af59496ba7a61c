// A storage service that writes every call down in g_host.calls, as in
// getItemMutable(<ISettings root>, 'a/b') -> /a/b, and fails the test over an item that is null or
// gone. Slots that the store must not call are null.
#pragma once

#include "Host.h"

#include <gtest/gtest.h>

#include <type_traits>
#include <unordered_set>

namespace foreign {

struct RecordingDictionary {
    static const IDictionary kTable;

    std::unordered_set<const void*> items, buffers; // alive
    bool isCreateFailing = false;                   // createItem answers null
    size_t missingChildren = 0;                     // how many more are counted than there are
};
extern RecordingDictionary g_recorder;

// A new child, also with a name that no path can reach.
Item* addChild(Item* parent, const std::string& name);

// An argument or a result as text.
template <class T>
std::string show(T value) {
    if constexpr (std::is_convertible_v<T, const Item*>) {
        return describe(*g_host.dictionary, value);
    } else if constexpr (std::is_same_v<T, const char*>) {
        return value ? "'" + std::string(value) + "'" : "null";
    } else if constexpr (std::is_same_v<T, V04OnUpdateItemFn>) {
        return value ? "callback" : "null";
    } else if constexpr (std::is_same_v<T, void*>) {
        return value ? "data" : "null";
    } else if constexpr (std::is_same_v<T, ItemType>) {
        const char* const names[] = {"bool", "int", "float", "string", "dictionary", "count"};
        return names[value];
    } else {
        return testing::PrintToString(value);
    }
}

} // namespace foreign
