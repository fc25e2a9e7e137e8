// Depth samples to the host's integers and back.
#include "format/depth.h"

#include "format/header.h"

constexpr uint32_t PIX_FLOAT_1E8 = 0x4CBEBC20; // the only bits that mean 1e8

void pix_swap_samples(int32_t *samples, size_t count)
{
    for (size_t i = 0; i < count; ++i) {
        samples[i] = static_cast<int32_t>(__builtin_bswap32(static_cast<uint32_t>(samples[i])));
    }
}

void pix_convert_floats(const uint8_t *bytes, size_t count, int32_t *samples)
{
    for (size_t i = 0; i < count; ++i) {
        const uint32_t sample = pix_long(bytes + PIX_DEPTH_SAMPLE_SIZE * i);
        samples[i] = sample == PIX_FLOAT_1E8 ? 0 : PIX_DEPTH_LIMIT;
    }
}
