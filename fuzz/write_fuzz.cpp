// Writes an image that the input describes, with rows from the input, and reads it back.
#include "fuzz/harness.h"

constexpr uint8_t ORDER[] = {0, 1, 2, 3, 4, 5}; // of rows that are read back

// Gives every word of the description that matters a byte of the input.
static void describe(ImageHandle *handle, Input *input)
{
    ImageInfo *info = handle->info;
    for (int32_t *word : {&info->channel_count, &info->matte_count, &info->aux_count,
                          &handle->image_count, &info->channel_type, &info->channel_width,
                          &info->matte_type, &info->matte_width, &info->aux_width}) {
        *word = static_cast<int32_t>(number(input, 1) ^ 128) - 128; // signed
    }
    info->channel_format[0] = static_cast<char>(number(input, 1));
    ImageWindow &window = info->data_window;
    for (int32_t *bound : {&window.x_min, &window.x_max, &window.y_min, &window.y_max}) {
        *bound = static_cast<int32_t>(number(input, 2));
    }
    window.x_max = window.x_min + window.x_max % 1025 - 1; // up to 1024 columns and 8 rows
    window.y_max = window.y_min + window.y_max % 9 - 1;
}

// Writes a row. Each of its buffers gets the rest of the input, stretched or shortened to its
// width; after each buffer the first byte of the input is dropped, so that the buffers differ.
static void write_row(const ImageHandle *handle, uint8_t number, Input *input, Rows *written)
{
    PixState *state = handle->priv->state;
    const auto width = static_cast<size_t>(state->width);
    std::vector<std::vector<uint8_t>> buffers(5, std::vector<uint8_t>(4 * width));
    std::vector<void *> rows;
    for (auto &buffer : buffers) {
        for (size_t at = 0; at < buffer.size() && !input->empty(); ++at) {
            buffer[at] = (*input)[at * input->size() / width % input->size()];
        }
        take(input, input->size() > 1 ? 1 : 0);
        rows.push_back(buffer.data());
    }
    (*written)[number] = samples(*state, rows.data());
    assert(handle->scanline_proc(state, state->height - 1 - number, rows.data()) == 0);
    assert(vyn__err == 0 && samples(*state, rows.data()) == written->at(number));
}

void try_image(Input input)
{
    const uint32_t options = number(&input, 1); // searching, request and its code
    const auto choice = static_cast<int8_t>(number(&input, 1));
    const std::string name = (options & 2 ? "" : directory + "/") + "renders/a.pix";
    ImageHandle *handle = standin_new_writer(name.c_str(), 0, 0, 0, 0, 0);
    handle->name_is_exact = options & 2 ? 0 : 1;
    options & 8 ? standin_request(handle, options & 16 ? 0 : 1, choice) : void();
    describe(handle, &input);
    if (imageWriteOpen(handle) == 0) {
        assert(vyn__err == -16 && !handle->priv);
        assert(std::filesystem::is_empty(directory + FOLDERS[0]));
        vyn__free_obj(handle);
        return;
    }
    const PixState state = *handle->priv->state;
    const ImageInfo info = *handle->info;
    assert(state.plane[PIX_COLOUR].present == (info.channel_count == 3));
    assert(state.plane[PIX_MATTE].present == (info.matte_count == 1));
    Rows written;
    for (uint8_t row = 0; row < std::min(state.height, 6); ++row) {
        write_row(handle, row, &input, &written);
    }
    assert(handle->close_proc(handle) == 0 && vyn__err == 0);
    Rows read;
    const PixState again = read_image(standin_new_reader(name.c_str()), ORDER, &read);
    assert((again.mode == 'r') ==
           (info.channel_count == 3 || (info.channel_count == 0 && info.matte_count == 1)));
    assert(!again.mode ||
           (again.width == state.width && again.height == state.height && read == written));
}
