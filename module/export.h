#pragma once

/// C linkage and a place in the module's export table; everything not marked with it is hidden.
#define TARQ_EXPORT extern "C" __attribute__((visibility("default")))
