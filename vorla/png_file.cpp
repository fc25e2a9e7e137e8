// PNG files through libpng, which reports errors by jumping: every call that may fail is made in a
// step that owns nothing, and `guarded` is where the jumps end. What belongs in which channel is
// settled here; names and streams are the callers'.
#include "vorla/png_file.h"

#include "format/depth.h"

#include <png.h>

#include <cerrno>
#include <csetjmp>
#include <cstdlib>
#include <cstring>

namespace {

constexpr uint32_t MOST_PIXELS = 0x7fffffff; // of a side, in any PNG

// --- Errors ---------------------------------------------------------------------------------

// A stream, and why libpng gave up on it.
struct PngStream {
    FILE *file = nullptr;
    std::string name;
    char problem[160] = "";
};

void keep_error(png_structp png, png_const_charp message)
{
    PngStream *stream = static_cast<PngStream *>(png_get_error_ptr(png));
    (void)snprintf(stream->problem, sizeof stream->problem, "%s", message);
    png_longjmp(png, 1);
}

void drop_warning(png_structp, png_const_charp) {}

// Runs `step`; false when libpng jumped out of it, which passes by the destructors of its locals.
// Then errno tells whether memory was missing.
template <class Step>
[[nodiscard]] bool guarded(png_structp png, const Step &step)
{
    errno = 0;
    if (setjmp(png_jmpbuf(png)) != 0) {
        return false;
    }
    step();
    return true;
}

ExitCode fail_png(const PngStream &stream, const std::string &what, ExitCode code)
{
    const bool no_memory = errno == ENOMEM;
    complain(stream.name, what + ": " + stream.problem);
    return no_memory || ferror(stream.file) ? EXIT_IO : code;
}

void read_bytes(png_structp png, png_bytep bytes, size_t size)
{
    FILE *file = static_cast<PngStream *>(png_get_io_ptr(png))->file;
    if (fread(bytes, 1, size, file) != size) {
        png_error(png, ferror(file) ? strerror(errno) : "the file ends early");
    }
}

void write_bytes(png_structp png, png_bytep bytes, size_t size)
{
    FILE *file = static_cast<PngStream *>(png_get_io_ptr(png))->file;
    if (fwrite(bytes, 1, size, file) != size) {
        png_error(png, strerror(errno));
    }
}

void flush_bytes(png_structp) {}

// --- Writing --------------------------------------------------------------------------------

struct PngWriter : RowWriter {
    PngStream stream;
    png_structp png = nullptr;
    png_infop info = nullptr;
    PictureShape shape;
    std::vector<uint8_t> packed; // a row as the file has it

    ~PngWriter() override
    {
        png_destroy_write_struct(&png, &info);
    }
    virtual void pack(void *const *rows);
    ExitCode write_row(void *const *rows) override;
    ExitCode finish() override;
};

// Interleaves the bytes of the channels that the file takes.
void PngWriter::pack(void *const *rows)
{
    const size_t channels = packed.size() / static_cast<size_t>(shape.width);
    for (size_t channel = 0; channel < channels; ++channel) {
        const uint8_t *samples = static_cast<const uint8_t *>(rows[channel]);
        for (size_t at = channel; at < packed.size(); at += channels) {
            packed[at] = *samples++;
        }
    }
}

ExitCode PngWriter::write_row(void *const *rows)
{
    pack(rows);
    const bool good = guarded(png, [this] { png_write_row(png, packed.data()); });
    return good ? EXIT_FINE : fail_png(stream, "cannot write", EXIT_IO);
}

ExitCode PngWriter::finish()
{
    const bool good = guarded(png, [this] { png_write_end(png, nullptr); });
    return good ? EXIT_FINE : fail_png(stream, "cannot write", EXIT_IO);
}

// A picture of the depth alone.
struct DepthViewWriter final : PngWriter {
    DepthRange range;

    void pack(void *const *rows) override;
};

void DepthViewWriter::pack(void *const *rows)
{
    const int32_t *samples = static_cast<const int32_t *>(rows[depth_index(shape)]);
    const int64_t span = int64_t{range.farthest} - range.nearest;
    for (size_t at = 0; at < packed.size(); at += 2) {
        const int64_t depth = *samples++;
        int64_t grey = 0;
        if (depth < PIX_DEPTH_LIMIT) {
            grey = span > 0 ? 65535 * (range.farthest - depth) / span : 65535;
        }
        packed[at] = static_cast<uint8_t>(grey >> 8);
        packed[at + 1] = static_cast<uint8_t>(grey & 255);
    }
}

// What begins a file, after its stream, name and shape have been set.
struct PngStart {
    int colour_type;
    size_t channels;
    int bits; // a sample
    std::string comment;
};

void write_beginning(PngWriter *writer, const PngStart &start)
{
    png_set_write_fn(writer->png, &writer->stream, write_bytes, flush_bytes);
    png_set_IHDR(writer->png, writer->info, static_cast<uint32_t>(writer->shape.width),
                 static_cast<uint32_t>(writer->shape.height), start.bits, start.colour_type,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_text text = {};
    char key[] = "Comment";
    if (!start.comment.empty()) {
        text.compression = PNG_TEXT_COMPRESSION_NONE;
        text.key = key;
        text.text = const_cast<char *>(start.comment.c_str()); // is only read
        text.text_length = start.comment.size();
        png_set_text(writer->png, writer->info, &text, 1);
    }
    png_write_info(writer->png, writer->info);
}

std::unique_ptr<RowWriter> start_writer(std::unique_ptr<PngWriter> writer, const PngStart &start)
{
    PngWriter *raw = writer.get();
    raw->packed.resize(static_cast<size_t>(raw->shape.width) * start.channels *
                       static_cast<size_t>(start.bits / 8));
    raw->png =
        png_create_write_struct(PNG_LIBPNG_VER_STRING, &raw->stream, keep_error, drop_warning);
    raw->info = raw->png ? png_create_info_struct(raw->png) : nullptr;
    if (!raw->info) {
        complain(raw->stream.name, "cannot write: libpng does not start");
        return nullptr;
    }
    if (!guarded(raw->png, [raw, &start] { write_beginning(raw, start); })) {
        (void)fail_png(raw->stream, "cannot write", EXIT_IO);
        return nullptr;
    }
    return writer;
}

// --- Reading --------------------------------------------------------------------------------

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

std::unique_ptr<RowWriter> start_png(FILE *stream, const std::string &name,
                                     const PictureShape &shape)
{
    auto writer = std::make_unique<PngWriter>();
    writer->stream.file = stream;
    writer->stream.name = name;
    writer->shape = shape;
    if (!shape.colour) {
        return start_writer(std::move(writer), {PNG_COLOR_TYPE_GRAY, 1, 8, ""});
    }
    return start_writer(std::move(writer), shape.matte
                                               ? PngStart{PNG_COLOR_TYPE_RGB_ALPHA, 4, 8, ""}
                                               : PngStart{PNG_COLOR_TYPE_RGB, 3, 8, ""});
}

std::unique_ptr<RowWriter> start_depth_view(FILE *stream, const std::string &name,
                                            const PictureShape &shape, const DepthRange &range,
                                            const std::string &comment)
{
    auto writer = std::make_unique<DepthViewWriter>();
    writer->stream.file = stream;
    writer->stream.name = name;
    writer->shape = shape;
    writer->range = range;
    return start_writer(std::move(writer), {PNG_COLOR_TYPE_GRAY, 1, 16, comment});
}

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
