// Peer: hash maps inside hash maps, one a node.
#pragma once

#include <absl/container/flat_hash_map.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <variant>

namespace vorn::bench {

class NestedMaps {
public:
    static constexpr const char* kName = "nested_maps";
    using Key = const char*;

    static Key key(const char* path) {
        return path;
    }
    void create(const char* path, int64_t value) {
        Node* node = &m_root;
        while (*path == '/') {
            if (!std::holds_alternative<std::unique_ptr<Children>>(node->value)) {
                node->value = std::make_unique<Children>();
            }
            auto& children = *std::get<std::unique_ptr<Children>>(node->value);
            node = &children.map[_takeName(&path)];
        }
        node->value = value;
    }
    int64_t read(Key path) const {
        const Node* node = _find(path);
        const int64_t* value = node ? std::get_if<int64_t>(&node->value) : nullptr;
        return value ? *value : 0;
    }
    void overwrite(Key path, int64_t value) {
        if (Node* node = const_cast<Node*>(_find(path))) {
            node->value = value;
        }
    }

private:
    struct Children;
    struct Node {
        std::variant<int64_t, bool, double, std::string, std::unique_ptr<Children>> value;
    };
    struct Children {
        absl::flat_hash_map<std::string, Node> map;
    };

    // The name after the slash that path stands at; leaves path at the next slash or the end.
    static absl::string_view _takeName(const char** path) {
        const char* name = *path + 1;
        size_t length = 0;
        while (name[length] != '\0' && name[length] != '/') {
            ++length;
        }
        *path = name + length;
        return {name, length};
    }

    const Node* _find(const char* path) const {
        const Node* node = &m_root;
        while (*path == '/') {
            const auto* children = std::get_if<std::unique_ptr<Children>>(&node->value);
            if (!children) {
                return nullptr;
            }
            const auto found = (*children)->map.find(_takeName(&path));
            if (found == (*children)->map.end()) {
                return nullptr;
            }
            node = &found->second;
        }
        return node;
    }

    Node m_root;
};

} // namespace vorn::bench
