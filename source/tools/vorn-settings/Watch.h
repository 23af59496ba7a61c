// Prints what happens to a setting and to everything below it, with the values before and after.
#pragma once

#include "Output.h"
#include "SettingsPath.h"
#include "Store.h"

#include <map>
#include <string>

namespace vorn::tool {

class Watch {
public:
    // Subscribes; lines come while the store is written. isJson: a JSON object per line.
    Watch(const Store& store, Output& output, const SettingsPath& path, bool isJson);
    ~Watch();
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    const SettingsPath& path() const {
        return m_path;
    }

private:
    void _remember(const Item* item);
    void _forget(const std::string& path);
    void _onEvent(const Item* item, settings::ChangeEventType type);
    void _report(const std::string& kind, const Change& change);
    std::string _valueOf(const Item* item) const;

    const Store& m_store;
    Output& m_output;
    SettingsPath m_path;
    bool m_isJson;
    // The value of every setting watched, as JSON, by path; "{}" for every inner node.
    std::map<std::string, std::string> m_known;
    settings::SubscriptionId* m_nodeSubscription;
    settings::SubscriptionId* m_treeSubscription;
};

} // namespace vorn::tool
