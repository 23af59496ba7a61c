// The functions behind AbslTable.
#include "AbslMap.h"

#include <absl/container/flat_hash_map.h>
#include <absl/hash/hash.h>
#include <absl/strings/string_view.h>

#include <string>
#include <variant>

namespace vorn::bench {

struct AbslValue {
    std::variant<int64_t, bool, double, std::string> value;
};

struct AbslStore {
    absl::flat_hash_map<std::string, AbslValue> values;
};

namespace {

AbslStore* create() {
    return new AbslStore;
}
void destroy(AbslStore* store) {
    delete store;
}
void insert(AbslStore* store, const char* path, int64_t value) {
    store->values[absl::string_view(path)].value = value;
}
AbslStore* getStore(AbslStore* store) {
    return store;
}
AbslValue* find(AbslStore* store, const char* path) {
    const auto found = store->values.find(absl::string_view(path));
    return found == store->values.end() ? nullptr : &found->second;
}
bool isInt(const AbslValue* value) {
    return std::holds_alternative<int64_t>(value->value);
}
int64_t getInt(const AbslValue* value) {
    return *std::get_if<int64_t>(&value->value);
}
void setInt(AbslValue* value, int64_t number) {
    value->value = number;
}
size_t hashPath(const char* path) {
    return absl::Hash<absl::string_view>()(absl::string_view(path));
}

constexpr AbslTable kTable = {
    create, destroy, insert, getStore, find, isInt, getInt, setInt, hashPath,
};

} // namespace

const AbslTable* abslTable() {
    return &kTable;
}

} // namespace vorn::bench
