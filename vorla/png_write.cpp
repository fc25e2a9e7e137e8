// Writing PNG files through libpng: pictures, and views of a depth. What belongs in which channel
// is settled here; names and streams are the callers'.
#include "vorla/formats.h"
#include "vorla/png_stream.h"

#include "format/depth.h"

#include <cstring>

namespace {

void write_bytes(png_structp png, png_bytep bytes, size_t size)
{
    FILE *file = static_cast<PngStream *>(png_get_io_ptr(png))->file;
    if (fwrite(bytes, 1, size, file) != size) {
        png_error(png, strerror(errno));
    }
}

void flush_bytes(png_structp) {}

struct PngWriter : RowWriter {
    PngStream stream;
    PictureShape shape;
    png_structp png = nullptr;
    png_infop info = nullptr;
    std::vector<uint8_t> packed; // a row as the file has it

    PngWriter(FILE *file, const std::string &name, const PictureShape &picture)
        : stream{file, name}, shape(picture)
    {
    }
    ~PngWriter() override
    {
        png_destroy_write_struct(&png, &info);
    }
    virtual void pack(void *const *rows);
    void write_row(void *const *rows) override;
    void finish() override;
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

void PngWriter::write_row(void *const *rows)
{
    pack(rows);
    guarded(png, "cannot write", EXIT_IO, [this] { png_write_row(png, packed.data()); });
}

void PngWriter::finish()
{
    guarded(png, "cannot write", EXIT_IO, [this] { png_write_end(png, nullptr); });
}

// A picture of the depth alone.
struct DepthViewWriter final : PngWriter {
    DepthRange range;

    using PngWriter::PngWriter;
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

// What begins a file.
struct PngStart {
    int colour_type;
    size_t channels;
    int bits;  // a sample
    int level; // of compression, or -1
    std::string comment;
};

void write_beginning(PngWriter *writer, const PngStart &start)
{
    png_set_write_fn(writer->png, &writer->stream, write_bytes, flush_bytes);
    png_set_IHDR(writer->png, writer->info, static_cast<uint32_t>(writer->shape.width),
                 static_cast<uint32_t>(writer->shape.height), start.bits, start.colour_type,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (start.level >= 0) {
        png_set_compression_level(writer->png, start.level);
    }
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

void start_writer(PngWriter *writer, const PngStart &start)
{
    writer->packed.resize(static_cast<size_t>(writer->shape.width) * start.channels *
                          static_cast<size_t>(start.bits / 8));
    writer->png =
        png_create_write_struct(PNG_LIBPNG_VER_STRING, &writer->stream, keep_error, drop_warning);
    writer->info = writer->png ? png_create_info_struct(writer->png) : nullptr;
    if (!writer->info) {
        throw Failure(EXIT_IO, writer->stream.name, "cannot write: libpng does not start");
    }
    guarded(writer->png, "cannot write", EXIT_IO, [=, &start] { write_beginning(writer, start); });
}

} // namespace

// RGB, RGBA with the matte as alpha, or grey for a matte alone; depth is passed over.
std::unique_ptr<RowWriter> start_png(FILE *stream, const std::string &name,
                                     const PictureShape &shape, const Options &options)
{
    auto writer = std::make_unique<PngWriter>(stream, name, shape);
    start_writer(writer.get(),
                 !shape.colour ? PngStart{PNG_COLOR_TYPE_GRAY, 1, 8, options.level, ""}
                 : shape.matte ? PngStart{PNG_COLOR_TYPE_RGB_ALPHA, 4, 8, options.level, ""}
                               : PngStart{PNG_COLOR_TYPE_RGB, 3, 8, options.level, ""});
    return writer;
}

std::unique_ptr<RowWriter> start_depth_view(FILE *stream, const std::string &name,
                                            const PictureShape &shape, const Options &options,
                                            const DepthRange &range, const std::string &comment)
{
    auto writer = std::make_unique<DepthViewWriter>(stream, name, shape);
    writer->range = range;
    start_writer(writer.get(), {PNG_COLOR_TYPE_GRAY, 1, 16, options.level, comment});
    return writer;
}
