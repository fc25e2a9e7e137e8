// Reading PNG files through libpng. What belongs in which channel is settled here; names and
// streams are the callers'.
#include "vorla/formats.h"
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

    PngReader(FILE *file, const std::string &name) : stream{file, name} {}
    ~PngReader() override
    {
        png_destroy_read_struct(&png, &info, nullptr);
    }
    void read_row(void *const *rows) override;
    void finish() override;
    void begin(bool matte_only);

  private:
    void describe(bool matte_only);
    void read_interlaced();
    void unpack(const uint8_t *from, void *const *rows) const;
};

// Distributes a row to the channels. Alpha is the last of two or four.
void PngReader::unpack(const uint8_t *from, void *const *rows) const
{
    const size_t matte = matte_index(shape);
    for (size_t channel = 0; channel < depth_index(shape); ++channel) {
        auto *samples = static_cast<uint8_t *>(rows[channel]);
        const size_t at = channel == matte ? channels - 1 : (channels >= 3 ? channel : 0);
        for (size_t x = 0; x < static_cast<size_t>(shape.width); ++x) {
            samples[x] = from[x * channels + at];
        }
    }
}

void PngReader::read_row(void *const *rows)
{
    check_interrupt();
    const uint8_t *from = packed.data();
    if (all) {
        from = all.get() + row * packed.size();
    } else {
        guarded(png, "cannot read row " + std::to_string(row), EXIT_DAMAGED,
                [this] { png_read_row(png, packed.data(), nullptr); });
    }
    row += 1;
    unpack(from, rows);
}

void PngReader::finish()
{
    guarded(png, "cannot read", EXIT_DAMAGED, [this] { png_read_end(png, nullptr); });
}

// Reads an interlaced picture whole: each pass adds pixels to rows of those before it. The block
// comes from calloc, so that a small file that claims to be large takes no memory.
void PngReader::read_interlaced()
{
    const auto height = static_cast<size_t>(shape.height);
    all.reset(static_cast<uint8_t *>(calloc(height, packed.size())));
    if (!all) {
        throw Failure(EXIT_IO, stream.name,
                      "cannot read: an interlaced picture takes more memory than there is");
    }
    for (size_t at = 0; at < PNG_INTERLACE_ADAM7_PASSES * height; ++at) {
        check_interrupt();
        uint8_t *into = all.get() + at % height * packed.size();
        guarded(png, "cannot read", EXIT_DAMAGED,
                [this, into] { png_read_row(png, into, nullptr); });
    }
}

// Says what the picture is, once libpng has been asked for 8-bit samples without a palette.
void PngReader::describe(bool matte_only)
{
    channels = png_get_channels(png, info);
    if (matte_only && channels != 1) {
        throw Failure(EXIT_USAGE, stream.name,
                      "cannot import as a matte: the picture is not plain grey");
    }
    shape.colour = !matte_only;
    shape.matte = matte_only || channels == 2 || channels == 4;
    packed.resize(png_get_rowbytes(png, info));
}

void PngReader::begin(bool matte_only)
{
    png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &stream, keep_error, drop_warning);
    info = png ? png_create_info_struct(png) : nullptr;
    if (!info) {
        throw Failure(EXIT_IO, stream.name, "cannot read: libpng does not start");
    }
    guarded(png, "cannot read", EXIT_DAMAGED, [this] {
        png_set_read_fn(png, &stream, read_bytes);
        png_set_user_limits(png, MOST_PIXELS, MOST_PIXELS); // larger ones are refused in words
        png_read_info(png, info);
    });
    const uint32_t width = png_get_image_width(png, info);
    const uint32_t height = png_get_image_height(png, info);
    check_size(stream.name, width, height);
    shape.width = static_cast<int32_t>(width);
    shape.height = static_cast<int32_t>(height);
    if (png_get_bit_depth(png, info) == 16) {
        notes.emplace_back("samples of 16 bits are reduced to 8");
    }
    guarded(png, "cannot read", EXIT_DAMAGED, [this] {
        png_set_expand(png);
        png_set_scale_16(png);
        (void)png_set_interlace_handling(png);
        png_read_update_info(png, info);
    });
    describe(matte_only);
    if (png_get_interlace_type(png, info) != PNG_INTERLACE_NONE) {
        read_interlaced();
    }
}

} // namespace

// Any kind of PNG: grey becomes colour of equal channels, or the matte; alpha and transparency
// become the matte; 16 bits are scaled to 8. An interlaced picture is held whole, any other one row
// at a time.
std::unique_ptr<RowReader> open_png(FILE *stream, const std::string &name, const Options &options)
{
    auto reader = std::make_unique<PngReader>(stream, name);
    reader->begin(options.matte_only);
    return reader;
}
