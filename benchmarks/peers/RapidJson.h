// Peer: a rapidjson::Document, looked up by Pointers made ahead.
#pragma once

#include <rapidjson/document.h>
#include <rapidjson/pointer.h>

#include <cstdint>
#include <deque>

namespace vorn::bench {

class RapidJson {
public:
    static constexpr const char* kName = "rapidjson";
    using Key = const rapidjson::Pointer*;

    Key key(const char* path) {
        return &m_pointers.emplace_back(path);
    }
    void create(const char* path, int64_t value) {
        rapidjson::Pointer(path).Set(m_document, value);
    }
    int64_t read(Key pointer) const {
        const rapidjson::Value* value = pointer->Get(m_document);
        return value && value->IsInt64() ? value->GetInt64() : 0;
    }
    void overwrite(Key pointer, int64_t number) {
        if (rapidjson::Value* value = pointer->Get(m_document)) {
            value->SetInt64(number);
        }
    }

    rapidjson::Document& document() {
        return m_document;
    }

private:
    rapidjson::Document m_document;
    std::deque<rapidjson::Pointer> m_pointers; // stay where they are
};

// Merges source into destination: objects that both have are entered, everything else is copied
// over what is there.
inline void merge(rapidjson::Value& destination,
                  const rapidjson::Value& source,
                  rapidjson::Document::AllocatorType& allocator) {
    for (const auto& member : source.GetObject()) {
        const auto found = destination.FindMember(member.name);
        if (found == destination.MemberEnd()) {
            destination.AddMember(rapidjson::Value(member.name, allocator),
                                  rapidjson::Value(member.value, allocator), allocator);
        } else if (member.value.IsObject() && found->value.IsObject()) {
            merge(found->value, member.value, allocator);
        } else {
            found->value.CopyFrom(member.value, allocator);
        }
    }
}

} // namespace vorn::bench
