// Reading past damaged rows, and the mean of areas.
#include "vorla/rows.h"

#include "format/depth.h"

#include <algorithm>

namespace {

PictureShape fit(PictureShape shape, int32_t size)
{
    const int32_t longer = std::max(shape.width, shape.height);
    for (int32_t *side : {&shape.width, &shape.height}) {
        if (size > 0 && size < longer) {
            *side = std::max(1, static_cast<int32_t>(int64_t{*side} * size / longer));
        }
    }
    return shape;
}

void fill_depths(RowBuffers *rows, const PictureShape &shape)
{
    if (shape.depth) {
        std::vector<int32_t> &depths = rows->buffers.back();
        std::fill(depths.begin(), depths.end(), PIX_DEPTH_LIMIT);
    }
}

} // namespace

ExportRows::ExportRows(Source *picture)
    : shape(fit(picture->shape, picture->session.options.size)), source(picture),
      whole(picture->shape), black(whole), small(shape)
{
    fill_depths(&black, whole);
    const auto width = static_cast<size_t>(whole.width);
    for (size_t x = 0; x < width; ++x) { // the last column that begins at or before x
        column.push_back(((x + 1) * static_cast<size_t>(shape.width) - 1) / width);
    }
}

// The module passes over a damaged row by its own rule when it comes from a row before it, or from
// a fresh open.
void *const *ExportRows::read_whole(int32_t row)
{
    if (!source->session.options.partial) {
        source->read_row(row);
        return source->rows;
    }
    if (row == 0) {
        lost = 0;
        good = -1;
    }
    if (astray && good < 0) {
        source->reopen();
    }
    const bool found = !astray || good < 0 || source->fetch_row(good);
    astray = true;
    try {
        if (lost == 0) {
            source->read_row(row);
            astray = false;
        } else {
            astray = !found || !source->fetch_row(row);
        }
    } catch (const Failure &failure) {
        if (failure.code != EXIT_DAMAGED) {
            throw;
        }
        first = failure.what();
    }
    lost += astray ? 1 : 0;
    good = astray ? good : row;
    return astray ? black.array.data() : source->rows;
}

// Adds a row to the sums, and to the least of the depths.
void ExportRows::add(void *const *rows)
{
    const auto width = static_cast<size_t>(shape.width);
    for (size_t channel = 0; channel < depth_index(shape); ++channel) {
        const auto *samples = static_cast<const uint8_t *>(rows[channel]);
        uint64_t *sum = sums.data() + channel * width;
        for (size_t x = 0; x < column.size(); ++x) {
            sum[column[x]] += samples[x];
        }
    }
    uint64_t *pixels = sums.data() + depth_index(shape) * width;
    for (size_t x = 0; x < column.size(); ++x) {
        pixels[column[x]] += 1;
        if (shape.depth) {
            int32_t &least = small.buffers.back()[column[x]];
            least = std::min(least, static_cast<const int32_t *>(rows[depth_index(shape)])[x]);
        }
    }
}

void *const *ExportRows::read(int32_t row)
{
    if (shape.width == whole.width && shape.height == whole.height) {
        return read_whole(row);
    }
    const auto width = static_cast<size_t>(shape.width);
    const size_t samples = depth_index(shape) * width;
    sums.assign(samples + width, 0);
    fill_depths(&small, shape);
    const int64_t from = int64_t{row} * whole.height / shape.height;
    const int64_t to = (int64_t{row} + 1) * whole.height / shape.height;
    for (int64_t at = from; at < to; ++at) {
        add(read_whole(static_cast<int32_t>(at)));
    }
    for (size_t at = 0; at < samples; ++at) {
        const uint64_t pixels = sums[samples + at % width];
        static_cast<uint8_t *>(small.array[at / width])[at % width] =
            static_cast<uint8_t>((sums[at] + pixels / 2) / pixels);
    }
    return small.array.data();
}
