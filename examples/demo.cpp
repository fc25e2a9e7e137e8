// A host that shows what the module does: `demo MODULE.so DIRECTORY` has the module write a
// rendered scene as one image and as a pair of fields, reads both back in several orders, compares
// every sample, and leaves PNG pictures of what it read. Exit status 0 when all is well. The
// shortest host is host.cpp.
#include "examples/png_writer.h"
#include "examples/scene.h"
#include "standin/standin.h"

#include <stdio.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <numeric>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>

namespace {

// When it went wrong in the module, the module's own words are on standard error already.
[[noreturn]] void fail(const std::string &file, const std::string &what)
{
    throw std::runtime_error(file + ": " + what);
}

// --- Open images ----------------------------------------------------------------------------

using Image = std::unique_ptr<ImageHandle, CloseProc>; // the close frees the handle too

// Takes the handle over, with the result of its open.
Image take(ImageHandle *handle, int32_t result, const std::string &file)
{
    if (result == 0) { // nothing is open
        vyn__free_obj(handle);
        fail(file, "cannot open the image");
    }
    Image image(handle, handle->close_proc);
    if (result == -1) {
        fail(file, "no memory for row buffers");
    }
    return image;
}

// A full disk may be reported only by the close.
void close(Image image, const std::string &file)
{
    ImageHandle *handle = image.release();
    if (handle->close_proc(handle) != 0) {
        fail(file, "cannot close the image");
    }
}

// Copies a row of a picture to the host's row buffers, or from them. There is one buffer for each
// channel that the picture has.
enum Direction { TO_BUFFERS, FROM_BUFFERS };
void copy_row(Direction direction, Picture &picture, int32_t row, void **buffers)
{
    const auto copy = [&](auto &channel) {
        if (!channel.empty()) {
            auto *samples = &channel[picture.row_start(row)];
            auto *buffer = static_cast<decltype(samples)>(*buffers++);
            std::copy_n(direction == TO_BUFFERS ? samples : buffer, picture.width,
                        direction == TO_BUFFERS ? buffer : samples);
        }
    };
    std::for_each(picture.bytes.begin(), picture.bytes.end(), copy);
    copy(picture.depth);
}

// --- Writing --------------------------------------------------------------------------------

// Writes every `step`th row of a picture from `first` on, and returns how many these are. Files
// begin at the top, scanlines count from the bottom.
int32_t write_image(const StandinModule &module, const std::string &file, Picture &picture,
                    int32_t first, int32_t step)
{
    const int32_t height = (picture.height - first + step - 1) / step;
    ImageHandle *handle = standin_new_writer(file.c_str(), picture.width, height, 3, 1, 1);
    Image image = take(handle, module.write_open(handle), file);
    // A companion that could not be made has been taken out of the description.
    if (image->info->matte_count != 1 || image->info->aux_count != 1) {
        fail(file, "cannot make the companions");
    }
    const std::unique_ptr<void *, decltype(&vyn__chan_free)> buffers(
        vyn__chan_alloc(image->info, picture.width, image->format_name), vyn__chan_free);
    if (!buffers) {
        fail(file, "no memory for row buffers");
    }
    for (int32_t row = 0; row < height; ++row) {
        copy_row(TO_BUFFERS, picture, first + row * step, buffers.get());
        if (image->scanline_proc(image->priv->state, height - 1 - row, buffers.get()) != 0) {
            fail(file, "cannot write row " + std::to_string(row));
        }
    }
    close(std::move(image), file);
    return height;
}

// Writes an image in `directory`/renders and prints how large its files are. The module makes the
// directories of the companions, beside that of the image.
void write_set(const StandinModule &module, const std::string &directory, const std::string &name,
               Picture &picture, int32_t first, int32_t step)
{
    const int32_t rows = write_image(module, directory + "/renders/" + name, picture, first, step);
    for (const auto &[folder, pixel_size] :
         {std::pair("renders", 3), std::pair("mask", 1), std::pair("depth", 4)}) {
        const auto file = std::filesystem::path(directory) / folder / name;
        const int32_t samples = picture.width * rows * pixel_size;
        const auto size = static_cast<int32_t>(std::filesystem::file_size(file));
        printf("wrote %s: %d rows, %d bytes of samples in %d (%.1f : 1)\n", file.c_str(), rows,
               samples, size, static_cast<double>(samples) / size);
    }
}

// --- Reading and comparing ------------------------------------------------------------------

// Reads a whole image, its scanlines in the given order.
Picture read_image(const StandinModule &module, const std::string &file,
                   const std::vector<int32_t> &scanlines)
{
    ImageHandle *handle = standin_new_reader(file.c_str());
    Image image = take(handle, module.read_open(handle), file);
    const ImageInfo &info = *image->info;
    Picture picture(info.width, info.height, info.channel_count == 3, info.matte_count == 1,
                    info.aux_count == 1);
    for (const int32_t y : scanlines) {
        void **buffers = nullptr; // hold this scanline until the next call
        if (image->scanline_proc(image->priv->state, y, &buffers) != 0) {
            fail(file, "cannot read scanline " + std::to_string(y));
        }
        copy_row(FROM_BUFFERS, picture, picture.height - 1 - y, buffers);
    }
    close(std::move(image), file);
    return picture;
}

// Reads an image in several orders, and compares it with what it should hold.
void read_and_compare(const StandinModule &module, const std::string &file, const Picture &expected)
{
    std::vector<int32_t> scanlines(static_cast<size_t>(expected.height));
    std::iota(scanlines.rbegin(), scanlines.rend(), 0); // the file begins with the highest
    const auto check = [&](const std::string &order) {
        if (read_image(module, file, scanlines) != expected) {
            fail(file, "differs from what was written, read in " + order + " order");
        }
        printf("read back %s in %s order: all samples equal\n", file.c_str(), order.c_str());
    };
    check("file");
    std::reverse(scanlines.begin(), scanlines.end());
    check("reverse");
    std::shuffle(scanlines.begin(), scanlines.end(), std::minstd_rand(1));
    check("scattered");
}

// --- The steps ------------------------------------------------------------------------------

void describe_module(const StandinModule &module)
{
    printf("module of format %s, extension %s, version %s\n", standin_text(&module, "imageName"),
           standin_text(&module, "imageExtension"), standin_text(&module, "version"));
    const CapabilityEntry *entry = nullptr;
    int32_t counts[3] = {};
    module.capability(&entry, &counts[0], &counts[1], &counts[2]);
    for (; entry->label_set != 0; ++entry) { // a label set of 0 ends the table, and a list
        printf("capability %d, %s:", entry->code, entry->label);
        for (const CapabilityChoice *row = entry->choices->rows; row->label_set != 0; ++row) {
            printf(" %d = %s;", row->value, row->label);
        }
        printf(" for %s\n", (entry->flags & 1) != 0 ? "reading" : "writing");
    }
}

// Asks whether the file is PIX, by its name and by an open stream.
void probe(const StandinModule &module, const std::string &file, bool expected)
{
    const std::unique_ptr<FILE, decltype(&fclose)> stream(fopen(file.c_str(), "r"), fclose);
    const char *answer = expected ? "PIX" : "not PIX";
    if (!stream || (module.is_file(file.c_str(), nullptr) == 1) != expected ||
        (module.is_file(file.c_str(), stream.get()) == 1) != expected) {
        fail(file, std::string("not recognised as ") + answer);
    }
    printf("recognised %s: %s, by name and by stream\n", file.c_str(), answer);
}

// Everything that is done with the loaded module.
void run(const StandinModule &module, const std::string &module_file, const std::string &directory)
{
    describe_module(module);
    std::filesystem::create_directories(directory + "/renders");
    Picture scene = render_scene(720, 486);
    printf("rendered %d x %d pixels in 5 channels\n", scene.width, scene.height);
    write_set(module, directory, "scene.pix", scene, 0, 1);
    probe(module, directory + "/renders/scene.pix", true);
    probe(module, module_file, false);
    read_and_compare(module, directory + "/renders/scene.pix", scene);

    // A field is written like any other image. Opened by the name that both fields share, the two
    // are one image.
    write_set(module, directory, "fields.pix.e", scene, 0, 2);
    write_set(module, directory, "fields.pix.o", scene, 1, 2);
    read_and_compare(module, directory + "/renders/fields.pix", scene);

    // A matte file opened by its own name is an image without colour.
    Picture matte(scene.width, scene.height, false, true, false);
    matte.bytes[MATTE] = scene.bytes[MATTE];
    read_and_compare(module, directory + "/mask/scene.pix", matte);

    write_pngs(directory, scene); // equal to what was read
    printf("wrote colour.png, matte.png and depth.png to %s\n", directory.c_str());
}

} // namespace

int main(int argc, char **argv)
{
    StandinModule module;
    const char *failure = argc == 3 ? standin_load(argv[1], &module) : "needs MODULE.so DIRECTORY";
    if (failure) {
        fprintf(stderr, "demo: %s\n", failure);
        return 1;
    }
    try {
        run(module, argv[1], argv[2]);
    } catch (const std::exception &error) {
        fprintf(stderr, "demo: %s\n", error.what());
        return 1;
    }
    standin_unload(&module);
    return 0;
}
