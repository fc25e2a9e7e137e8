// Reads an image made of the input: the last bytes choose the name, the host's options, the files
// and the order of the scanlines; what stands before them fills the files.
#include "fuzz/harness.h"

#include <fstream>
#include <iterator>
#include <utility>
#include <vector>

namespace {

// The name that the host asks for, and those of the single file and of the fields.
constexpr const char *NAMES[][4] = {
    {"a.pix", "a.pix", "a.pix.e", "a.pix.o"},
    {"a.rgb", "a.rgb", "a.rgb.e", "a.rgb.o"},
    {"a.7", "a.7", "a.7e", "a.7o"},
    {"a.7e", "a.7", "a.7e", "a.7o"},
    {"a.o", "a", "a.e", "a.o"},
};

constexpr size_t PLAN_SIZE = 16;

struct Plan {
    uint32_t options; // name, searching, request and its code
    int32_t choice;
    uint32_t files; // a bit for each of three names in each folder
    Input order;    // of scanlines

    const char *name(int which) const
    {
        return NAMES[(options & 15) % std::size(NAMES)][which];
    }
};

// Makes the files, or removes them. Before the bytes of each stands their number.
void make_files(const Plan &plan, Input bytes, bool remove)
{
    for (int file = 0; file < 9; ++file) {
        const std::string path = path_of(FOLDERS[file / 3], plan.name(1 + file % 3));
        if ((plan.files >> file & 1) != 0 && remove) {
            unlink(path.c_str());
        } else if ((plan.files >> file & 1) != 0) {
            const Input content = bytes.take(bytes.number(2));
            std::ofstream(path).write(reinterpret_cast<const char *>(content.data),
                                      static_cast<std::streamsize>(content.left));
        }
    }
}

// Streams, counts, flags and row buffers agree.
void check_opened(const ImageHandle *handle)
{
    PixState *state = handle->priv->state;
    const ImageInfo &info = *handle->info;
    CHECK(vyn__err == 0 || vyn__err == -5 || vyn__err == -16);
    for (const PixKind kind : PIX_KINDS) {
        const int32_t buffers = state->plane[kind].present ? PIX_FACTS[kind].buffers : 0;
        CHECK(info.*PIX_FACTS[kind].count == buffers);
    }
    CHECK(info.channel_count == 3 || (info.matte_count == 1 && info.aux_count == 0));
    CHECK(info.width == state->width && info.height == state->height);
    CHECK(info.width >= 0 && info.width <= 16383 && info.height >= 0 && info.height <= 16383);
    const int32_t rows = info.channel_count + info.matte_count + info.aux_count;
    CHECK(std::find(state->chan, state->chan + rows + 1, nullptr) == state->chan + rows);
    for (const PixPlane &plane : state->plane) {
        for (uint32_t field = 0; field < 2; ++field) {
            const bool used = plane.present && field < state->fields;
            CHECK((plane.file[field].fp != nullptr) == used);
        }
    }
}

// Nothing is left but a state on which calls do no harm.
void check_failed(const ImageHandle *handle)
{
    PixState *state = handle->priv->state;
    CHECK(vyn__err == -5 || vyn__err == -8);
    for (const PixPlane &plane : state->plane) {
        CHECK(!plane.file[0].fp && !plane.file[1].fp && !plane.name && !plane.present);
    }
    CHECK(!state->chan && !state->table);
    void **rows = nullptr;
    CHECK(handle->scanline_proc(state, 0, &rows) == -2 && !rows);
}

// Null when the image does not open.
ImageHandle *open_image(const Plan &plan)
{
    ImageHandle *handle = make_reader(plan.name(0), plan.options & 16);
    plan.options & 32 ? standin_request(handle, plan.options >> 6 & 1, plan.choice) : void();
    if (imageReadOpen(handle) == 1) {
        check_opened(handle);
        return handle;
    }
    check_failed(handle);
    close_image(handle);
    return nullptr;
}

// True when the row read well and from where it begins, which is not known after a failure.
bool read_row(const ImageHandle *handle, int32_t y, std::string *samples)
{
    PixState *state = handle->priv->state;
    void **rows = nullptr;
    const int32_t code = handle->scanline_proc(state, y, &rows);
    const bool inside = y >= 0 && y < state->height;
    CHECK(code == vyn__err && (inside ? code == 0 || code == -18 : code == -2));
    CHECK(rows == (code == 0 ? state->chan : nullptr));
    if (code == 0) {
        *samples = samples_of(*state, rows);
    }
    return code == 0 && state->place == PIX_AT_ROW;
}

// Every row that reads well reads the same when it is gone back to.
void read_image(const Plan &plan)
{
    ImageHandle *handle = open_image(plan);
    if (!handle) {
        return;
    }
    std::vector<std::pair<int32_t, std::string>> rows;
    for (Input order = plan.order; order.left > 0;) {
        const uint32_t next = order.number(1);
        const int32_t special[] = {0, INT32_MAX, INT32_MIN};
        const int32_t y = next < 253 ? handle->info->height - 1 - static_cast<int32_t>(next)
                                     : special[next - 253];
        std::string samples;
        if (read_row(handle, y, &samples)) {
            rows.emplace_back(y, samples);
        }
    }
    close_image(handle);
    handle = open_image(plan);
    std::string samples;
    read_row(handle, 0, &samples); // as far as the files go
    for (auto row = rows.rbegin(); row != rows.rend(); ++row) {
        CHECK(read_row(handle, row->first, &samples) && samples == row->second);
    }
    close_image(handle);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input tail = {data, size};
    const Input content = tail.take(size - std::min(size, PLAN_SIZE));
    Plan plan = {tail.number(1), static_cast<int8_t>(tail.number(1)), tail.number(2), {}};
    plan.order = tail;
    make_files(plan, content, false);
    const auto descriptors = open_descriptors();
    read_image(plan);
    CHECK(open_descriptors() == descriptors);
    make_files(plan, content, true);
    return 0;
}
