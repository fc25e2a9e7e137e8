// Delivering scanlines: decodes the row that is asked for into the host's buffers. File row r is
// scanline height - 1 - r.
#include "format/depth.h"
#include "format/rows.h"
#include "host/messages.h"
#include "read/position.h"
#include "read/read.h"

// Decodes the row at which the files stand into the row buffers.
static int pix_decode_row(PixState *state)
{
    const PixRowFiles files = pix_row_files(state, state->row);
    void *const *rows = state->chan;
    PixRowSize size = {};
    int failure = PIX_OK;
    if (state->has_colour) {
        failure = pix_read_colour_row(files.colour, state->width, rows, &size.colour);
    }
    if (!failure && state->has_matte) {
        failure = pix_read_matte_row(files.matte, state->width, pix_matte_buffer(state, rows),
                                     &size.matte);
    }
    if (!failure && state->has_depth) {
        failure = pix_read_depth_row(files.depth, state->width, state->depth_kind,
                                     pix_depth_buffer(state, rows));
    }
    if (!failure) {
        pix_pass_row(state, size);
    }
    return failure;
}

static int32_t pix_fail_scanline(int32_t y, int failure)
{
    if (failure == PIX_BAD_SCANLINE) {
        PIX_FAIL(PIX_BAD_SCANLINE, PIX_MSG_BAD_SCANLINE, y);
        return PIX_BAD_SCANLINE;
    }
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
        return pix_fail_scanline(y, PIX_BAD_SCANLINE);
    }
    if (!state->chan) { // the open found no row buffers
        return pix_fail_scanline(y, PIX_READ_FAILED);
    }
    int failure = pix_go_to_row(state, static_cast<uint32_t>(row));
    if (!failure) {
        failure = pix_decode_row(state);
    }
    if (failure) {
        state->astray = 1;
        return pix_fail_scanline(y, failure);
    }
    *static_cast<void ***>(out) = state->chan;
    vyn__err = PIX_OK;
    return PIX_OK;
}
