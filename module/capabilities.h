// What a host's capability requests choose. Both opens share it.
#pragma once

#include "host/capabilities.h"
#include "host/vyn.h"

// Returns the channel choice that the handle's requests make for an open that accepts the
// capability `accepted`: the last accepted request's value, whatever it is, or
// PIX_CHANNELS_RGB_MATTE_Z when there is none or it is PIX_CHANNELS_UNDECIDED. A request with
// another code ends the walk with a warning and leaves PIX_UNSUPPORTED in vyn__err.
[[nodiscard]] int32_t pix_choose_channels(const ImageHandle *handle, uint16_t accepted);
