// A hash table with open addressing: entries lie in one array, each as near behind the place that
// its hash gives it as was free, without a gap in between.
//
// Invariant: following the array from the place of a hash, every entry of that hash comes before
// the first empty one. erase closes gaps, so there are no markers of removed entries.
//
// An Entry is empty when default-constructed, moves without throwing, and has
//     bool isEmpty() const;
//     size_t hash() const;             // its low bits vary
//     bool mayHave(size_t hash) const; // always its own; a cheap question
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

namespace vorn::settings {

// At most one in sparseness places is taken.
template <class Entry, size_t sparseness>
class ProbeTable {
public:
    size_t size() const {
        return m_size;
    }

    // The entry of that hash for which matches(entry) is true, or null.
    template <class Matches>
    Entry* find(size_t hash, Matches matches) const {
        if (m_size == 0) {
            return nullptr;
        }
        // Mostly it is the first or the second: which of them is no branch to guess.
        size_t place = _home(hash);
        place = (place + (m_entries[place].mayHave(hash) ? 0 : 1)) & (m_capacity - 1);
        for (; !m_entries[place].isEmpty(); place = _next(place)) {
            Entry& entry = m_entries[place];
            if (entry.mayHave(hash) && matches(entry)) [[likely]] {
                return &entry;
            }
        }
        return nullptr;
    }

    template <class Call>
    void forEach(Call call) const {
        for (size_t place = 0; place < m_capacity; ++place) {
            if (!m_entries[place].isEmpty()) {
                call(m_entries[place]);
            }
        }
    }

    // Makes room for one more entry. On std::bad_alloc the table is as before.
    void reserveOne() {
        if (sparseness * (m_size + 1) <= m_capacity) {
            return;
        }
        ProbeTable larger;
        larger.m_capacity = m_capacity == 0 ? kMinCapacity : 2 * m_capacity;
        larger.m_entries = std::make_unique<Entry[]>(larger.m_capacity);
        forEach([&](Entry& entry) { larger.insert(std::move(entry)); });
        *this = std::move(larger);
    }

    // REQUIRES: a reserveOne() since the last insert. Does not look for an equal entry.
    void insert(Entry entry) noexcept {
        size_t place = _home(entry.hash());
        while (!m_entries[place].isEmpty()) {
            place = _next(place);
        }
        m_entries[place] = std::move(entry);
        ++m_size;
    }

    // Removes an entry that find returned. Other entries may move.
    void erase(Entry* entry) noexcept {
        size_t gap = static_cast<size_t>(entry - m_entries.get());
        for (size_t place = _next(gap); !m_entries[place].isEmpty(); place = _next(place)) {
            // An entry may move back into the gap unless its own place lies behind the gap.
            const size_t home = _home(m_entries[place].hash());
            if (_distance(home, place) >= _distance(gap, place)) {
                m_entries[gap] = std::move(m_entries[place]);
                gap = place;
            }
        }
        m_entries[gap] = Entry();
        --m_size;
    }

    void clear() noexcept {
        m_entries.reset();
        m_capacity = m_size = 0;
    }

private:
    static constexpr size_t kMinCapacity = 8;

    size_t _home(size_t hash) const {
        return hash & (m_capacity - 1);
    }
    size_t _next(size_t place) const {
        return (place + 1) & (m_capacity - 1);
    }
    // Steps from one place to another, around the end.
    size_t _distance(size_t from, size_t to) const {
        return (to - from) & (m_capacity - 1);
    }

    std::unique_ptr<Entry[]> m_entries;
    size_t m_capacity = 0; // a power of two, or 0
    size_t m_size = 0;
};

} // namespace vorn::settings
