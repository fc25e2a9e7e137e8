// Reads an image made of the input: the last bytes choose the name, the host's options, the files
// and the order of the scanlines; what stands before them fills the files.
#include "fuzz/harness.h"

#include <fstream>

// The name that the host asks for, and those of the single file and of the fields.
constexpr const char *NAMES[][4] = {
    {"a.pix", "a.pix", "a.pix.e", "a.pix.o"},
    {"a.rgb", "a.rgb", "a.rgb.e", "a.rgb.o"},
    {"a.7", "a.7", "a.7e", "a.7o"},
    {"a.7e", "a.7", "a.7e", "a.7o"},
    {"a.o", "a", "a.e", "a.o"},
};

// Reads rows in the order that the input gives. Then reads again, in the opposite order, those that
// were read without an error; each must have the same samples. The second pass begins with scanline
// 0 (253 stands for it), the last row of the files.
void try_image(Input input)
{
    Input content = take(&input, input.size() - std::min<size_t>(input.size(), 16));
    const uint32_t options = number(&input, 1); // name, searching, request and its code
    const auto choice = static_cast<int8_t>(number(&input, 1));
    const uint32_t files = number(&input, 2); // a bit for each of three names in each folder
    const char *const *names = NAMES[(options & 15) % std::size(NAMES)];
    for (int file = 0; file < 9; ++file) {
        if ((files >> file & 1) != 0) { // before the bytes of each stands their number
            const Input bytes = take(&content, number(&content, 2));
            std::ofstream(directory + FOLDERS[file / 3] + names[1 + file % 3])
                << std::string(bytes.begin(), bytes.end());
        }
    }
    std::vector<uint8_t> order(input.begin(), input.end());
    Rows rows[2];
    for (Rows &kept : rows) {
        const std::string name = (options & 16 ? "" : directory + "/") + "renders/" + names[0];
        ImageHandle *handle = standin_new_reader(name.c_str());
        options & 32 ? standin_request(handle, options >> 6 & 1, choice) : void();
        read_image(handle, order, &kept);
        std::erase_if(order, [&](uint8_t row) { return kept.count(row) == 0; });
        order.push_back(253);
        std::reverse(order.begin(), order.end());
    }
    assert(std::includes(rows[1].begin(), rows[1].end(), rows[0].begin(), rows[0].end()));
}
