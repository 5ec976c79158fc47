#pragma once

// Marks what the shared library shows; everything else is hidden.
#define HALVERNAPI_EXPORT __attribute__((visibility("default")))
