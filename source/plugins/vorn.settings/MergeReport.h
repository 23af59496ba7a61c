// The report of one merge: which nodes the caller's callback let through, in that order, and the
// events that are sent for them when the merge is complete.
//
// Nodes that existed before the merge are remembered by their handles. An event may run a callback
// that destroys a node whose own event is still to come, so live reports form a chain through the
// stack of their thread, and every operation that is about to destroy nodes has them forgotten.
#pragma once

#include "State.h"

#include <atomic>
#include <cstdint>
#include <exception>
#include <vector>

namespace vorn::settings {

// The data of one merge.
struct MergeDataWrapper {
    std::vector<UpdatedItem> updatedItems;
    // The destination as the caller gave it.
    MflString dstPath;
    const dictionary::Item* srcRoot;
    // One for each of updatedItems, but for those at the end whose paths are not composed yet: for
    // nodes that the merge creates the full path below srcRoot; empty for all others.
    std::vector<MflString> updatedItemPaths;
    // The caller's callback and its pointer.
    dictionary::OnUpdateItemFn onUpdateItemFn;
    void* userData;
};

class MergeReport {
public:
    // onUpdateItemFn may be null: everything is accepted.
    MergeReport(const char* dstPath,
                const dictionary::Item* srcRoot,
                dictionary::OnUpdateItemFn onUpdateItemFn,
                void* userData);
    ~MergeReport();
    MergeReport(const MergeReport&) = delete;
    MergeReport& operator=(const MergeReport&) = delete;

    // Asks the caller's callback about one node of the merge and records what it accepts.
    dictionary::UpdateAction askAndRecord(const dictionary::Item* dstItem,
                                          dictionary::ItemType dstItemType,
                                          const dictionary::Item* srcItem,
                                          dictionary::ItemType srcItemType);

    // Sends eChanged for every recorded node, in order. Called once, after the merge. Throws, and
    // sends nothing, when recording ran out of memory.
    void send();

    // Whether an event of a node that existed before its merge is still to come on this thread.
    static bool isAnyPending() {
        return g_count.load(std::memory_order_relaxed) != 0 && _isAnyPendingHere();
    }

    // What is about to be destroyed gets no event from any report of this thread: the item and
    // everything below it, or, because a value is written over the item, only the latter.
    static void forgetSubtree(const dictionary::Item* item) {
        if (isAnyPending()) [[unlikely]] {
            _forgetSubtree(item);
        }
    }
    static void forgetBelow(const dictionary::Item* item) {
        if (isAnyPending()) [[unlikely]] {
            _forgetBelow(item);
        }
    }

    // The same for an item that a merge is about to write, if that destroys anything.
    static void forgetOverwritten(const dictionary::Item* dstItem,
                                  dictionary::ItemType dstItemType,
                                  dictionary::ItemType srcItemType);

    // A pending node, known by its path while an array is written over a node above it.
    struct Aside {
        MergeReport* report;
        size_t entry;
        MflString fullPath;
    };

    // Before and after an array is written over the item: whether the nodes below it stay, are
    // replaced or go is the dictionary service's matter. The events go to whatever has their path
    // then; where there is nothing, there is no event.
    static std::vector<Aside> setAsideBelow(const dictionary::Item* item);
    static void putBack(const std::vector<Aside>& aside);

private:
    static bool _isAnyPendingHere();
    static void _forgetSubtree(const dictionary::Item* item);
    static void _forgetBelow(const dictionary::Item* item);
    template <class Change>
    static void _forEachPending(Change change);

    bool _isAwaited() const;
    void _record(const dictionary::Item* dstItem, const dictionary::Item* srcItem);
    void _composePaths();

    static inline std::atomic<uint32_t> g_count{0}; // reports of all threads

    MergeDataWrapper m_data;
    MflString m_destinationPrefix; // of the full path of every node of the merge
    std::exception_ptr m_failure;  // why the record is incomplete, if it is
    size_t m_sentCount = 0;        // entries from here on are pending
    MergeReport* m_outer;
};

} // namespace vorn::settings
