// The profiler service and its client side. Plugins hold the handle; a host without a profiler
// loses nothing.
#pragma once

#include "../Framework.h"

namespace vorn::profiler {

// mask selects capture groups, one bit a group; events of groups outside the capture mask are
// dropped. Names must live as long as the process. [any thread]
struct Profiler {
    // Name and version, for acquiring the table.
    static constexpr InterfaceDesc getInterfaceDesc() {
        return {"vorn::profiler::Profiler", {0, 1}};
    }

    void (*startup)();                              // starts capturing
    void (*shutdown)();                             // ends capturing
    uint64_t (*setCaptureMask)(uint64_t mask);      // returns the mask before
    void (*begin)(uint64_t mask, const char* name); // opens a zone on this thread
    void (*end)(uint64_t mask);                     // closes the zone opened last
    void (*frame)(uint64_t mask, const char* name); // marks the end of a frame
    // A value at this moment, for its curve.
    void (*valueFloat)(uint64_t mask, float value, const char* name);
    void (*valueInt)(uint64_t mask, int32_t value, const char* name);
    void (*valueUInt)(uint64_t mask, uint32_t value, const char* name);
};

static_assert(sizeof(Profiler) == 9 * sizeof(void (*)()), "9 slots");

} // namespace vorn::profiler

extern VORN_HIDDEN vorn::profiler::Profiler* g_vornProfiler; // the service, or null

namespace vorn::profiler {

// Acquires the service when there is one.
inline void registerProfilerForClient() {
    g_vornProfiler = static_cast<Profiler*>(g_vornFramework->tryAcquireInterfaceWithClient(
        g_vornClientName, Profiler::getInterfaceDesc(), nullptr));
}

// Lets go of it.
inline void deregisterProfilerForClient() {
    g_vornProfiler = nullptr;
}

} // namespace vorn::profiler
