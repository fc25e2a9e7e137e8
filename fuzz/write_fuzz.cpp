// Writes an image that the input describes, with rows from the input, and reads it back.
#include "fuzz/harness.h"

#include <vector>

namespace {

constexpr const char *NAME = "a.pix";
constexpr int32_t MAX_ROWS = 6;
constexpr int32_t MAX_WIDTH = 20000; // of rows that are written; more than a reader accepts

enum Option { RAW_WINDOW = 1, SEARCHES = 2, REQUESTS = 8 };

// Fills the description, and changes one word of what can be written.
ImageHandle *make_writer(Input *input, uint32_t options)
{
    const bool searched = options & SEARCHES;
    int32_t bytes[6]; // colours, mattes, depths, choice, the word to change and its value
    for (int32_t &byte : bytes) {
        byte = static_cast<int32_t>(input->number(1) ^ 128) - 128;
    }
    ImageHandle *handle = standin_new_writer(path_of(FOLDERS[0], NAME, searched).c_str(), 0, 0,
                                             bytes[0], bytes[1], bytes[2]);
    handle->name_is_exact = searched ? 0 : 1;
    options &REQUESTS ? standin_request(handle, 1, bytes[3]) : void();
    ImageInfo *info = handle->info;
    int32_t *const words[] = {&handle->image_count, &info->channel_type, &info->channel_width,
                              &info->matte_type,    &info->matte_width,  &info->aux_width};
    if (bytes[4] >= 0 && bytes[4] < 6) {
        *words[bytes[4]] = bytes[5];
    } else if (bytes[4] == 6) {
        info->channel_format[0] = static_cast<char>(bytes[5]);
    }
    int32_t *const window[] = {&info->data_window.x_min, &info->data_window.x_max,
                               &info->data_window.y_min, &info->data_window.y_max};
    for (int32_t *bound : window) { // a small one has up to 1024 columns and 8 rows
        *bound = static_cast<int32_t>(input->number(options & RAW_WINDOW ? 4 : 2));
    }
    if (!(options & RAW_WINDOW)) {
        info->data_window.x_max = info->data_window.x_min + info->data_window.x_max % 1025 - 1;
        info->data_window.y_max = info->data_window.y_min + info->data_window.y_max % 10 - 2;
    }
    return handle;
}

// The header can hold the size, and a reader accepts it.
bool can_be_read(int32_t first, int32_t last)
{
    return int64_t{last} - first >= -1 && int64_t{last} - first < 16383;
}

bool can_be_stored(const ImageHandle *handle)
{
    const ImageInfo &info = *handle->info;
    return handle->image_count == 1 && strcmp(info.channel_format, "RGB") == 0 &&
           info.channel_type == 1 && info.channel_width == 8 && info.matte_count <= 1 &&
           (info.matte_count == 0 || (info.matte_type == 1 && info.matte_width == 8)) &&
           info.aux_count <= 1 && (info.aux_count == 0 || info.aux_width == 31);
}

// Writes one row, every sample byte repeated `stretch` times. Returns its samples.
std::vector<int32_t> write_row(const ImageHandle *handle, int32_t y, Input *input, uint32_t stretch)
{
    PixState *state = handle->priv->state;
    std::vector<std::vector<uint8_t>> buffers; // each of exactly its size
    for (const PixKind kind : PIX_KINDS) {
        const size_t size = static_cast<size_t>(state->width) * (kind == PIX_DEPTH ? 4 : 1);
        for (int i = 0; state->plane[kind].present && i < PIX_FACTS[kind].buffers; ++i) {
            buffers.emplace_back(size);
            for (size_t at = 0; input->left > 0 && at < size; ++at) {
                buffers.back()[at] = input->data[at / stretch % input->left];
            }
            input->take(input->left > 1 ? 1 : 0);
        }
    }
    std::vector<void *> rows;
    for (auto &buffer : buffers) {
        rows.push_back(buffer.data());
    }
    std::vector<int32_t> row = samples(*state, rows.data());
    CHECK(handle->scanline_proc(state, y, rows.data()) == 0 && vyn__err == 0);
    CHECK(samples(*state, rows.data()) == row);
    return row;
}

// Reads back what was written as `state` says.
void read_back(const PixState &state, bool searched,
               const std::vector<std::vector<int32_t>> &written)
{
    ImageHandle *handle = make_reader(NAME, searched);
    const bool readable = state.plane[PIX_COLOUR].present || state.plane[PIX_MATTE].present;
    CHECK(imageReadOpen(handle) == readable);
    if (readable) {
        const PixState &again = *handle->priv->state;
        check_none(image_disagrees(handle));
        CHECK(vyn__err == 0 && again.width == state.width && again.height == state.height);
        int32_t y = state.height;
        for (const std::vector<int32_t> &row : written) {
            void **rows = nullptr;
            CHECK(handle->scanline_proc(handle->priv->state, --y, &rows) == 0);
            CHECK(samples(state, rows) == row); // so the planes are the same
        }
    }
    close_image(handle);
}

void write_image(Input input)
{
    const uint32_t options = input.number(1);
    const uint32_t stretch = input.number(1) + 1;
    ImageHandle *handle = make_writer(&input, options);
    const int32_t channels = handle->info->channel_count;
    const bool stored = can_be_stored(handle);
    CHECK(imageWriteOpen(handle) == stored);
    if (!stored) {
        CHECK(vyn__err == -16 && !handle->priv);
        CHECK(access(path_of(FOLDERS[0], NAME).c_str(), F_OK) != 0);
        vyn__free_obj(handle);
        return;
    }
    const PixState state = *handle->priv->state;
    const ImageWindow &window = handle->info->data_window;
    const bool sized =
        can_be_read(window.x_min, window.x_max) && can_be_read(window.y_min, window.y_max);
    CHECK(state.plane[PIX_COLOUR].present == (handle->info->channel_count == 3));
    CHECK(state.plane[PIX_MATTE].present == (handle->info->matte_count == 1));
    std::vector<std::vector<int32_t>> written;
    for (int32_t row = 0; row < std::min(state.height, MAX_ROWS) && state.width <= MAX_WIDTH;
         ++row) {
        written.push_back(write_row(handle, state.height - 1 - row, &input, stretch));
    }
    close_image(handle);
    if (sized && (channels == 0 || channels == 3)) {
        read_back(state, options & SEARCHES, written);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    (void)path_of(FOLDERS[0], NAME);
    const auto descriptors = open_descriptors();
    write_image({data, size});
    CHECK(open_descriptors() == descriptors);
    for (const char *folder : FOLDERS) {
        unlink(path_of(folder, NAME).c_str());
    }
    return 0;
}
