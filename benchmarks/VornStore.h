// Our side: the settings table of the loaded plugins, as an application gets it.
#pragma once

#include <vorn/dictionary/IDictionary.h>
#include <vorn/host/Host.h>
#include <vorn/settings/ISettings.h>

#include <cstdint>

namespace vorn::bench {

class VornStore {
public:
    static constexpr const char* kName = "vorn";
    using Key = const char*; // nothing is prepared: every call gets the text

    static Key key(const char* path) {
        return path;
    }
    void create(const char* path, int64_t value) {
        m_settings->setInt64(path, value);
    }
    int64_t read(Key path) const {
        return m_settings->getAsInt64(path);
    }
    void overwrite(Key path, int64_t value) {
        m_settings->setInt64(path, value);
    }

    const settings::ISettings* settings() const {
        return m_settings;
    }
    const dictionary::IDictionary* dictionary() const {
        return m_dictionary;
    }

private:
    // One host a process; the plugins stay loaded until it ends.
    static host::Host& _host() {
        static host::Host host;
        return host;
    }

    const settings::ISettings* m_settings = _host().acquire<settings::ISettings>();
    const dictionary::IDictionary* m_dictionary = _host().acquire<dictionary::IDictionary>();
};

} // namespace vorn::bench
