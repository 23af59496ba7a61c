// What merges that only overwrote values have found, for when the same merges come again.
//
// A plan lists, in the order of its merge, the values of the source and where they went. It holds
// as long as no tree changes its shape: then the next merge of that source to that place would ask
// about the same pairs, and need look for none. A few plans are kept, each in a place that follows
// from its source; a large merge has none.
//
// Threads: take and keep from any thread; a plan that was taken is the taker's own.
#pragma once

#include "Item.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

namespace vorn::dictionary {

class MergePlan {
public:
    struct Pair {
        Item* source;
        Item* destination;
    };

    // Whether it is of such a merge.
    bool isOf(const Item* source, const Item* destination) const {
        return source && source == m_source && destination && destination == m_destination;
    }
    uint64_t changeCount() const {
        return m_changeCount;
    }
    const Pair* begin() const {
        return m_pairs;
    }
    const Pair* end() const {
        return m_pairs + m_count;
    }

    // Begins anew. The plan holds while the trees' count of changes is the one given.
    void reset(const Item* source, const Item* destination, uint64_t changeCount) {
        m_source = source;
        m_destination = destination;
        m_changeCount = changeCount;
        m_count = 0;
    }
    // The merge does something that a plan does not tell, or is too large.
    void abandon() {
        m_source = nullptr;
    }
    void add(const Pair& pair) {
        if (m_count < kCapacity) {
            m_pairs[m_count++] = pair;
        } else {
            abandon();
        }
    }

private:
    static constexpr size_t kCapacity = 1020; // 16 KB

    const Item* m_source = nullptr; // null: the plan is of no merge
    const Item* m_destination = nullptr;
    uint64_t m_changeCount = 0;
    size_t m_count = 0;
    Pair m_pairs[kCapacity];
};

class MergePlans {
public:
    constexpr MergePlans() = default;
    MergePlans(const MergePlans&) = delete;
    MergePlans& operator=(const MergePlans&) = delete;
    ~MergePlans() {
        release();
    }

    // The plan of a merge from that source, if there is one, or else any; null when memory is
    // exhausted.
    std::unique_ptr<MergePlan> take(const Item* source) {
        MergePlan* plan = _slotOf(source).exchange(nullptr, std::memory_order_acquire);
        return std::unique_ptr<MergePlan>(plan ? plan : new (std::nothrow) MergePlan);
    }
    // Null is ignored.
    void keep(const Item* source, std::unique_ptr<MergePlan> plan) {
        if (plan) {
            delete _slotOf(source).exchange(plan.release(), std::memory_order_acq_rel);
        }
    }
    void release() {
        for (std::atomic<MergePlan*>& slot : m_slots) {
            delete slot.exchange(nullptr, std::memory_order_acquire);
        }
    }

private:
    static constexpr size_t kSlots = 8;

    std::atomic<MergePlan*>& _slotOf(const Item* source) {
        return m_slots[reinterpret_cast<uintptr_t>(source) / sizeof(Item) % kSlots];
    }

    std::atomic<MergePlan*> m_slots[kSlots] = {};
};

} // namespace vorn::dictionary
