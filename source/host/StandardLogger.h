// A logger that writes one line of text per message to a file descriptor.
//
// Threads: settings may be changed while a message is written; the service sees to it that only
// one message is written at a time.
#pragma once

#include "vorn/logging/Log.h"

#include <atomic>

namespace vorn::host {

struct StandardLogger {
    logging::StandardLogger contract; // what others hold; first, so that both share one address
    std::atomic<int32_t> levelThreshold;
    std::atomic<bool> isFileNameIncluded;
    std::atomic<int> fileDescriptor;

    StandardLogger();

    // Back to what a new one starts with.
    void reset();
};

} // namespace vorn::host
