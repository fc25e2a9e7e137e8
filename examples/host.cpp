// A host to copy from: `host_example MODULE.so FILE` prints the size of an image and the mean of
// each channel. The stand-in takes the framework's place: it loads the module, makes the handle,
// and prints what the module reports.
#include "standin/standin.h"

#include <stdio.h>

#include <numeric>
#include <vector>

// Returns false when a scanline cannot be read.
static bool print_means(const ImageHandle &image)
{
    const ImageInfo &info = *image.info;
    std::vector<const char *> names; // in the order of the row buffers
    if (info.channel_count == 3) {
        names = {"red", "green", "blue"};
    }
    if (info.matte_count == 1) {
        names.push_back("matte");
    }
    if (info.aux_count == 1) {
        names.push_back("depth");
    }
    std::vector<double> means(names.size());
    for (int32_t y = info.height - 1; y >= 0; --y) { // from the top down, as the files hold them
        void **rows = nullptr;                       // hold this scanline until the next call
        if (image.scanline_proc(image.priv->state, y, &rows) != 0) {
            return false;
        }
        for (size_t i = 0; i < names.size(); ++i) {
            const auto *bytes = static_cast<const uint8_t *>(rows[i]);
            const auto *depths = static_cast<const int32_t *>(rows[i]);
            const bool is_depth = info.aux_count == 1 && i + 1 == names.size();
            const double sum = is_depth ? std::accumulate(depths, depths + info.width, 0.0)
                                        : std::accumulate(bytes, bytes + info.width, 0.0);
            means[i] += sum / info.width / info.height;
        }
    }
    printf("%d x %d pixels\n", info.width, info.height);
    for (size_t i = 0; i < names.size(); ++i) {
        printf("%-5s %.2f\n", names[i], means[i]);
    }
    return true;
}

int main(int argc, char **argv)
{
    StandinModule module;
    const char *failure = argc == 3 ? standin_load(argv[1], &module) : "needs MODULE.so FILE";
    if (failure) {
        fprintf(stderr, "host_example: %s\n", failure);
        return 1;
    }
    ImageHandle *image = standin_new_reader(argv[2]);
    const int32_t opened = module.read_open(image);
    bool good = opened == 1 && print_means(*image); // -1: open, but there are no row buffers
    if (!good) {
        fprintf(stderr, "%s: cannot be read: error %d\n", argv[2], vyn__err);
    }
    if (opened != 0) {
        good = image->close_proc(image) == 0 && good; // frees the handle too
    } else {
        vyn__free_obj(image);
    }
    standin_unload(&module);
    return good ? 0 : 1;
}
