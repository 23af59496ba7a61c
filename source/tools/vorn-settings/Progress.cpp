// The progress line.
#include "Progress.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>

namespace vorn::tool {

namespace {

constexpr std::chrono::milliseconds kPatience(1000);
constexpr std::chrono::milliseconds kInterval(100);
constexpr size_t kBarLength = 30;
constexpr const char* kWipeLine = "\r\033[K";

} // namespace

Progress::Progress(std::string what, size_t total)
    : m_what(std::move(what)), m_total(std::max<size_t>(total, 1)),
      m_isWanted(isatty(STDERR_FILENO) == 1), m_next(Clock::now() + kPatience) {}

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
    const size_t part = std::min(done, m_total);
    const size_t marks = kBarLength * part / m_total;
    const std::string bar = std::string(marks, '#') + std::string(kBarLength - marks, '.');
    std::fprintf(stderr, "%s%s [%s] %3zu %%", kWipeLine, m_what.c_str(), bar.c_str(),
                 100 * part / m_total);
    std::fflush(stderr);
}

} // namespace vorn::tool
