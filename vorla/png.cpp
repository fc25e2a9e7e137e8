// Reading and writing PNG files through libpng: pictures, and views of a depth. What belongs in
// which channel is settled here; names and streams are the callers'.
#include "vorla/formats.h"

#include "format/depth.h"

#include <png.h>

#include <csetjmp>
#include <cstdlib>
#include <cstring>
#include <optional>

namespace {

constexpr uint32_t MOST_PIXELS = 0x7fffffff; // of a side, in any PNG

// --- Both directions ------------------------------------------------------------------------

// libpng's structures for a stream, and why libpng gave up on it. libpng reports errors by jumping:
// every call that may fail is made in a step that owns nothing.
struct PngFile {
    FILE *stream;
    const std::string name;
    const bool is_read;
    png_structp png = nullptr;
    png_infop info = nullptr;
    char problem[160] = "libpng does not start";

    PngFile(FILE *file, const std::string &shown, bool reads);
    PngFile(const PngFile &) = delete;
    PngFile &operator=(const PngFile &) = delete;
    ~PngFile();

    // Runs `step`. If libpng jumps out of it, past the destructors of its locals, throws a Failure
    // about `part` of the file.
    template <class Step>
    void guarded(const Step &step, const std::string &part = "")
    {
        errno = 0;
        if (info && setjmp(png_jmpbuf(png)) == 0) {
            step();
            return;
        }
        const bool damaged = info && is_read && errno != ENOMEM && !ferror(stream);
        throw Failure(damaged ? EXIT_DAMAGED : EXIT_IO, name,
                      is_read ? "cannot read" : "cannot write", part, ": ", problem);
    }
};

void keep_error(png_structp png, png_const_charp message)
{
    auto *file = static_cast<PngFile *>(png_get_error_ptr(png));
    (void)snprintf(file->problem, sizeof file->problem, "%s", message);
    png_longjmp(png, 1);
}

void drop_warning(png_structp, png_const_charp) {}

void read_bytes(png_structp png, png_bytep bytes, size_t size)
{
    auto *stream = static_cast<FILE *>(png_get_io_ptr(png));
    if (fread(bytes, 1, size, stream) != size) {
        png_error(png, ferror(stream) ? strerror(errno) : "the file ends early");
    }
}

void write_bytes(png_structp png, png_bytep bytes, size_t size)
{
    if (fwrite(bytes, 1, size, static_cast<FILE *>(png_get_io_ptr(png))) != size) {
        png_error(png, strerror(errno));
    }
}

void flush_bytes(png_structp) {}

PngFile::PngFile(FILE *file, const std::string &shown, bool reads)
    : stream(file), name(shown), is_read(reads)
{
    const auto create = is_read ? png_create_read_struct : png_create_write_struct;
    png = create(PNG_LIBPNG_VER_STRING, this, keep_error, drop_warning);
    info = png ? png_create_info_struct(png) : nullptr;
    if (is_read) {
        png_set_read_fn(png, stream, read_bytes);
    } else {
        png_set_write_fn(png, stream, write_bytes, flush_bytes);
    }
}

PngFile::~PngFile()
{
    if (is_read) {
        png_destroy_read_struct(&png, &info, nullptr);
    } else {
        png_destroy_write_struct(&png, &info);
    }
}

// --- Reading --------------------------------------------------------------------------------

struct PngReader final : RowReader {
    PngFile file;
    // All rows of an interlaced picture, else one. It comes from calloc, so that a small file that
    // claims to be large takes no memory.
    std::unique_ptr<uint8_t[], void (*)(void *)> block{nullptr, free};
    size_t held = 0; // rows of the block
    size_t next = 0; // row, counted through all passes

    PngReader(FILE *stream, const std::string &name, bool matte_only);
    void begin_rows(bool interlaced);
    const uint8_t *read_next();
    void read_row(void *const *rows) override;
    void finish() override
    {
        file.guarded([this] { png_read_end(file.png, nullptr); });
    }
};

// Any kind of PNG: grey becomes colour of equal channels, or the matte; alpha and transparency
// become the matte; 16 bits are scaled to 8.
PngReader::PngReader(FILE *stream, const std::string &name, bool matte_only)
    : file(stream, name, true)
{
    png_structp png = file.png;
    png_infop info = file.info;
    file.guarded([=, this] {
        png_set_user_limits(png, MOST_PIXELS, MOST_PIXELS); // set_size has the clearer message
        png_read_info(png, info);
        set_size(file.name, png_get_image_width(png, info), png_get_image_height(png, info));
        note_if(png_get_bit_depth(png, info) == 16, "samples of 16 bits are reduced to 8");
        png_set_expand(png);
        png_set_scale_16(png);
        if (!matte_only) {
            png_set_gray_to_rgb(png);
        }
        (void)png_set_interlace_handling(png);
        png_read_update_info(png, info);
    });
    shape.colour = !matte_only;
    shape.matte = matte_only || png_get_channels(png, info) == 4;
    if (matte_only && png_get_channels(png, info) != 1) {
        throw Failure(EXIT_USAGE, name, "cannot import as a matte: the picture is not plain grey");
    }
    begin_rows(png_get_interlace_type(png, info) != PNG_INTERLACE_NONE);
}

// Reads all passes but the last of an interlaced picture, where each pass adds pixels to the rows
// of earlier passes.
void PngReader::begin_rows(bool interlaced)
{
    const auto height = static_cast<size_t>(shape.height);
    held = interlaced ? height : 1;
    block.reset(static_cast<uint8_t *>(calloc(held, png_get_rowbytes(file.png, file.info))));
    if (!block) {
        throw Failure(EXIT_IO, file.name,
                      "cannot read: an interlaced picture takes more memory than there is");
    }
    while (interlaced && next < (PNG_INTERLACE_ADAM7_PASSES - 1) * height) {
        (void)read_next();
    }
}

// Returns the row, which is whole in the last pass.
const uint8_t *PngReader::read_next()
{
    check_interrupt();
    uint8_t *row = block.get() + next % held * png_get_rowbytes(file.png, file.info);
    file.guarded([=, this] { png_read_row(file.png, row, nullptr); },
                 " row " + std::to_string(next % static_cast<size_t>(shape.height)));
    next += 1;
    return row;
}

// Distributes the samples of a pixel to the channels.
void PngReader::read_row(void *const *rows)
{
    const uint8_t *packed = read_next();
    const size_t channels = depth_index(shape);
    for (size_t channel = 0; channel < channels; ++channel) {
        auto *samples = static_cast<uint8_t *>(rows[channel]);
        for (size_t x = 0; x < static_cast<size_t>(shape.width); ++x) {
            samples[x] = packed[x * channels + channel];
        }
    }
}

// --- Writing --------------------------------------------------------------------------------

struct PngWriter final : RowWriter {
    PngFile file;
    const PictureShape shape;
    const std::optional<DepthRange> view; // has the depth alone written, as grey
    std::vector<uint8_t> packed;          // a row as the file has it

    PngWriter(FILE *stream, const std::string &name, const PictureShape &picture,
              const std::optional<DepthRange> &range, int level, const std::string &comment);
    void write_row(void *const *rows) override;
    void finish() override
    {
        file.guarded([this] { png_write_end(file.png, nullptr); });
    }
};

// `level` is the compression level, or -1 for the library's own; "" means no comment. A picture is
// RGB, RGBA with the matte as alpha, or grey for a matte alone; depth is not written.
PngWriter::PngWriter(FILE *stream, const std::string &name, const PictureShape &picture,
                     const std::optional<DepthRange> &range, int level, const std::string &comment)
    : file(stream, name, false), shape(picture), view(range)
{
    const int type = view || !shape.colour ? PNG_COLOR_TYPE_GRAY
                     : shape.matte         ? PNG_COLOR_TYPE_RGB_ALPHA
                                           : PNG_COLOR_TYPE_RGB;
    file.guarded([&, this] {
        png_set_IHDR(file.png, file.info, static_cast<uint32_t>(shape.width),
                     static_cast<uint32_t>(shape.height), view ? 16 : 8, type, PNG_INTERLACE_NONE,
                     PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
        if (level >= 0) {
            png_set_compression_level(file.png, level);
        }
        char key[] = "Comment";
        png_text text = {};
        text.compression = PNG_TEXT_COMPRESSION_NONE;
        text.key = key;
        text.text = const_cast<char *>(comment.c_str()); // is only read
        text.text_length = comment.size();
        png_set_text(file.png, file.info, &text, comment.empty() ? 0 : 1);
        png_write_info(file.png, file.info);
    });
    packed.resize(png_get_rowbytes(file.png, file.info));
}

// Interleaves the bytes of as many channels as the file has.
void pack_bytes(void *const *rows, size_t channels, std::vector<uint8_t> *packed)
{
    for (size_t channel = 0; channel < channels; ++channel) {
        const auto *samples = static_cast<const uint8_t *>(rows[channel]);
        for (size_t at = channel; at < packed->size(); at += channels) {
            (*packed)[at] = *samples++;
        }
    }
}

// Makes grey samples of two bytes.
void pack_depths(const int32_t *depths, const DepthRange &range, std::vector<uint8_t> *packed)
{
    const int64_t span = int64_t{range.farthest} - range.nearest;
    for (size_t at = 0; at < packed->size(); at += 2) {
        const int64_t depth = *depths++;
        int64_t grey = 0;
        if (depth < PIX_DEPTH_LIMIT) {
            grey = span > 0 ? 65535 * (range.farthest - depth) / span : 65535;
        }
        (*packed)[at] = static_cast<uint8_t>(grey >> 8);
        (*packed)[at + 1] = static_cast<uint8_t>(grey & 255);
    }
}

void PngWriter::write_row(void *const *rows)
{
    if (view) {
        pack_depths(static_cast<const int32_t *>(rows[depth_index(shape)]), *view, &packed);
    } else {
        pack_bytes(rows, png_get_channels(file.png, file.info), &packed);
    }
    file.guarded([this] { png_write_row(file.png, packed.data()); });
}

} // namespace

std::unique_ptr<RowReader> open_png(FILE *stream, const std::string &name, const Options &options)
{
    return std::make_unique<PngReader>(stream, name, options.matte_only);
}

std::unique_ptr<RowWriter> start_png(FILE *stream, const std::string &name,
                                     const PictureShape &shape, const Options &options)
{
    return std::make_unique<PngWriter>(stream, name, shape, std::nullopt, options.level, "");
}

std::unique_ptr<RowWriter> start_depth_view(FILE *stream, const std::string &name,
                                            const PictureShape &shape, const Options &options,
                                            const DepthRange &range, const std::string &comment)
{
    return std::make_unique<PngWriter>(stream, name, shape, range, options.level, comment);
}
