#include "PlainCallbacks.h"

namespace vorn::bench {

void countNodeEvent(const dictionary::Item*, settings::ChangeEventType, void* userData) {
    ++*static_cast<uint64_t*>(userData);
}

void countTreeEvent(const dictionary::Item*,
                    const dictionary::Item*,
                    settings::ChangeEventType,
                    void* userData) {
    ++*static_cast<uint64_t*>(userData);
}

} // namespace vorn::bench
