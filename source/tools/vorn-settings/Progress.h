// Tells a person at a terminal how far a long load has come.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace vorn::tool {

// One line on standard error, kept up to date and gone again at the end. Nothing where standard
// error is no terminal, and nothing before a second has passed.
class Progress {
public:
    // what: as in "reading app.json"; total: what done comes to at the end.
    Progress(std::string what, size_t total);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // Cheap enough to be called for every value.
    void reached(size_t done) {
        if (m_isWanted && ++m_callCount % kCallsPerLook == 0) {
            _look(done);
        }
    }

private:
    static constexpr size_t kCallsPerLook = 4096;

    void _look(size_t done);

    using Clock = std::chrono::steady_clock;

    std::string m_what;
    size_t m_total;
    size_t m_callCount = 0;
    bool m_isWanted;
    bool m_isShown = false;
    Clock::time_point m_next; // when to show it, or to show it anew
};

} // namespace vorn::tool
