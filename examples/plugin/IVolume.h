// The contract of the volume plugin: what its users compile against.
#pragma once

#include <vorn/Framework.h>

namespace example {

// The volume is a setting, /audio/volume, in percent; /audio/limit is the loudest that step goes.
struct IVolume {
    static constexpr vorn::InterfaceDesc getInterfaceDesc() {
        return {"example::IVolume", {1, 0}};
    }

    // The volume, and how often it has changed since start-up.
    int32_t (*getPercent)();
    uint32_t (*getChangeCount)();

    // Louder or quieter by so many percent, within 0 and the limit.
    void (*step)(int32_t percent);
};

} // namespace example
