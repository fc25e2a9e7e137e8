// Seeking, and the table of row starts.
//
// The table holds the rows that were passed on the way from the header without a failure. After a
// row that could not be read the files are astray: reading may go on from there, but what it passes
// is not remembered, until the next seek brings the files back to a row that is known. After a seek
// that failed the image is lost: it gives no row until a later seek has brought all files to one
// row.
#include "read/read.h"

#include "fileset/stream.h"
#include "host/messages.h"

#include <initializer_list>
#include <stdlib.h>

void pix_start_table(PixState *state)
{
    const PixKind main = state->plane[PIX_COLOUR].present ? PIX_COLOUR : PIX_MATTE;
    if (pix_is_standard_stream(state->plane[main].file[0].fp)) {
        return;
    }
    // For colour and matte: the start of every row, and of one row per field after the last row.
    const int kept = errno;
    const size_t entries = static_cast<size_t>(state->height) + state->fields;
    state->table = static_cast<long *>(malloc(2 * entries * sizeof(long)));
    for (const PixKind kind : {PIX_COLOUR, PIX_MATTE}) {
        if (state->table) {
            long *starts = state->table + static_cast<size_t>(kind) * entries;
            starts[0] = sizeof(PixHeader);
            starts[state->fields - 1] = sizeof(PixHeader);
            state->plane[kind].starts = starts;
        }
    }
    errno = kept;
}

// Returns where the first row from `row` on begins in the file of one kind and field. Without row
// starts the result is right only for rows of samples, and for the first row of a file.
static long pix_row_start(const PixState *state, PixKind kind, uint32_t field, uint32_t row)
{
    const PixPlane *plane = &state->plane[kind];
    row += (row + field) % state->fields;
    const long size = long{state->width} * long{PIX_DEPTH_SAMPLE_SIZE};
    return plane->starts ? plane->starts[row]
                         : PIX_FACTS[kind].header_size + long{row / state->fields} * size;
}

// Brings every file to the first of its rows from `to` on. Where all files stand at `row` and are
// known to be able to seek, a step within a stream's buffer is enough.
static int pix_seek_files(PixState *state, uint32_t to)
{
    const bool steps = state->table && state->seekable && state->place == PIX_AT_ROW;
    for (const PixKind kind : PIX_KINDS) {
        for (uint32_t field = 0; state->plane[kind].present && field < state->fields; ++field) {
            FILE *fp = state->plane[kind].file[field].fp;
            const long start = pix_row_start(state, kind, field, to);
            const bool stepped =
                steps && pix_consume(fp, start - pix_row_start(state, kind, field, state->row));
            if (!stepped && fseek(fp, start, SEEK_SET) != 0) {
                state->place = PIX_LOST;
                return PIX_READ_FAILED;
            }
        }
    }
    state->row = to;
    state->place = PIX_AT_ROW;
    state->seekable = true;
    return PIX_OK;
}

int pix_go_to_row(PixState *state, uint32_t row)
{
    const uint32_t known = row < state->known_rows ? row : state->known_rows;
    const bool must = row < state->row || state->place == PIX_LOST;
    const bool saves = known > state->row && state->place == PIX_AT_ROW;
    int failure = must || saves ? pix_seek_files(state, known) : PIX_OK;
    while (!failure && state->row < row) {
        failure = pix_next_row(state, nullptr);
    }
    return failure;
}
