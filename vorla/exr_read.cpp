// Reading OpenEXR files through the C++ library, whose exceptions end here. One row at a time goes
// through a buffer that every scan line shares (a stride of 0 from line to line).
#include "format/depth.h"
#include "vorla/exr_file.h"
#include "vorla/exr_stream.h"

#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfIO.h>
#include <ImfInputFile.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <vector>

namespace {

struct InputStream final : Imf::IStream {
    FILE *file;

    InputStream(FILE *stream, const char *name) : Imf::IStream(name), file(stream) {}
    bool read(char bytes[], int size) override
    {
        if (fread(bytes, 1, static_cast<size_t>(size), file) != static_cast<size_t>(size)) {
            throw std::runtime_error(ferror(file) ? strerror(errno) : "The file ends early.");
        }
        return true;
    }
    uint64_t tellg() override
    {
        return tell(file);
    }
    void seekg(uint64_t position) override
    {
        seek(file, position);
    }
    void clear() override
    {
        clearerr(file);
    }
};

// --- Samples --------------------------------------------------------------------------------

double from_linear(double value)
{
    return value <= 0.0031308 ? value * 12.92 : 1.055 * std::pow(value, 1 / 2.4) - 0.055;
}

uint8_t to_byte(float sample, bool linear)
{
    const double value = linear ? from_linear(sample) : sample;
    if (!(value > 0)) { // NaN too
        return 0;
    }
    return value >= 1 ? 255 : static_cast<uint8_t>(std::lround(value * 255));
}

int32_t to_depth(float sample)
{
    if (!std::isfinite(sample)) {
        return PIX_DEPTH_LIMIT;
    }
    return static_cast<int32_t>(std::clamp(std::round(double{sample}), 0.0, double{INT32_MAX}));
}

// --- Reading --------------------------------------------------------------------------------

struct ExrReader final : RowReader {
    std::string name;
    InputStream stream;
    bool linear = false;
    std::optional<Imf::InputFile> file;
    Imf::FrameBuffer frame;
    int left = 0; // column and line of the data window
    int line = 0; // next
    bool grey = false;
    std::vector<float> fractions[4]; // of R, G, B, A; Y is in the first
    std::vector<uint32_t> whole;     // Z, one or the other
    std::vector<float> floats;

    ExrReader(FILE *input, std::string shown) : name(std::move(shown)), stream(input, name.c_str())
    {
    }
    ExitCode read_row(void *const *rows) override;
    ExitCode finish() override
    {
        return EXIT_FINE;
    }
};

ExitCode fail_reading(const ExrReader &reader, const std::exception &problem)
{
    const bool no_memory = dynamic_cast<const std::bad_alloc *>(&problem) != nullptr;
    complain(reader.name,
             std::string("cannot read: ") + (no_memory ? strerror(ENOMEM) : problem.what()));
    return no_memory || ferror(reader.stream.file) ? EXIT_IO : EXIT_DAMAGED;
}

// Has the channel read into `row`, if it is there; zeros if it is not. The library counts columns
// from 0, wherever the data window begins; the address of its column 0 may lie outside the buffer.
template <class Sample>
void take_channel(ExrReader *reader, const char *channel, Imf::PixelType type,
                  std::vector<Sample> *row)
{
    row->resize(static_cast<size_t>(reader->shape.width));
    const uintptr_t first = reinterpret_cast<uintptr_t>(row->data());
    const uintptr_t skipped = static_cast<uintptr_t>(int64_t{reader->left}) * sizeof(Sample);
    char *base = reinterpret_cast<char *>(first - skipped); // NOLINT(performance-no-int-to-ptr)
    reader->frame.insert(channel, Imf::Slice(type, base, sizeof(Sample)));
}

// Decides what the channels of the file are to be. Returns why they cannot be imported, or "".
std::string choose_channels(ExrReader *reader, const Imf::ChannelList &channels, bool matte_only)
{
    const bool colour = std::any_of(std::begin(COLOURS), std::end(COLOURS),
                                    [&](const char *name) { return channels.findChannel(name); });
    reader->grey = !colour && channels.findChannel("Y");
    reader->shape.colour = colour || reader->grey;
    reader->shape.matte = channels.findChannel("A");
    reader->shape.depth = channels.findChannel("Z");
    if (reader->grey && (channels.findChannel("RY") || channels.findChannel("BY"))) {
        return "the colour is stored as luminance and chroma";
    }
    if (!reader->shape.colour && !reader->shape.matte) {
        return reader->shape.depth ? "a PIX picture of depth alone could not be read again"
                                   : "there is no channel R, G, B, Y or A";
    }
    for (const char *name : {"R", "G", "B", "A", "Z", "Y"}) {
        const Imf::Channel *channel = channels.findChannel(name);
        if (channel && (channel->xSampling != 1 || channel->ySampling != 1)) {
            return std::string("channel ") + name + " does not have a sample for every pixel";
        }
    }
    if (matte_only && reader->grey && !reader->shape.matte) {
        reader->shape.colour = false;
        reader->shape.matte = true;
    } else if (matte_only && reader->shape.colour) {
        return "the picture is not plain grey";
    }
    return "";
}

// Makes the buffers for the channels chosen.
void take_channels(ExrReader *reader, const Imf::ChannelList &channels)
{
    const PictureShape &shape = reader->shape;
    if (reader->grey) {
        take_channel(reader, "Y", Imf::FLOAT, &reader->fractions[shape.colour ? 0 : 3]);
    }
    for (int channel = 0; shape.colour && !reader->grey && channel < 3; ++channel) {
        take_channel(reader, COLOURS[channel], Imf::FLOAT, &reader->fractions[channel]);
    }
    if (channels.findChannel("A")) {
        take_channel(reader, "A", Imf::FLOAT, &reader->fractions[3]);
    }
    const Imf::Channel *depth = channels.findChannel("Z");
    if (depth && depth->type == Imf::UINT) {
        take_channel(reader, "Z", Imf::UINT, &reader->whole);
    } else if (depth) {
        take_channel(reader, "Z", Imf::FLOAT, &reader->floats);
    }
    reader->file->setFrameBuffer(reader->frame);
}

// May throw.
ExitCode begin_reading(ExrReader *reader, bool matte_only)
{
    // Far larger pictures are refused before the library has buffers for them.
    Imf::Header::setMaxImageSize(4 * PIX_MAX_SIZE, 4 * PIX_MAX_SIZE);
    Imf::Header::setMaxTileSize(4 * PIX_MAX_SIZE, 4 * PIX_MAX_SIZE);
    reader->file.emplace(reader->stream, NO_THREADS);
    const Imath::Box2i &window = reader->file->header().dataWindow();
    const int64_t width = int64_t{window.max.x} - window.min.x + 1;
    const int64_t height = int64_t{window.max.y} - window.min.y + 1;
    if (const ExitCode code = check_size(reader->name, width, height)) {
        return code;
    }
    reader->shape.width = static_cast<int32_t>(width);
    reader->shape.height = static_cast<int32_t>(height);
    reader->left = window.min.x;
    reader->line = window.min.y;
    const Imf::ChannelList &channels = reader->file->header().channels();
    const std::string refusal = choose_channels(reader, channels, matte_only);
    if (!refusal.empty()) {
        complain(reader->name, "cannot import: " + refusal);
        return matte_only ? EXIT_USAGE : EXIT_DAMAGED;
    }
    take_channels(reader, channels);
    return EXIT_FINE;
}

void convert_fractions(const std::vector<float> &fractions, bool linear, void *bytes)
{
    std::transform(fractions.begin(), fractions.end(), static_cast<uint8_t *>(bytes),
                   [linear](float sample) { return to_byte(sample, linear); });
}

ExitCode ExrReader::read_row(void *const *rows)
{
    try {
        file->readPixels(line);
    } catch (const std::exception &problem) {
        return fail_reading(*this, problem);
    }
    line += 1;
    for (int channel = 0; shape.colour && channel < 3; ++channel) {
        convert_fractions(fractions[grey ? 0 : channel], linear, rows[channel]);
    }
    if (shape.matte) {
        convert_fractions(fractions[3], false, rows[matte_index(shape)]);
    }
    if (shape.depth) {
        int32_t *depths = static_cast<int32_t *>(rows[depth_index(shape)]);
        std::transform(whole.begin(), whole.end(), depths,
                       [](uint32_t depth) { return static_cast<int32_t>(depth); });
        std::transform(floats.begin(), floats.end(), depths, to_depth);
    }
    return EXIT_FINE;
}

} // namespace

ExitCode open_exr(FILE *stream, const std::string &name, const ExrOptions &options,
                  std::unique_ptr<RowReader> *reader)
{
    auto opened = std::make_unique<ExrReader>(stream, name);
    opened->linear = options.linear;
    ExitCode code = EXIT_FINE;
    try {
        code = begin_reading(opened.get(), options.matte_only);
    } catch (const std::exception &problem) {
        code = fail_reading(*opened, problem);
    }
    *reader = std::move(opened);
    return code;
}
