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

// Null when the image does not open.
ImageHandle *open_image(const Plan &plan)
{
    ImageHandle *handle = make_reader(plan.name(0), plan.options & 16);
    plan.options & 32 ? standin_request(handle, plan.options >> 6 & 1, plan.choice) : void();
    if (imageReadOpen(handle) == 1) {
        check_none(image_disagrees(handle));
        return handle;
    }
    check_none(failed_open_holds(handle));
    close_image(handle);
    return nullptr;
}

// True when the row read well and from where it begins, which is not known after a failure.
bool read_row(const ImageHandle *handle, int32_t y, std::vector<int32_t> *row)
{
    PixState *state = handle->priv->state;
    void **rows = nullptr;
    const int32_t code = handle->scanline_proc(state, y, &rows);
    const bool inside = y >= 0 && y < state->height;
    CHECK(code == vyn__err && (inside ? code == 0 || code == -18 : code == -2));
    CHECK(rows == (code == 0 ? state->chan : nullptr));
    if (code == 0) {
        *row = samples(*state, rows);
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
    std::vector<std::pair<int32_t, std::vector<int32_t>>> rows;
    for (Input order = plan.order; order.left > 0;) {
        const uint32_t next = order.number(1);
        const int32_t special[] = {0, INT32_MAX, INT32_MIN};
        const int32_t y = next < 253 ? handle->info->height - 1 - static_cast<int32_t>(next)
                                     : special[next - 253];
        std::vector<int32_t> row;
        if (read_row(handle, y, &row)) {
            rows.emplace_back(y, row);
        }
    }
    close_image(handle);
    handle = open_image(plan);
    std::vector<int32_t> again;
    read_row(handle, 0, &again); // as far as the files go
    for (auto row = rows.rbegin(); row != rows.rend(); ++row) {
        CHECK(read_row(handle, row->first, &again) && again == row->second);
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
