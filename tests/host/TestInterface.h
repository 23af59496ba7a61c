// The interface that all test plugins offer, each under a name of its own.
#pragma once

#include "vorn/Framework.h"

struct TestInterface {
    int (*getEdition)(); // tells two builds of one plugin apart
    bool (*isStarted)(); // between the end of start-up and the begin of shut-down
};
