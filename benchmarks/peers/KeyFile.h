// Peer: GKeyFile; the last name of a path is the key, what stands before it the group.
#pragma once

#include <glib.h>

#include <cstdint>
#include <cstring>
#include <memory>

namespace vorn::bench {

class KeyFile {
public:
    static constexpr const char* kName = "gkeyfile";
    using Key = const char*;

    static Key key(const char* path) {
        return path;
    }
    void create(const char* path, int64_t value) {
        const Split split(path);
        g_key_file_set_int64(m_file.get(), split.group, split.key, value);
    }
    int64_t read(Key path) const {
        const Split split(path);
        return g_key_file_get_int64(m_file.get(), split.group, split.key, nullptr);
    }
    void overwrite(Key path, int64_t value) {
        create(path, value);
    }

private:
    struct Split {
        explicit Split(const char* path) : key(std::strrchr(path, '/') + 1) {
            const auto length = static_cast<size_t>(key - 1 - (path + 1));
            std::memcpy(group, path + 1, length);
            group[length] = '\0';
        }
        char group[256];
        const char* key;
    };

    std::unique_ptr<GKeyFile, void (*)(GKeyFile*)> m_file{g_key_file_new(), g_key_file_free};
};

} // namespace vorn::bench
