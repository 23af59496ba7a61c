// The progress line.
#include "Progress.h"

#include <cstdio>
#include <unistd.h>

namespace vorn::tool {

namespace {

constexpr std::chrono::milliseconds kPatience(1000);
constexpr std::chrono::milliseconds kInterval(100);
constexpr const char* kWipeLine = "\r\033[K";

} // namespace

Progress::Progress(const std::string& name, size_t total)
    : m_name(name), m_total(total), m_isWanted(isatty(STDERR_FILENO) == 1),
      m_next(Clock::now() + kPatience) {}

Progress::~Progress() {
    if (m_isShown) {
        std::fputs(kWipeLine, stderr);
    }
}

void Progress::_look(size_t done) {
    if (Clock::now() < m_next) {
        return;
    }
    m_next = Clock::now() + kInterval;
    m_isShown = true;
    std::fprintf(stderr, "%sreading %s: %zu %%", kWipeLine, m_name.c_str(), 100 * done / m_total);
    std::fflush(stderr);
}

} // namespace vorn::tool
