// Delivering scanlines: finds the row that is asked for and reads it into the host's buffers. File
// row r is scanline height - 1 - r.
#include "host/messages.h"
#include "read/read.h"

static int32_t pix_fail_scanline(int32_t y, int failure)
{
    if (failure == PIX_UNDECODABLE) {
        PIX_FAIL(PIX_UNDECODABLE, PIX_MSG_CANNOT_DECODE, y);
    }
    PIX_FAIL(PIX_READ_FAILED, PIX_MSG_CANNOT_READ, y, strerror(errno));
    return PIX_READ_FAILED;
}

int32_t pix_read_scanline(PixState *state, int32_t y, void *out)
{
    if (!state) {
        vyn__err = PIX_BAD_SCANLINE;
        return PIX_BAD_SCANLINE;
    }
    const int64_t row = int64_t{state->height} - 1 - y;
    if (row < 0 || row >= state->height) {
        PIX_FAIL(PIX_BAD_SCANLINE, PIX_MSG_BAD_SCANLINE, y);
        return PIX_BAD_SCANLINE;
    }
    // An open that found no row buffers leaves none to read into.
    int failure = state->chan ? pix_go_to_row(state, static_cast<uint32_t>(row)) : PIX_READ_FAILED;
    if (!failure) {
        failure = pix_next_row(state, state->chan);
    }
    if (failure) {
        return pix_fail_scanline(y, failure);
    }
    *static_cast<void ***>(out) = state->chan;
    vyn__err = PIX_OK;
    return PIX_OK;
}
