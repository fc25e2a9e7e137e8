// Driving a module as a host drives it.
#include "bench/bench.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

void fail(const std::string &what, const std::string &why)
{
    fprintf(stderr, "bench: %s: %s\n", what.c_str(), why.c_str());
    exit(2);
}

void load(const char *path, StandinModule *loaded)
{
    if (const char *failure = standin_load(path, loaded)) {
        fail(path, failure);
    }
}

static ImageHandle *check(ImageHandle *handle, int32_t result, const std::string &path)
{
    if (result != 1) {
        fail(path, "cannot open the image");
    }
    return handle;
}

ImageHandle *open_pix(const StandinModule &by, const std::string &path)
{
    ImageHandle *handle = standin_new_reader(path.c_str());
    return check(handle, by.read_open(handle), path);
}

void write_pix(const StandinModule &by, const std::string &path, const Picture &picture,
               int32_t *depth)
{
    const size_t planes = picture.planes.size();
    ImageHandle *handle = standin_new_writer(path.c_str(), WIDTH, HEIGHT, planes == 3 ? 3 : 0,
                                             planes == 1, depth != nullptr);
    check(handle, by.write_open(handle), path);
    void *rows[4];
    rows[planes] = depth;
    for (int32_t row = 0; row < HEIGHT; ++row) {
        point_at_row(picture, row, rows);
        handle->scanline_proc(handle->priv->state, HEIGHT - 1 - row, rows);
    }
    if (handle->close_proc(handle) != 0) {
        fail(path, "cannot write the image");
    }
}

void read_pix(const StandinModule &by, const std::string &path, const Order &order,
              const Picture *picture)
{
    ImageHandle *handle = open_pix(by, path);
    for (const int32_t y : order) {
        void **rows = nullptr;
        bool good = handle->scanline_proc(handle->priv->state, y, &rows) == 0;
        void *expected[3];
        if (picture) {
            point_at_row(*picture, HEIGHT - 1 - y, expected);
        }
        for (size_t plane = 0; good && picture && plane < picture->planes.size(); ++plane) {
            good = memcmp(rows[plane], expected[plane], WIDTH) == 0;
        }
        if (!good) {
            fail(path, "scanline " + std::to_string(y) + " differs");
        }
    }
    handle->close_proc(handle);
}
