// The record behind a subscription handle, and the map from paths to the records of one kind.
//
// Threads: as the table's slots say; the map itself has no lock.
#pragma once

#include "HashedPath.h"
#include "PooledString.h"
#include "ProbeTable.h"

#include <vorn/settings/ISettings.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

namespace vorn::settings {

// What a caller's handle points to.
struct SubscriptionId {
    enum class Type : uint32_t {
        eNode = 0,
        eTree = 1,
    };

    SubscriptionId(OnNodeChangeEventFn onChangeEventFn, void* data)
        : type(Type::eNode), onNodeChangeEventFn(onChangeEventFn), userData(data) {}
    SubscriptionId(OnTreeChangeEventFn onChangeEventFn, void* data)
        : type(Type::eTree), onTreeChangeEventFn(onChangeEventFn), userData(data) {}

    Type type;
    union {
        OnNodeChangeEventFn onNodeChangeEventFn;
        OnTreeChangeEventFn onTreeChangeEventFn;
    };
    void* userData;
};

static_assert(sizeof(SubscriptionId) == 24 && offsetof(SubscriptionId, userData) == 16, "layout");

// From each path to its subscriptions, newest first. The records stay their owner's: the map copies
// what they say, and from then on only compares their addresses.
//
// The subscriptions of a path are visited in place, while callbacks may subscribe and unsubscribe:
// what is added goes where the visit has already been, what is removed leaves a hole, and only
// when no visit of the thread is left are holes closed.
//
// Invariant: every record of a group has exactly one entry in m_places, which says where it lies;
// a group without records is being visited.
class ChangeEventsSubscriptions {
    // A subscription: the record and, for a visit to find it at once, what it says.
    struct Entry {
        const SubscriptionId* record; // null in a hole
        SubscriptionId subscription;
    };

    // The subscriptions of one path.
    struct Group {
        MflString path;
        // Oldest first, so that adding is cheap; with holes where records were removed, but in no
        // more than half of the places unless the group is being visited.
        std::vector<Entry> entries;
        size_t size = 0; // entries without the holes
    };

public:
    ChangeEventsSubscriptions() = default;
    ChangeEventsSubscriptions(const ChangeEventsSubscriptions&) = delete;
    ChangeEventsSubscriptions& operator=(const ChangeEventsSubscriptions&) = delete;

    bool empty() const {
        return m_places.size() == 0;
    }
    // Number of subscriptions of all paths.
    size_t size() const {
        return m_places.size();
    }

    // What one has to be who visits subscriptions; for any number of visits, one after another.
    class Visitor;

    // Calls call(subscription) for the subscriptions of exactly that path: those that exist now, as
    // long as they exist.
    template <class Call>
    void visit(Visitor& visitor, const HashedPath& path, Call call);

    // Puts the record in front of those of its path. When it throws, the map is as before.
    void add(std::string_view path, const SubscriptionId* record) {
        m_places.reserveOne();
        const HashedPath hashedPath(path);
        Group* group = _findGroup(hashedPath);
        if (group) {
            group->entries.push_back({record, *record});
        } else {
            auto newGroup = std::make_unique<Group>();
            newGroup->path.reserve(HashedPath::kCompared);
            newGroup->path = path;
            newGroup->entries.push_back({record, *record});
            m_groups.reserveOne();
            group = newGroup.get();
            m_groups.insert({std::move(newGroup), hashedPath.hash()});
        }
        ++group->size;
        m_places.insert({record, group, group->entries.size() - 1});
    }

    // Takes the record out; false when the map does not hold it, whatever it points to.
    // Constant time on average.
    bool remove(const SubscriptionId* record);

    // Forgets every record and gives all memory back; visits end.
    void clear();

private:
    // Entry of m_groups.
    struct OwnedGroup {
        std::unique_ptr<Group> group;
        size_t pathHash = 0;

        bool isEmpty() const {
            return !group;
        }
        size_t hash() const {
            return pathHash;
        }
    };

    // Entry of m_places: where a record lies.
    struct Place {
        const SubscriptionId* record = nullptr;
        Group* group = nullptr;
        size_t position = 0; // in the group's entries

        bool isEmpty() const {
            return !record;
        }
        size_t hash() const {
            return _hashOf(record);
        }
    };

    static size_t _hashOf(const SubscriptionId* record) {
        return reinterpret_cast<uintptr_t>(record);
    }

    Group* _findGroup(const HashedPath& path) const {
        const OwnedGroup* entry = m_groups.find(path.hash(), [&](const OwnedGroup& candidate) {
            return path.equals(candidate.group->path);
        });
        return entry ? entry->group.get() : nullptr;
    }

    Place* _findPlace(const SubscriptionId* record) const {
        return m_places.find(_hashOf(record), [](const Place&) { return true; });
    }

    // Erases an empty group; closes the holes of one that has too many, which happens after as many
    // removals as it takes steps. REQUIRES: no visits.
    void _tidy(Group* group) {
        std::vector<Entry>& entries = group->entries;
        if (group->size == 0) {
            const size_t pathHash = HashedPath(group->path).hash();
            m_groups.erase(m_groups.find(pathHash, [&](const OwnedGroup& candidate) {
                return candidate.group.get() == group;
            }));
        } else if (entries.size() > 2 * group->size) {
            const auto isHole = [](const Entry& entry) { return !entry.record; };
            entries.erase(std::remove_if(entries.begin(), entries.end(), isHole), entries.end());
            for (size_t position = 0; position < entries.size(); ++position) {
                _findPlace(entries[position].record)->position = position;
            }
        }
    }

    ProbeTable<OwnedGroup> m_groups;
    ProbeTable<Place> m_places;
};

// The visitors of a thread form a chain through its stack, which is enough to know of: nobody
// subscribes or unsubscribes while another thread makes a visit.
class ChangeEventsSubscriptions::Visitor {
public:
    Visitor() : m_outer(t_innermost) {
        t_innermost = this;
    }
    ~Visitor() {
        t_innermost = m_outer;
    }
    Visitor(const Visitor&) = delete;
    Visitor& operator=(const Visitor&) = delete;

private:
    friend class ChangeEventsSubscriptions;

    static bool _isAnyAt(const Group* group) {
        const Visitor* visitor = t_innermost;
        while (visitor && visitor->m_group != group) {
            visitor = visitor->m_outer;
        }
        return visitor != nullptr;
    }
    static void _sendAllAway(const ChangeEventsSubscriptions& subscriptions) {
        for (Visitor* visitor = t_innermost; visitor; visitor = visitor->m_outer) {
            if (visitor->m_subscriptions == &subscriptions) {
                visitor->m_group = nullptr;
            }
        }
    }

    // A plain pointer, since a thread-local object with a destructor would keep the library in
    // memory after it is unloaded.
    static inline constinit thread_local Visitor* t_innermost = nullptr;

    const ChangeEventsSubscriptions* m_subscriptions = nullptr;
    Group* m_group = nullptr; // where it is; null when it is nowhere or was sent away
    Visitor* m_outer;
};

template <class Call>
void ChangeEventsSubscriptions::visit(Visitor& visitor, const HashedPath& path, Call call) {
    Group* group = _findGroup(path);
    if (!group) {
        return;
    }
    visitor.m_subscriptions = this;
    visitor.m_group = group;
    for (size_t next = group->entries.size(); next > 0 && visitor.m_group;) {
        const Entry& entry = group->entries[--next];
        if (entry.record) [[likely]] {
            call(entry.subscription);
        }
    }
    if (visitor.m_group) {
        visitor.m_group = nullptr;
        if (group->entries.size() > 2 * group->size && !Visitor::_isAnyAt(group)) {
            _tidy(group);
        }
    }
}

inline bool ChangeEventsSubscriptions::remove(const SubscriptionId* record) {
    Place* place = _findPlace(record);
    if (!place) {
        return false;
    }
    Group* group = place->group;
    group->entries[place->position].record = nullptr;
    --group->size;
    m_places.erase(place);
    if (!Visitor::_isAnyAt(group)) {
        _tidy(group);
    }
    return true;
}

inline void ChangeEventsSubscriptions::clear() {
    Visitor::_sendAllAway(*this);
    m_places.clear();
    m_groups.clear();
}

} // namespace vorn::settings
