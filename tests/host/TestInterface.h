// The interface that all test plugins offer, each under a name of its own.
#pragma once

#include "vorn/Framework.h"

#include <cstdint>

struct TestInterface {
    int (*getEdition)();       // tells two builds of one plugin apart
    bool (*isStarted)();       // between the end of start-up and the begin of shut-down
    int32_t (*getLogLevel)();  // the threshold that the logging service has pushed
    void (*warn)(const char*); // logs the text as a warning
};
