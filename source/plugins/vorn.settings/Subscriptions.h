// The record behind a subscription handle, and the map from paths to the records of one kind.
//
// Threads: as the table's slots say; the map itself has no lock.
#pragma once

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

// From each path to its subscriptions, newest first. The records stay their owner's: the map
// compares their addresses and never looks into them.
//
// Invariant: every record in a group has exactly one entry in m_places, which says where it lies;
// no group is empty.
class ChangeEventsSubscriptions {
public:
    // The subscriptions of one path.
    class Group {
    public:
        explicit Group(std::string_view path) : m_path(path) {}

        size_t size() const {
            return m_size;
        }
        // Copies the records, newest first, into size() places.
        void copyNewestFirst(SubscriptionId** out) const {
            std::copy_if(m_records.rbegin(), m_records.rend(), out,
                         [](const SubscriptionId* record) { return record != nullptr; });
        }

    private:
        friend class ChangeEventsSubscriptions;

        MflString m_path;
        // Oldest first, so that adding is cheap; null where a record was removed, but in no more
        // than half of the places.
        std::vector<SubscriptionId*> m_records;
        size_t m_size = 0; // records without the nulls
    };

    bool empty() const {
        return m_places.size() == 0;
    }
    // Number of subscriptions of all paths.
    size_t size() const {
        return m_places.size();
    }

    // The subscriptions of exactly that path, or null. Good until the next change of the map.
    const Group* find(const HashedPath& path) const {
        return _findGroup(path);
    }

    // Puts the record in front of those of its path. When it throws, the map is as before.
    void add(const HashedPath& path, SubscriptionId* record) {
        m_places.reserveOne();
        Group* group = _findGroup(path);
        if (group) {
            group->m_records.push_back(record);
        } else {
            auto newGroup = std::make_unique<Group>(path.path());
            newGroup->m_records.push_back(record);
            m_groups.reserveOne();
            group = newGroup.get();
            m_groups.insert({std::move(newGroup), path.hash()});
        }
        ++group->m_size;
        m_places.insert({record, group, group->m_records.size() - 1});
    }

    // Takes the record out; false when the map does not hold it, whatever it points to.
    // Constant time on average.
    bool remove(const SubscriptionId* record) {
        Place* place = _findPlace(record);
        if (!place) {
            return false;
        }
        Group* group = place->group;
        group->m_records[place->position] = nullptr;
        --group->m_size;
        m_places.erase(place);
        if (group->m_size == 0) {
            _eraseGroup(group);
        } else if (group->m_records.size() > 2 * group->m_size) {
            _closeHoles(*group);
        }
        return true;
    }

    // Forgets every record and gives all memory back.
    void clear() {
        m_places.clear();
        m_groups.clear();
    }

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
        size_t position = 0; // in the group's records

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
            return std::string_view(candidate.group->m_path) == path.path();
        });
        return entry ? entry->group.get() : nullptr;
    }

    Place* _findPlace(const SubscriptionId* record) const {
        return m_places.find(_hashOf(record), [](const Place&) { return true; });
    }

    void _eraseGroup(const Group* group) {
        const size_t pathHash = MflStringHash()(group->m_path);
        m_groups.erase(m_groups.find(
            pathHash, [&](const OwnedGroup& candidate) { return candidate.group.get() == group; }));
    }

    // Moves the group's records together. Runs after as many removals as it takes steps.
    void _closeHoles(Group& group) {
        std::vector<SubscriptionId*>& records = group.m_records;
        records.erase(std::remove(records.begin(), records.end(), nullptr), records.end());
        for (size_t position = 0; position < records.size(); ++position) {
            _findPlace(records[position])->position = position;
        }
    }

    ProbeTable<OwnedGroup> m_groups;
    ProbeTable<Place> m_places;
};

} // namespace vorn::settings
