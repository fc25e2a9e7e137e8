// Reading PNG files through libpng. What belongs in which channel is settled here; names and
// streams are the callers'.
#include "vorla/png_file.h"
#include "vorla/png_stream.h"

#include <cstdlib>
#include <cstring>

namespace {

constexpr uint32_t MOST_PIXELS = 0x7fffffff; // of a side, in any PNG

void read_bytes(png_structp png, png_bytep bytes, size_t size)
{
    FILE *file = static_cast<PngStream *>(png_get_io_ptr(png))->file;
    if (fread(bytes, 1, size, file) != size) {
        png_error(png, ferror(file) ? strerror(errno) : "the file ends early");
    }
}

struct FreeBlock {
    void operator()(uint8_t *block) const
    {
        free(block);
    }
};

struct PngReader final : RowReader {
    PngStream stream;
    png_structp png = nullptr;
    png_infop info = nullptr;
    size_t channels = 0;
    std::vector<uint8_t> packed;               // a row as libpng delivers it
    std::unique_ptr<uint8_t[], FreeBlock> all; // all rows of an interlaced picture
    size_t row = 0;                            // next to be delivered

    ~PngReader() override
    {
        png_destroy_read_struct(&png, &info, nullptr);
    }
    ExitCode read_row(void *const *rows) override;
    ExitCode finish() override;
};

// Distributes a row to the channels. Alpha is the last of two or four.
void unpack(const PngReader &reader, const uint8_t *packed, void *const *rows)
{
    const size_t channels = reader.channels;
    const size_t matte = static_cast<size_t>(matte_index(reader.shape));
    const size_t count = matte + (reader.shape.matte ? 1 : 0);
    for (size_t channel = 0; channel < count; ++channel) {
        uint8_t *samples = static_cast<uint8_t *>(rows[channel]);
        const size_t from = channel == matte ? channels - 1 : (channels >= 3 ? channel : 0);
        for (size_t x = 0; x < static_cast<size_t>(reader.shape.width); ++x) {
            samples[x] = packed[x * channels + from];
        }
    }
}

ExitCode PngReader::read_row(void *const *rows)
{
    const uint8_t *from = packed.data();
    if (all) {
        from = all.get() + row * packed.size();
    } else if (!guarded(png, [this] { png_read_row(png, packed.data(), nullptr); })) {
        return fail_png(stream, "cannot read row " + std::to_string(row), EXIT_DAMAGED);
    }
    row += 1;
    unpack(*this, from, rows);
    return EXIT_FINE;
}

ExitCode PngReader::finish()
{
    const bool good = guarded(png, [this] { png_read_end(png, nullptr); });
    return good ? EXIT_FINE : fail_png(stream, "cannot read", EXIT_DAMAGED);
}

void read_header(PngReader *reader)
{
    png_set_read_fn(reader->png, &reader->stream, read_bytes);
    png_set_user_limits(reader->png, MOST_PIXELS, MOST_PIXELS); // larger ones are refused in words
    png_read_info(reader->png, reader->info);
}

// Asks libpng for 8-bit samples without a palette.
void choose_samples(PngReader *reader)
{
    png_set_expand(reader->png);
    png_set_scale_16(reader->png);
    (void)png_set_interlace_handling(reader->png);
    png_read_update_info(reader->png, reader->info);
}

// Reads an interlaced picture whole: each pass adds pixels to rows of those before it. The block
// comes from calloc, so that a small file that claims to be large takes no memory.
ExitCode read_interlaced(PngReader *reader)
{
    const size_t row_size = reader->packed.size();
    const size_t height = static_cast<size_t>(reader->shape.height);
    reader->all.reset(static_cast<uint8_t *>(calloc(height, row_size)));
    if (!reader->all) {
        complain(reader->stream.name,
                 "cannot read: an interlaced picture takes more memory than there is");
        return EXIT_IO;
    }
    const bool good = guarded(reader->png, [=] {
        for (int pass = 0; pass < PNG_INTERLACE_ADAM7_PASSES; ++pass) {
            for (size_t row = 0; row < height; ++row) {
                png_read_row(reader->png, reader->all.get() + row * row_size, nullptr);
            }
        }
    });
    return good ? EXIT_FINE : fail_png(reader->stream, "cannot read", EXIT_DAMAGED);
}

ExitCode describe_png(PngReader *reader, bool matte_only)
{
    reader->channels = png_get_channels(reader->png, reader->info);
    const bool grey = reader->channels == 1;
    if (matte_only && !grey) {
        complain(reader->stream.name, "cannot import as a matte: the picture is not plain grey");
        return EXIT_USAGE;
    }
    reader->shape.colour = !matte_only;
    reader->shape.matte = matte_only || reader->channels == 2 || reader->channels == 4;
    reader->packed.resize(png_get_rowbytes(reader->png, reader->info));
    return EXIT_FINE;
}

ExitCode begin_reading(PngReader *reader, bool matte_only)
{
    if (!guarded(reader->png, [reader] { read_header(reader); })) {
        return fail_png(reader->stream, "cannot read", EXIT_DAMAGED);
    }
    const uint32_t width = png_get_image_width(reader->png, reader->info);
    const uint32_t height = png_get_image_height(reader->png, reader->info);
    if (const ExitCode code = check_size(reader->stream.name, width, height)) {
        return code;
    }
    reader->shape.width = static_cast<int32_t>(width);
    reader->shape.height = static_cast<int32_t>(height);
    if (!guarded(reader->png, [reader] { choose_samples(reader); })) {
        return fail_png(reader->stream, "cannot read", EXIT_DAMAGED);
    }
    if (const ExitCode code = describe_png(reader, matte_only)) {
        return code;
    }
    const bool interlaced = png_get_interlace_type(reader->png, reader->info) != PNG_INTERLACE_NONE;
    return interlaced ? read_interlaced(reader) : EXIT_FINE;
}

} // namespace

ExitCode open_png(FILE *stream, const std::string &name, bool matte_only,
                  std::unique_ptr<RowReader> *reader)
{
    auto opened = std::make_unique<PngReader>();
    opened->stream.file = stream;
    opened->stream.name = name;
    opened->png =
        png_create_read_struct(PNG_LIBPNG_VER_STRING, &opened->stream, keep_error, drop_warning);
    opened->info = opened->png ? png_create_info_struct(opened->png) : nullptr;
    if (!opened->info) {
        complain(name, "cannot read: libpng does not start");
        return EXIT_IO;
    }
    const ExitCode code = begin_reading(opened.get(), matte_only);
    *reader = std::move(opened);
    return code;
}
