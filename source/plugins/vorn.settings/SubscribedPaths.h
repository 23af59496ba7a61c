// The paths that somebody subscribed to, as a tree of the same shape as the settings: a node for
// each of these paths and for each around one, found from its parent by a name. An event goes down
// as far as there are nodes, and tells trees on the way back up.
//
// Threads: as the table's slots say; there is no lock.
#pragma once

#include "PathName.h"
#include "ProbeTable.h"

#include <vorn/extras/FreeListAllocator.h>
#include <vorn/settings/ISettings.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vorn::settings {

// What a caller's handle points to.
struct SubscriptionId {
    enum class Type : uint32_t {
        eNode = 0,
        eTree = 1,
    };

    // None.
    SubscriptionId() : type(Type::eNode), onNodeChangeEventFn(nullptr), userData(nullptr) {}
    SubscriptionId(OnNodeChangeEventFn onChangeEventFn, void* data)
        : type(Type::eNode), onNodeChangeEventFn(onChangeEventFn), userData(data) {}
    SubscriptionId(OnTreeChangeEventFn onChangeEventFn, void* data)
        : type(Type::eTree), onTreeChangeEventFn(onChangeEventFn), userData(data) {}

    // Whether it is one.
    explicit operator bool() const {
        return type == Type::eNode ? onNodeChangeEventFn != nullptr
                                   : onTreeChangeEventFn != nullptr;
    }

    Type type;
    union {
        OnNodeChangeEventFn onNodeChangeEventFn;
        OnTreeChangeEventFn onTreeChangeEventFn;
    };
    void* userData;
};

static_assert(sizeof(SubscriptionId) == 24 && offsetof(SubscriptionId, userData) == 16, "layout");

// Several subscriptions of one type of one path, oldest first, so that adding is cheap.
class SubscriptionList {
public:
    // Calls call(subscription) for those that exist now, as long as they exist, newest first. While
    // it does, others may be added and removed, but holes may not be closed.
    template <class Call>
    void visit(Call call) const {
        for (size_t next = m_entries.size(); next > 0;) {
            const Entry& entry = m_entries[--next];
            if (entry.record) [[likely]] {
                call(entry.subscription);
            }
        }
    }

    // The place of the record from then on, until holes are closed.
    size_t add(const SubscriptionId* record, const SubscriptionId& subscription) {
        m_entries.push_back({record, subscription});
        ++m_size;
        return m_entries.size() - 1;
    }
    // Leaves a hole.
    void remove(size_t place) {
        m_entries[place].record = nullptr;
        --m_size;
    }
    // Without the holes.
    size_t size() const {
        return m_size;
    }
    bool hasManyHoles() const {
        return m_entries.size() > 2 * m_size;
    }
    // Calls moved(record, place) for all that are left.
    template <class Moved>
    void closeHoles(Moved moved) {
        size_t count = 0;
        for (const Entry& entry : m_entries) {
            if (entry.record) {
                m_entries[count] = entry;
                moved(entry.record, count++);
            }
        }
        m_entries.erase(m_entries.begin() + static_cast<std::ptrdiff_t>(count), m_entries.end());
    }

private:
    struct Entry {
        const SubscriptionId* record; // null in a hole
        SubscriptionId subscription;  // what it says, for a visit to find it at once
    };

    std::vector<Entry> m_entries;
    size_t m_size = 0;
};

// A node of the tree. All that an event needs of most of them lies in the first of its three cache
// lines; were they two, the first ones of all nodes would share one half of the cache.
struct alignas(64) SubscribedPath {
    bool isNamed(const PathName& name) const {
        const ahead::Block differing = _mm_xor_si128(nameBlock, name.block());
        return ahead::findByte(differing, '\0') == (1u << PathName::kBlock) - 1 &&
               (!name.isLong() || longName == name.text());
    }
    bool isInUse() const {
        return onlyRecord || lists[0] || lists[1] || childCount > 0 || isUntidy[0] || isUntidy[1];
    }
    // See SubscriptionList::visit.
    template <class Call>
    void visit(SubscriptionId::Type type, Call call) const {
        const SubscriptionList* list = lists[static_cast<size_t>(type)].get();
        if (list) {
            list->visit(call);
        } else if (only.type == type && only) {
            call(only);
        }
    }

    ahead::Block nameBlock = _mm_setzero_si128();
    SubscribedPath* parent = nullptr;           // of a root none
    SubscriptionId only;                        // if there is no list of its type
    std::unique_ptr<SubscriptionList> lists[2]; // by type

    const SubscriptionId* onlyRecord = nullptr;
    size_t childCount = 0;
    size_t hash = 0;
    std::string longName;               // not pooled: a callback could end the string pools
    SubscribedPath* nextUntidy[2] = {}; // by type, in the list of those to be tidied up
    bool isUntidy[2] = {};
};

static_assert(offsetof(SubscribedPath, onlyRecord) == 64 && sizeof(SubscribedPath) == 192);

// Invariant: every node but the two roots is in use and, by the hash of its path, in m_nodes.
class SubscribedPaths {
public:
    SubscribedPaths() : m_pool(sizeof(SubscribedPath), alignof(SubscribedPath), kNodesPerBlock) {}
    SubscribedPaths(const SubscribedPaths&) = delete;
    SubscribedPaths& operator=(const SubscribedPaths&) = delete;

    // The node of a path. All paths that no event could ever be told under share one: those that do
    // not begin with a slash, and for trees those of no node and of the root of the settings. When
    // it throws, all is as before.
    SubscribedPath* findOrCreate(std::string_view path, SubscriptionId::Type type) {
        const bool isOfTrees = type == SubscriptionId::Type::eTree;
        if (path.empty() && !isOfTrees) {
            return &m_told;
        }
        if (path.size() <= (isOfTrees ? 1 : 0) || path.front() != '/') {
            return &m_untold;
        }
        SubscribedPath* node = &m_told;
        size_t hash = kSeed;
        _forEachName(path.substr(1), [&](const PathName& name) {
            hash = name.hashBelow(hash);
            SubscribedPath* child = _find(node, name, hash);
            node = child ? child : _create(node, name, hash);
        });
        return node;
    }

    // Destroys a node that is not in use any more, and those around it that it was the last of.
    // When it comes to one that the thread is visiting, which has to be released later, that is
    // the result, else null.
    SubscribedPath* release(SubscribedPath* node) {
        while (node->parent && !node->isInUse()) {
            if (Visit::isNear(node)) {
                return node;
            }
            SubscribedPath* parent = node->parent;
            m_nodes.erase(m_nodes.find(
                node->hash, [&](const TaggedNode& tagged) { return tagged.node() == node; }));
            node->~SubscribedPath();
            m_pool.deallocate(node);
            --parent->childCount;
            node = parent;
        }
        if (m_nodes.size() == 0) {
            m_nodes.clear();
            m_pool.reset();
        }
        return nullptr;
    }

    // The way of an event: from no node at all, whose path is empty, over the root of the settings
    // down to its node, name after name.
    class Way {
    public:
        explicit Way(const SubscribedPaths& paths) : m_paths(&paths), m_nearest(&paths.m_told) {}

        // Goes on along the names from the last to the first.
        void goBackwards(const char* const* names, size_t count);
        // Goes on along the names of a text, with slashes between them.
        void go(std::string_view names) {
            *this = _alongText(*this, names);
        }

        // The number of names so far.
        size_t depth() const {
            return m_depth;
        }
        // The node farthest down that there is, and the number of names to it.
        const SubscribedPath* nearest() const {
            return m_nearest;
        }
        size_t nearestDepth() const {
            return m_nearestDepth;
        }

    private:
        // By value, so that the way itself stays in registers.
        [[gnu::noinline]] static Way _alongText(Way way, std::string_view names) {
            _forEachName(names, [&way](const PathName& name) { way._step(name); });
            return way;
        }
        void _step(const PathName& name) {
            m_hash = name.hashBelow(m_hash);
            if (m_nearestDepth == m_depth++) {
                if (const SubscribedPath* child = m_paths->_find(m_nearest, name, m_hash)) {
                    m_nearest = child;
                    ++m_nearestDepth;
                }
            }
        }

        const SubscribedPaths* m_paths;
        const SubscribedPath* m_nearest;
        size_t m_nearestDepth = 0;
        size_t m_depth = 0;
        size_t m_hash = kSeed;
    };

    // As long as there is one, the thread may be calling subscribers of the nearest node of a way
    // and of those around it. Visits form a chain through the stack, which is enough to know of:
    // nobody subscribes or unsubscribes while another thread makes one.
    class Visit {
    public:
        explicit Visit(const Way& way) : m_innermost(&t_innermost), m_nearest(way.nearest()) {
            asm("" : "+r"(m_innermost)); // where it lies is asked for once
            m_outer = std::exchange(*m_innermost, this);
        }
        ~Visit() {
            *m_innermost = m_outer;
        }
        Visit(const Visit&) = delete;
        Visit& operator=(const Visit&) = delete;

        // Whether it may be that node's.
        static bool isNear(const SubscribedPath* node) {
            for (const Visit* visit = t_innermost; visit; visit = visit->m_outer) {
                for (const SubscribedPath* at = visit->m_nearest; at; at = at->parent) {
                    if (at == node) {
                        return true;
                    }
                }
            }
            return false;
        }

    private:
        // A plain pointer, since a thread-local object with a destructor would keep the library in
        // memory after it is unloaded.
        static inline constinit thread_local Visit* t_innermost = nullptr;

        Visit** m_innermost;
        const SubscribedPath* m_nearest;
        Visit* m_outer;
    };

private:
    static constexpr size_t kSeed = 0x9e3779b97f4a7c15ull;
    static constexpr size_t kNodesPerBlock = 64;

    // A node, with some bits of its hash where addresses have none.
    class TaggedNode {
    public:
        TaggedNode() = default;
        explicit TaggedNode(const SubscribedPath* node)
            : m_bits(reinterpret_cast<uintptr_t>(node) | (node->hash & ~kAddress)) {}

        SubscribedPath* node() const {
            const uint64_t address = m_bits & kAddress;
            return reinterpret_cast<SubscribedPath*>(address); // NOLINT(performance-no-int-to-ptr)
        }
        bool isEmpty() const {
            return m_bits == 0;
        }
        size_t hash() const {
            return node()->hash;
        }
        bool mayHave(size_t hash) const {
            return ((m_bits ^ hash) & ~kAddress) == 0;
        }

    private:
        static constexpr uint64_t kAddress = (uint64_t{1} << 48) - 1;

        uint64_t m_bits = 0;
    };

    template <class Call>
    static void _forEachName(std::string_view names, Call call) {
        for (;;) {
            const size_t end = names.find('/');
            call(PathName(names.substr(0, end)));
            if (end == names.npos) {
                return;
            }
            names.remove_prefix(end + 1);
        }
    }

    SubscribedPath* _find(const SubscribedPath* parent, const PathName& name, size_t hash) const {
        const TaggedNode* found = m_nodes.find(hash, [&](const TaggedNode& candidate) {
            return candidate.node()->parent == parent && candidate.node()->isNamed(name);
        });
        return found ? found->node() : nullptr;
    }

    // When it throws, parents that were made for it are gone, too.
    SubscribedPath* _create(SubscribedPath* parent, const PathName& name, size_t hash) {
        SubscribedPath* node = nullptr;
        try {
            m_nodes.reserveOne();
            std::string longName(name.isLong() ? name.text() : std::string_view());
            node = static_cast<SubscribedPath*>(m_pool.allocate());
            if (!node) {
                throw std::bad_alloc();
            }
            new (node) SubscribedPath;
            node->longName = std::move(longName);
        } catch (...) {
            release(parent);
            throw;
        }
        node->nameBlock = name.block();
        node->parent = parent;
        node->hash = hash;
        m_nodes.insert(TaggedNode(node));
        ++parent->childCount;
        return node;
    }

    extras::FreeListAllocator m_pool;
    ProbeTable<TaggedNode, 4> m_nodes;
    SubscribedPath m_told;
    SubscribedPath m_untold;
};

inline void SubscribedPaths::Way::goBackwards(const char* const* names, size_t count) {
    PathName name;
    while (count > 0) {
        const char* text = names[--count];
        if (PathName::read(text, &name)) [[likely]] {
            _step(name);
        } else {
            go(text);
        }
    }
}

} // namespace vorn::settings
