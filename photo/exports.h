// Marks what the library exports.
#pragma once

#include "include/kt7photo/kt7photo.h"

#define KT7PHOTO_EXPORT extern "C" __attribute__((visibility("default")))
