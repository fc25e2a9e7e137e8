// Reading past damaged rows, and the mean of areas.
#include "vorla/rows.h"

#include "format/depth.h"

#include <algorithm>
#include <numeric>

namespace {

// When `whole` rows or columns are reduced to `parts`, the first of those that make number `at`.
int32_t start_of(int32_t at, int32_t whole, int32_t parts)
{
    return static_cast<int32_t>(int64_t{at} * whole / parts);
}

// The shape that fits into so many pixels each way; 0: as it is.
PictureShape fit(PictureShape shape, int32_t size)
{
    const int32_t longer = std::max(shape.width, shape.height);
    const int32_t most = size > 0 ? std::min(size, longer) : longer;
    shape.width = std::max(1, start_of(most, shape.width, longer));
    shape.height = std::max(1, start_of(most, shape.height, longer));
    return shape;
}

// Adds a row to the sums of columns, or to the least of their depths.
void add_row(const void *row, bool is_depth, std::vector<int32_t> *columns)
{
    for (size_t x = 0; x < columns->size(); ++x) {
        int32_t &column = (*columns)[x];
        column = is_depth ? std::min(column, static_cast<const int32_t *>(row)[x])
                          : column + static_cast<const uint8_t *>(row)[x];
    }
}

} // namespace

ExportRows::ExportRows(Source *picture)
    : shape(fit(picture->shape, picture->session.options.size)), source(picture), made(shape)
{
    if (shape.depth) {
        std::fill_n(made.buffers.back().begin(), shape.width, PIX_DEPTH_LIMIT);
    }
}

// Reads a row of the picture. False when it is lost. After a lost row, first reads the last good
// row again, or opens the picture again: from there the module passes over the damaged rows by
// their counts.
bool ExportRows::find(int32_t row)
{
    good = row == 0 ? -1 : good;
    if (lost > 0 && good < 0) {
        source->reopen();
    }
    lost = row == 0 ? 0 : lost;
    try {
        if (lost == 0) {
            source->read_row(row);
            good = row;
        } else if (good < 0 || good == row - 1 || source->fetch_row(good)) {
            good = source->fetch_row(row) ? row : good;
        }
    } catch (const Failure &failure) {
        if (failure.code != EXIT_DAMAGED || !source->session.options.partial) {
            throw;
        }
        first = failure.what();
    }
    lost += good == row ? 0 : 1;
    return good == row;
}

void *const *ExportRows::read(int32_t row)
{
    const PictureShape &whole = source->shape;
    if (shape.width == whole.width && shape.height == whole.height) {
        return find(row) ? source->rows : made.array.data();
    }
    const size_t depth = depth_index(shape);
    const int32_t top = start_of(row, whole.height, shape.height);
    const int32_t bottom = start_of(row + 1, whole.height, shape.height);
    const auto width = static_cast<size_t>(whole.width);
    std::vector<std::vector<int32_t>> columns(depth, std::vector<int32_t>(width, 0));
    columns.resize(made.array.size(), std::vector<int32_t>(width, PIX_DEPTH_LIMIT));
    for (int32_t at = top; at < bottom; ++at) {
        const size_t channels = find(at) ? columns.size() : 0; // a black row adds nothing
        for (size_t channel = 0; channel < channels; ++channel) {
            add_row(source->rows[channel], channel == depth, &columns[channel]);
        }
    }
    for (size_t channel = 0; channel < columns.size(); ++channel) {
        for (int32_t x = 0; x < shape.width; ++x) {
            const auto from = columns[channel].begin() + start_of(x, whole.width, shape.width);
            const auto to = columns[channel].begin() + start_of(x + 1, whole.width, shape.width);
            if (channel == depth) {
                static_cast<int32_t *>(made.array[channel])[x] = *std::min_element(from, to);
            } else {
                const int64_t pixels = (bottom - top) * (to - from);
                const int64_t sum = std::accumulate(from, to, pixels / 2);
                static_cast<uint8_t *>(made.array[channel])[x] = static_cast<uint8_t>(sum / pixels);
            }
        }
    }
    return made.array.data();
}
