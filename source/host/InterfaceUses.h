// Which client holds which table, and how often. Guarded by whoever owns it.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace vorn::host {

class InterfaceUses {
public:
    using TableCounts = std::map<const void*, size_t>;

    void add(const std::string& client, const void* table) {
        ++m_clients[client][table];
    }

    // Ends one use; an unknown pair is ignored.
    void release(const std::string& client, const void* table) {
        const auto counts = m_clients.find(client);
        if (counts == m_clients.end()) {
            return;
        }
        const auto count = counts->second.find(table);
        if (count != counts->second.end() && --count->second == 0) {
            counts->second.erase(count);
        }
        if (counts->second.empty()) {
            m_clients.erase(counts);
        }
    }

    // Whether the client holds one of the tables.
    bool holdsAny(const std::string& client, const std::vector<const void*>& tables) const {
        const auto counts = m_clients.find(client);
        if (counts == m_clients.end()) {
            return false;
        }
        for (const void* table : tables) {
            if (counts->second.count(table) > 0) {
                return true;
            }
        }
        return false;
    }

    // Whether any client holds one of the tables.
    bool isAnyHeld(const std::vector<const void*>& tables) const {
        for (const auto& [client, counts] : m_clients) {
            if (holdsAny(client, tables)) {
                return true;
            }
        }
        return false;
    }

    // All uses of a client, taken out, and put back.
    TableCounts takeClient(const std::string& client) {
        const auto node = m_clients.extract(client);
        return node.empty() ? TableCounts() : node.mapped();
    }
    void putClient(const std::string& client, TableCounts counts) {
        if (!counts.empty()) {
            m_clients[client] = std::move(counts);
        }
    }

    // The tables are gone.
    void forgetTables(const std::vector<const void*>& tables) {
        for (auto& [client, counts] : m_clients) {
            for (const void* table : tables) {
                counts.erase(table);
            }
        }
        std::erase_if(m_clients, [](const auto& entry) { return entry.second.empty(); });
    }

    void clear() {
        m_clients.clear();
    }

private:
    std::map<std::string, TableCounts> m_clients; // no empty maps, no zero counts
};

} // namespace vorn::host
