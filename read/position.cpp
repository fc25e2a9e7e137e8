// Passing over rows, seeking, and the table of row starts.
//
// The table holds the rows that were passed on the way from the header without a failure. After a
// failure the streams stand anywhere: reading may go on from there, but what it passes is not
// remembered, until the next seek brings the streams back to a row that is known.
#include "read/position.h"

#include "format/depth.h"
#include "format/rows.h"
#include "format/stream.h"
#include "host/messages.h"

#include <stdlib.h>

// Rows to the next one in the same file.
static uint32_t pix_stride(const PixState *state)
{
    return state->fields ? 2 : 1;
}

// The starts of colour or of matte rows: of every row and, past the last, of one more per field.
static long *pix_starts(const PixState *state, PixKind kind)
{
    return state->row_starts + (kind == PIX_KIND_MATTE ? state->height + 2 : 0);
}

void pix_start_table(PixState *state)
{
    const PixRowFiles files = pix_row_files(state, 0);
    if (pix_is_standard_stream(files.colour ? files.colour : files.matte)) {
        return;
    }
    const int kept = errno;
    const auto entries = static_cast<size_t>(state->height) + 2;
    state->row_starts = static_cast<long *>(malloc(2 * entries * sizeof(long)));
    if (state->row_starts) {
        for (int field = 0; field < 2; ++field) {
            pix_starts(state, PIX_KIND_COLOUR)[field] = sizeof(PixHeader);
            pix_starts(state, PIX_KIND_MATTE)[field] = sizeof(PixHeader);
        }
    }
    errno = kept;
}

void pix_pass_row(PixState *state, PixRowSize size)
{
    const uint32_t row = state->row;
    if (state->row_starts && !state->astray) {
        const uint32_t next = row + pix_stride(state);
        long *colour = pix_starts(state, PIX_KIND_COLOUR);
        long *matte = pix_starts(state, PIX_KIND_MATTE);
        colour[next] = colour[row] + size.colour;
        matte[next] = matte[row] + size.matte;
        state->known_rows = row + 1 > state->known_rows ? row + 1 : state->known_rows;
    }
    if (state->fields) {
        state->field[row & 1].rows += 1;
    }
    state->row += 1;
}

static int pix_skip_row(PixState *state)
{
    const PixRowFiles files = pix_row_files(state, state->row);
    PixRowSize size = {};
    if ((state->has_colour && pix_skip_colour_row(files.colour, state->width, &size.colour) != 0) ||
        (state->has_matte && pix_skip_matte_row(files.matte, state->width, &size.matte) != 0) ||
        (state->has_depth && pix_skip_depth_row(files.depth, state->width) != 0)) {
        return PIX_READ_FAILED;
    }
    pix_pass_row(state, size);
    return PIX_OK;
}

// Where `row` begins in its file of one kind.
static long pix_row_start(const PixState *state, PixKind kind, uint32_t row)
{
    const uint32_t file_row = row / pix_stride(state);
    if (kind == PIX_KIND_DEPTH) {
        return static_cast<long>(sizeof(PixDepthHeader)) +
               long{state->width} * state->depth_sample_size * file_row;
    }
    return file_row == 0 ? static_cast<long>(sizeof(PixHeader)) : pix_starts(state, kind)[row];
}

// Where the first row from `row` on begins in the file of one kind and field.
static long pix_field_start(const PixState *state, PixKind kind, uint32_t field, uint32_t row)
{
    return pix_row_start(state, kind, state->fields ? row + ((row ^ field) & 1) : row);
}

// Seeks the first `count` streams, in the order of the kinds, to row `to`: a field's to the first
// of its rows from there on. If they are known to stand at row `from` and to be able to seek, they
// are moved in their buffers where that is enough. Returns how many were sought before one failed.
static uint32_t pix_seek_streams(PixState *state, uint32_t from, uint32_t to, uint32_t count,
                                 bool known)
{
    for (uint32_t done = 0; done < count; ++done) {
        const uint32_t field = done % pix_stride(state);
        const PixKind kind = PIX_KINDS[done / pix_stride(state)];
        FILE *fp = *pix_kind_slots(state, kind).streams[state->fields ? 1 + field : 0];
        const long start = pix_field_start(state, kind, field, to);
        const bool moved =
            fp && known &&
            pix_move_in_buffer(fp, start - pix_field_start(state, kind, field, from));
        if (fp && !moved && fseek(fp, start, SEEK_SET) != 0) {
            return done;
        }
    }
    return count;
}

// Seeks to a row that is known to begin where the table says. After a failure the streams stand
// where a search for the row would have left them: one that goes back begins by rewinding them in
// turn, one that goes onward does not seek. If they cannot be brought there, the next request is to
// seek, wherever it goes.
static int pix_jump(PixState *state, uint32_t row)
{
    const uint32_t streams = 3 * pix_stride(state);
    const bool known = state->row_starts && state->seekable && !state->astray;
    const uint32_t sought = pix_seek_streams(state, state->row, row, streams, known);
    if (sought < streams) {
        const int reason = errno;
        const uint32_t left = row < state->row ? 0 : state->row;
        if (pix_seek_streams(state, row, left, sought, true) < sought) {
            state->must_seek = 1;
        }
        errno = reason;
        return PIX_READ_FAILED;
    }
    state->field[0].rows = state->fields ? (row + 1) / 2 : 0;
    state->field[1].rows = state->fields ? row / 2 : 0;
    state->row = row;
    state->astray = 0;
    state->must_seek = 0;
    state->seekable = 1;
    return PIX_OK;
}

int pix_go_to_row(PixState *state, uint32_t row)
{
    // The last known row at or before the one wanted. Streams that are astray go on from where they
    // are, unless they must go back. Where a seek would only save time, a failure does no harm.
    const uint32_t known = row < state->known_rows ? row : state->known_rows;
    const bool must = row < state->row || state->must_seek;
    const bool saves = known > state->row && !state->astray;
    if (must || saves) {
        const int kept = errno;
        if (pix_jump(state, known) != 0) {
            if (must || state->must_seek) {
                return PIX_READ_FAILED;
            }
            errno = kept;
        }
    }
    while (state->row < row) {
        if (pix_skip_row(state) != 0) {
            return PIX_READ_FAILED;
        }
    }
    return PIX_OK;
}
