// Peer: one absl::flat_hash_map keyed by the whole path, behind the calls that any store with a
// table of functions needs: get the table, look up, test the type, take the value. It is the
// least that such a store can cost.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace vorn::bench {

struct AbslStore; // the map
struct AbslValue; // a value in it

// Filled in by AbslMap.cpp, so that no call can be seen through.
struct AbslTable {
    AbslStore* (*create)();
    void (*destroy)(AbslStore* store);
    void (*insert)(AbslStore* store, const char* path, int64_t value);

    AbslStore* (*getStore)(AbslStore* store);
    AbslValue* (*find)(AbslStore* store, const char* path);
    bool (*isInt)(const AbslValue* value);
    int64_t (*getInt)(const AbslValue* value);
    void (*setInt)(AbslValue* value, int64_t number);

    size_t (*hashPath)(const char* path); // the map's hash and nothing else
};

const AbslTable* abslTable();

class AbslMap {
public:
    static constexpr const char* kName = "absl";
    using Key = const char*;

    static Key key(const char* path) {
        return path;
    }
    void create(const char* path, int64_t value) {
        m_table->insert(m_store.get(), path, value);
    }
    int64_t read(Key path) const {
        const AbslValue* value = m_table->find(m_table->getStore(m_store.get()), path);
        return value && m_table->isInt(value) ? m_table->getInt(value) : 0;
    }
    void overwrite(Key path, int64_t number) {
        AbslValue* value = m_table->find(m_table->getStore(m_store.get()), path);
        if (value && m_table->isInt(value)) {
            m_table->setInt(value, number);
        }
    }

private:
    const AbslTable* m_table = abslTable();
    std::unique_ptr<AbslStore, void (*)(AbslStore*)> m_store{m_table->create(), m_table->destroy};
};

// Not a store: the hash of the path alone, which a lookup of the whole path cannot go below.
class PathHashOnly {
public:
    static constexpr const char* kName = "hash_only";
    using Key = const char*;

    static Key key(const char* path) {
        return path;
    }
    void create(const char*, int64_t) {}
    int64_t read(Key path) const {
        return static_cast<int64_t>(m_table->hashPath(path));
    }

private:
    const AbslTable* m_table = abslTable();
};

} // namespace vorn::bench
