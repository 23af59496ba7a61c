// Peer: Boost.PropertyTree, which keeps every value as text.
#pragma once

#include <boost/property_tree/ptree.hpp>

#include <cstdint>

namespace vorn::bench {

class PropertyTree {
public:
    static constexpr const char* kName = "property_tree";
    using Key = const char*;

    static Key key(const char* path) {
        return path;
    }
    void create(const char* path, int64_t value) {
        m_root.put(_path(path), value);
    }
    int64_t read(Key path) const {
        return m_root.get<int64_t>(_path(path), 0);
    }
    void overwrite(Key path, int64_t value) {
        create(path, value);
    }

private:
    static boost::property_tree::ptree::path_type _path(const char* path) {
        return {path + 1, '/'};
    }

    boost::property_tree::ptree m_root;
};

} // namespace vorn::bench
