// An example host: `demo MODULE.so OUTPUT_DIRECTORY` loads the module, has it write a rendered
// scene as one image and as a pair of fields, reads both back in several orders, compares every
// sample, and leaves PNG pictures of what it read. Exit status 0 when all is well.
#include "examples/png_writer.h"
#include "examples/scene.h"
#include "standin/standin.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <filesystem>
#include <numeric>
#include <random>
#include <string>
#include <vector>

namespace {

// The orders in which the rows of an image are read.
enum RowOrder { ORDER_FILE, ORDER_REVERSE, ORDER_SCATTERED };
constexpr const char *ORDER_NAMES[] = {"file order", "reverse order", "scattered order"};

// --- Messages -------------------------------------------------------------------------------

// Says on standard error what went wrong; false, for callers to return.
bool fail(const std::string &file, const std::string &what, const std::string &why)
{
    fprintf(stderr, "demo: %s: %s: %s\n", file.c_str(), what.c_str(), why.c_str());
    return false;
}

// The same when it went wrong in the module, whose own words are on standard error already.
bool fail_in_module(const std::string &file, const std::string &what)
{
    return fail(file, what, "error code " + std::to_string(vyn__err));
}

// A number with its digits in groups of three.
std::string grouped(uint64_t number)
{
    return number < 1000
               ? std::to_string(number)
               : grouped(number / 1000) + "," + std::to_string(1000 + number % 1000).substr(1);
}

// --- Open images ----------------------------------------------------------------------------

// Checks the result of an open. After a failure the handle is gone.
[[nodiscard]] bool check_open(ImageHandle *handle, int32_t result, const std::string &file)
{
    if (result == 1) {
        return true;
    }
    if (result == -1) { // all is open but for the row buffers
        fail(file, "cannot open the image", "no row buffers");
        (void)handle->close_proc(handle);
    } else {
        fail_in_module(file, "cannot open the image");
        vyn__free_obj(handle);
    }
    return false;
}

// Closes the image, which destroys the handle. That the disk is full may show only now.
[[nodiscard]] bool close_image(ImageHandle *handle, const std::string &file)
{
    return handle->close_proc(handle) == 0 || fail_in_module(file, "cannot close the image");
}

// --- Writing --------------------------------------------------------------------------------

// Writes all rows to an open image. Files begin at the top, scanlines count from the bottom.
[[nodiscard]] bool write_rows(ImageHandle *handle, const std::string &file, const Picture &picture)
{
    // A companion that could not be made has been taken out of the description.
    if (handle->info->matte_count != 1 || handle->info->aux_count != 1) {
        return fail_in_module(file, "cannot make the companions");
    }
    void **buffers = vyn__chan_alloc(handle->info, picture.width, handle->format_name);
    if (!buffers) {
        return fail(file, "cannot write", "no row buffers");
    }
    bool good = true;
    for (int32_t y = picture.height - 1; good && y >= 0; --y) {
        copy_row_to(buffers, picture, picture.height - 1 - y);
        good = handle->scanline_proc(handle->priv->state, y, buffers) == 0 ||
               fail_in_module(file, "cannot write scanline " + std::to_string(y));
    }
    vyn__chan_free(buffers);
    return good;
}

[[nodiscard]] bool write_image(const StandinModule &module, const std::string &file,
                               const Picture &picture)
{
    ImageHandle *handle = standin_new_writer(file.c_str(), picture.width, picture.height, 3, 1, 1);
    if (!check_open(handle, module.write_open(handle), file)) {
        return false;
    }
    const bool good = write_rows(handle, file, picture);
    return close_image(handle, file) && good;
}

// Prints how many bytes a file has for its samples, `pixel_size` bytes a pixel.
[[nodiscard]] bool report_file(const std::string &file, const Picture &picture, size_t pixel_size)
{
    std::error_code error;
    const uint64_t size = std::filesystem::file_size(file, error);
    if (error) {
        return fail(file, "cannot tell its size", error.message());
    }
    const uint64_t samples = row_start(picture, picture.height) * pixel_size;
    printf("wrote %s: %d rows, %s bytes of samples in %s (%.1f : 1)\n", file.c_str(),
           picture.height, grouped(samples).c_str(), grouped(size).c_str(),
           static_cast<double>(samples) / static_cast<double>(size));
    return true;
}

// Writes an image in `directory`/renders and reports its files. The module makes the directories of
// the companions, beside that of the image.
[[nodiscard]] bool write_set(const StandinModule &module, const std::string &directory,
                             const std::string &name, const Picture &picture)
{
    return write_image(module, directory + "/renders/" + name, picture) &&
           report_file(directory + "/renders/" + name, picture, 3) &&
           report_file(directory + "/mask/" + name, picture, 1) &&
           report_file(directory + "/depth/" + name, picture, 4);
}

// --- Reading and comparing ------------------------------------------------------------------

std::vector<int32_t> scanlines_in(RowOrder order, int32_t height)
{
    std::vector<int32_t> scanlines(static_cast<size_t>(height));
    std::iota(scanlines.rbegin(), scanlines.rend(), 0); // the file begins with the highest
    if (order == ORDER_REVERSE) {
        std::reverse(scanlines.begin(), scanlines.end());
    } else if (order == ORDER_SCATTERED) {
        std::shuffle(scanlines.begin(), scanlines.end(), std::minstd_rand(1));
    }
    return scanlines;
}

// Reads a whole image, its rows in the given order.
[[nodiscard]] bool read_image(const StandinModule &module, const std::string &file, RowOrder order,
                              Picture *picture)
{
    ImageHandle *handle = standin_new_reader(file.c_str());
    if (!check_open(handle, module.read_open(handle), file)) {
        return false;
    }
    const ImageInfo &info = *handle->info;
    *picture = make_picture(info.width, info.height, info.channel_count == 3, info.matte_count == 1,
                            info.aux_count == 1);
    bool good = true;
    for (const int32_t y : scanlines_in(order, picture->height)) {
        void **buffers = nullptr; // the module's answer, good until the next scanline
        if (handle->scanline_proc(handle->priv->state, y, &buffers) != 0) {
            good = fail_in_module(file, "cannot read scanline " + std::to_string(y));
            break;
        }
        copy_row_from(buffers, picture, picture->height - 1 - y);
    }
    return close_image(handle, file) && good;
}

// Reads an image and compares it with what it should hold.
[[nodiscard]] bool read_and_compare(const StandinModule &module, const std::string &file,
                                    RowOrder order, const Picture &expected, Picture *found)
{
    if (!read_image(module, file, order, found)) {
        return false;
    }
    const std::string difference = find_difference(expected, *found);
    if (!difference.empty()) {
        return fail(file, std::string("differs when read in ") + ORDER_NAMES[order], difference);
    }
    uint64_t samples = 0;
    int channels = 0;
    for (const std::vector<int32_t> &channel : found->channels) {
        samples += channel.size();
        channels += channel.empty() ? 0 : 1;
    }
    printf("read back %s in %s: %s samples equal, channels: %d\n", file.c_str(), ORDER_NAMES[order],
           grouped(samples).c_str(), channels);
    return true;
}

// --- The steps ------------------------------------------------------------------------------

void describe_module(const StandinModule &module)
{
    printf("module of format %s, extension %s, version %s\n", standin_text(&module, "imageName"),
           standin_text(&module, "imageExtension"), standin_text(&module, "version"));
    const CapabilityEntry *entry = nullptr;
    int32_t counts[3] = {};
    module.capability(&entry, &counts[0], &counts[1], &counts[2]);
    for (; entry->label_set != 0; ++entry) { // an empty label ends either list
        printf("capability %d, %s:", entry->code, entry->label);
        for (const CapabilityChoice *row = entry->choices->rows; row->label_set != 0; ++row) {
            printf(" %d = %s;", row->value, row->label);
        }
        printf(" for %s\n", (entry->flags & 1) != 0 ? "reading" : "writing");
    }
}

// Asks whether the file is PIX, by its name and by an open stream.
[[nodiscard]] bool probe(const StandinModule &module, const std::string &file, bool expected)
{
    FILE *stream = fopen(file.c_str(), "r");
    if (!stream) {
        return fail(file, "cannot open", strerror(errno));
    }
    const bool by_name = module.is_file(file.c_str(), nullptr) == 1;
    const bool by_stream = module.is_file(file.c_str(), stream) == 1;
    (void)fclose(stream);
    if (by_name != expected || by_stream != expected) {
        return fail(file, "wrongly recognised", expected ? "it is PIX" : "it is not PIX");
    }
    printf("recognised %s: %s, by name and by stream\n", file.c_str(),
           expected ? "PIX" : "not PIX");
    return true;
}

[[nodiscard]] bool save_pngs(const std::string &directory, const Picture &picture)
{
    const std::string failure = write_pngs(directory, picture);
    if (!failure.empty()) {
        return fail(directory, "cannot write pictures", failure);
    }
    printf("wrote colour.png, matte.png and depth.png to %s from what was read\n",
           directory.c_str());
    return true;
}

// Everything that is done with the loaded module.
[[nodiscard]] bool run(const StandinModule &module, const std::string &module_file,
                       const std::string &directory)
{
    describe_module(module);
    std::error_code error;
    std::filesystem::create_directories(directory + "/renders", error);
    if (error) {
        return fail(directory + "/renders", "cannot make the directory", error.message());
    }
    const Picture scene = render_scene(720, 486);
    printf("rendered %d x %d pixels in %d channels\n", scene.width, scene.height, CHANNELS);
    Picture matte = make_picture(scene.width, scene.height, false, true, false);
    matte.channels[MATTE] = scene.channels[MATTE];
    const std::string whole = directory + "/renders/scene.pix";
    const std::string fields = directory + "/renders/fields.pix";
    const std::string companion = directory + "/mask/scene.pix";
    Picture found;
    return write_set(module, directory, "scene.pix", scene) && probe(module, whole, true) &&
           probe(module, module_file, false) &&
           read_and_compare(module, whole, ORDER_FILE, scene, &found) &&
           read_and_compare(module, whole, ORDER_REVERSE, scene, &found) &&
           read_and_compare(module, whole, ORDER_SCATTERED, scene, &found) &&
           save_pngs(directory, found) &&
           // The module writes a field like any other image; asked for both, it joins them.
           write_set(module, directory, "fields.pix.e", field_of(scene, 0)) &&
           write_set(module, directory, "fields.pix.o", field_of(scene, 1)) &&
           read_and_compare(module, fields, ORDER_FILE, scene, &found) &&
           // A matte file opened by its own name is an image without colour.
           read_and_compare(module, companion, ORDER_FILE, matte, &found);
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3) {
        fprintf(stderr, "usage: demo MODULE.so OUTPUT_DIRECTORY\n");
        return 2;
    }
    StandinModule module;
    if (const char *failure = standin_load(argv[1], &module)) {
        fail(argv[1], "cannot load the module", failure);
        return 1;
    }
    const bool good = run(module, argv[1], argv[2]);
    standin_unload(&module);
    return good ? 0 : 1;
}
