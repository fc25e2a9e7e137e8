// The same pictures in other formats, with the libraries of those formats.
#include "bench/bench.h"

#include <png.h>
#include <stdlib.h>
#include <tiffio.h>

// libpng reports an error by a jump. Here every error may end the benchmark.
[[noreturn]] static void give_up(png_structp, png_const_charp)
{
    abort();
}

void write_png(const std::string &path, const Bytes &interleaved)
{
    FILE *file = fopen(path.c_str(), "w");
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, give_up, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, file);
    png_set_IHDR(png, info, WIDTH, HEIGHT, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_compression_level(png, 1);
    png_write_info(png, info);
    for (size_t row = 0; row < HEIGHT; ++row) {
        png_write_row(png, &interleaved[row * WIDTH * 3]);
    }
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    fclose(file);
}

void read_png(const std::string &path, Bytes *row)
{
    FILE *file = fopen(path.c_str(), "r");
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, give_up, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, file);
    png_read_info(png, info);
    row->resize(size_t{WIDTH} * 3);
    for (int32_t y = 0; y < HEIGHT; ++y) {
        png_read_row(png, row->data(), nullptr);
    }
    png_destroy_read_struct(&png, &info, nullptr);
    fclose(file);
}

void write_tiff(const std::string &path, const Picture &picture)
{
    TIFF *tiff = TIFFOpen(path.c_str(), "w");
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, WIDTH);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, HEIGHT);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 3);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_SEPARATE);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_PACKBITS);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, 1);
    void *rows[3];
    for (int32_t row = 0; row < HEIGHT; ++row) {
        point_at_row(picture, row, rows);
        for (uint16_t plane = 0; plane < 3; ++plane) {
            if (TIFFWriteScanline(tiff, rows[plane], static_cast<uint32_t>(row), plane) < 0) {
                abort();
            }
        }
    }
    TIFFClose(tiff);
}

void read_tiff(const std::string &path, const std::vector<void *> &rows)
{
    TIFF *tiff = TIFFOpen(path.c_str(), "r");
    for (uint32_t row = 0; row < HEIGHT; ++row) {
        for (uint16_t plane = 0; plane < 3; ++plane) {
            if (TIFFReadScanline(tiff, rows[plane], row, plane) < 0) {
                abort();
            }
        }
    }
    TIFFClose(tiff);
}
