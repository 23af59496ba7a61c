// Peer of the change events: a list of plain function pointers, called one after another. The
// callbacks are the same as those that get subscribed; they are compiled apart, so that no caller
// sees through them.
#pragma once

#include <vorn/settings/ISettings.h>

#include <cstdint>

namespace vorn::bench {

// Each counts its calls in the uint64_t that userData points to.
void countNodeEvent(const dictionary::Item*, settings::ChangeEventType, void* userData);
void countTreeEvent(const dictionary::Item*,
                    const dictionary::Item*,
                    settings::ChangeEventType,
                    void* userData);

struct PlainCallback {
    settings::OnNodeChangeEventFn call;
    void* userData;
};

} // namespace vorn::bench
