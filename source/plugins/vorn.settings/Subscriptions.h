// The records of one kind of subscription: which of them exist, and where each lies.
//
// While callbacks run, subscriptions come and go. What is added then goes where the visit has
// already been, and what is removed leaves a hole. Holes are closed, and paths that nobody needs
// destroyed, by the next to subscribe or unsubscribe when the thread itself does not visit them:
// then no other thread may be visiting them either.
//
// Threads: as the table's slots say; there is no lock.
#pragma once

#include "SubscribedPaths.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>

namespace vorn::settings {

// From each record to its place. The records stay their owner's: what they say is copied, and from
// then on only their addresses are compared.
//
// Invariant: every record has exactly one entry in m_places, which says where it lies.
class ChangeEventsSubscriptions {
public:
    ChangeEventsSubscriptions(SubscribedPaths& paths, SubscriptionId::Type type)
        : m_paths(paths), m_type(type) {}
    ChangeEventsSubscriptions(const ChangeEventsSubscriptions&) = delete;
    ChangeEventsSubscriptions& operator=(const ChangeEventsSubscriptions&) = delete;
    ~ChangeEventsSubscriptions() {
        clear();
    }

    bool empty() const {
        return m_places.size() == 0;
    }

    // Puts the record in front of those of its path. When it throws, all is as before.
    void add(std::string_view path, const SubscriptionId* record) {
        _tidyUp();
        m_places.reserveOne();
        SubscribedPath* node = m_paths.findOrCreate(path, m_type);
        try {
            m_places.insert({record, node, _add(node, record)});
        } catch (...) {
            m_paths.release(node);
            throw;
        }
    }

    // Takes the record out; false when it is none of them, whatever it points to. Constant time on
    // average.
    bool remove(const SubscriptionId* record) {
        Place* place = _findPlace(record);
        if (!place) {
            return false;
        }
        _leaveHole(*place);
        m_places.erase(place);
        _tidyUp();
        return true;
    }

    // Forgets every record and gives all memory back.
    void clear() {
        m_places.forEach([this](const Place& place) { _leaveHole(place); });
        m_places.clear();
        _tidyUp();
    }

private:
    // Entry of m_places: where a record lies.
    struct Place {
        const SubscriptionId* record = nullptr;
        SubscribedPath* node = nullptr;
        size_t position = 0; // in the node's list, if there is one

        bool isEmpty() const {
            return !record;
        }
        size_t hash() const {
            return _hashOf(record);
        }
        bool mayHave(size_t hash) const {
            return _hashOf(record) == hash;
        }
    };

    // Mixes all bits of the address.
    static size_t _hashOf(const SubscriptionId* record) {
        constexpr uint64_t kGoldenRatio = 0x9e3779b97f4a7c15ull;
        const uint64_t mixed = reinterpret_cast<uintptr_t>(record) * kGoldenRatio;
        return mixed ^ (mixed >> 32);
    }
    Place* _findPlace(const SubscriptionId* record) const {
        return m_places.find(_hashOf(record), [](const Place&) { return true; });
    }

    size_t _index() const {
        return static_cast<size_t>(m_type);
    }
    std::unique_ptr<SubscriptionList>& _listOf(SubscribedPath* node) const {
        return node->lists[_index()];
    }

    // Tells its position. The first subscription of a node lies there, the second makes a list.
    size_t _add(SubscribedPath* node, const SubscriptionId* record) {
        std::unique_ptr<SubscriptionList>& list = _listOf(node);
        if (list) {
            return list->add(record, *record);
        }
        if (!node->onlyRecord) {
            node->only = *record;
            node->onlyRecord = record;
            return 0;
        }
        const bool isOnlyMoving = node->only.type == m_type;
        auto newList = std::make_unique<SubscriptionList>();
        if (isOnlyMoving) {
            newList->add(node->onlyRecord, node->only); // at position 0, as it was told
        }
        const size_t position = newList->add(record, *record);
        if (isOnlyMoving) {
            _forgetOnly(node);
        }
        list = std::move(newList);
        return position;
    }
    static void _forgetOnly(SubscribedPath* node) {
        node->only = SubscriptionId();
        node->onlyRecord = nullptr;
    }

    void _leaveHole(const Place& place) {
        if (SubscriptionList* list = _listOf(place.node).get()) {
            list->remove(place.position);
        } else {
            _forgetOnly(place.node);
        }
        _leaveUntidy(place.node);
    }
    void _leaveUntidy(SubscribedPath* node) {
        if (!std::exchange(node->isUntidy[_index()], true)) {
            node->nextUntidy[_index()] = std::exchange(m_untidy, node);
        }
    }
    void _tidyUp() {
        for (SubscribedPath* node = std::exchange(m_untidy, nullptr); node;) {
            SubscribedPath* next = node->nextUntidy[_index()];
            node->isUntidy[_index()] = false;
            _tidyUp(node);
            node = next;
        }
    }
    // A list with too many holes closes them, which happens after as many removals as it takes
    // steps.
    void _tidyUp(SubscribedPath* node) {
        if (SubscribedPaths::Visit::isNear(node)) {
            _leaveUntidy(node);
            return;
        }
        std::unique_ptr<SubscriptionList>& list = _listOf(node);
        if (list && list->size() == 0) {
            list.reset();
        } else if (list && list->hasManyHoles()) {
            list->closeHoles([this](const SubscriptionId* record, size_t position) {
                _findPlace(record)->position = position;
            });
        }
        if (SubscribedPath* visited = m_paths.release(node)) {
            _leaveUntidy(visited);
        }
    }

    SubscribedPaths& m_paths;
    const SubscriptionId::Type m_type;
    ProbeTable<Place, 2> m_places;
    SubscribedPath* m_untidy = nullptr; // list of those that may have too many holes
};

} // namespace vorn::settings
