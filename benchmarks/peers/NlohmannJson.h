// Peer: nlohmann::json, looked up by json_pointer.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <deque>
#include <string>

namespace vorn::bench {

// With pointers made ahead.
class NlohmannJson {
public:
    static constexpr const char* kName = "nlohmann";
    using Pointer = nlohmann::json::json_pointer;
    using Key = const Pointer*;

    Key key(const char* path) {
        return &m_pointers.emplace_back(path);
    }
    // Walks by names, which is faster here than a pointer made of the text.
    void create(const char* path, int64_t value) {
        nlohmann::json* node = &m_root;
        while (*path == '/') {
            const char* name = path + 1;
            path = name;
            while (*path != '\0' && *path != '/') {
                ++path;
            }
            node = &(*node)[std::string(name, path)];
        }
        *node = value;
    }
    int64_t read(Key pointer) const {
        return m_root.at(*pointer).get<int64_t>();
    }
    void overwrite(Key pointer, int64_t value) {
        m_root.at(*pointer) = value;
    }

    nlohmann::json& root() {
        return m_root;
    }

private:
    nlohmann::json m_root;
    std::deque<Pointer> m_pointers; // stay where they are
};

// With a pointer made of the text on every call.
class NlohmannText {
public:
    static constexpr const char* kName = "nlohmann_text";
    using Key = const char*;

    static Key key(const char* path) {
        return path;
    }
    void create(const char* path, int64_t value) {
        m_root[NlohmannJson::Pointer(path)] = value;
    }
    int64_t read(Key path) const {
        return m_root.at(NlohmannJson::Pointer(path)).get<int64_t>();
    }
    void overwrite(Key path, int64_t value) {
        m_root.at(NlohmannJson::Pointer(path)) = value;
    }

private:
    nlohmann::json m_root;
};

} // namespace vorn::bench
