// What the module says of itself in its descriptor and of every image that it reads. The meaning is
// the host's.
#pragma once

#include <stdint.h>

constexpr int32_t PIX_ORIENTATION = 2;
constexpr int32_t PIX_USAGE = 1;
