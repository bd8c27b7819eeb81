// Marks a definition of the public header as exported.
#pragma once

#include <cstdint>

#include "include/kt7lib/kt7lib.h"

#define KT7_EXPORT extern "C" __attribute__((visibility("default")))
