// Reading OpenEXR files through the C++ library. One row at a time goes through a buffer that every
// scan line shares (a stride of 0 from line to line).
#include "format/depth.h"
#include "vorla/exr_samples.h"
#include "vorla/formats.h"

#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfInputFile.h>
#include <ImfMultiPartInputFile.h>
#include <ImfPartType.h>

#include <cmath>
#include <optional>

namespace {

struct ExrReader final : RowReader {
    std::string name;
    InputStream stream;
    Options options;
    std::optional<Imf::InputFile> file;
    Imf::FrameBuffer frame;
    int left = 0; // column and line of the data window
    int line = 0; // next
    bool grey = false;
    const ByteScale colour_scale;
    const ByteScale matte_scale{false};
    Fractions fractions[4];      // of R, G, B, A; Y is in the first
    std::vector<uint32_t> whole; // Z, one or the other
    std::vector<float> floats;
    int64_t clamped = 0; // samples, and of depths:
    int64_t rounded = 0;
    int64_t limited = 0;

    ExrReader(FILE *input, const std::string &shown, const Options &chosen)
        : name(shown), stream(input, name.c_str()), options(chosen), colour_scale(chosen.linear)
    {
    }
    void begin();
    void read_row(void *const *rows) override;
    void finish() override;

  private:
    void note_parts();
    void note_choice(const Imf::Header &header);
    int32_t to_depth(double sample);
    std::string choose_channels(const Imf::ChannelList &channels);
    void take_channels(const Imf::ChannelList &channels);
    void take_fractions(const char *channel, const Imf::ChannelList &channels, Fractions *row);
    template <class Sample>
    void take_channel(const char *channel, Imf::PixelType type, std::vector<Sample> *row);

    // Runs what may throw, and gives the exception the name of the file.
    template <class Step>
    void guarded(const Step &step)
    {
        try {
            step();
        } catch (const Failure &) {
            throw;
        } catch (const std::bad_alloc &) {
            fail_system(name, "cannot read", ENOMEM);
        } catch (const std::exception &problem) {
            throw Failure(ferror(stream.file) ? EXIT_IO : EXIT_DAMAGED, name,
                          std::string("cannot read: ") + problem.what());
        }
    }
};

// Has the channel read into `row`. The library counts columns from 0, wherever the data window
// begins; the address of its column 0 may lie outside the buffer.
template <class Sample>
void ExrReader::take_channel(const char *channel, Imf::PixelType type, std::vector<Sample> *row)
{
    row->resize(static_cast<size_t>(shape.width));
    const auto first = reinterpret_cast<uintptr_t>(row->data());
    const uintptr_t skipped = static_cast<uintptr_t>(int64_t{left}) * sizeof(Sample);
    char *base = reinterpret_cast<char *>(first - skipped); // NOLINT(performance-no-int-to-ptr)
    frame.insert(channel, Imf::Slice(type, base, sizeof(Sample)));
}

// A channel that is not there leaves the zeros of its row.
void ExrReader::take_fractions(const char *channel, const Imf::ChannelList &channels,
                               Fractions *row)
{
    const Imf::Channel *found = channels.findChannel(channel);
    if (found && found->type == Imf::HALF) {
        take_channel(channel, Imf::HALF, &row->halves);
    } else if (found) {
        take_channel(channel, Imf::FLOAT, &row->floats);
    }
}

// Decides what the channels of the file are to be. Returns why they cannot be imported, or "".
std::string ExrReader::choose_channels(const Imf::ChannelList &channels)
{
    const bool colour = std::any_of(std::begin(COLOURS), std::end(COLOURS),
                                    [&](const char *one) { return channels.findChannel(one); });
    grey = !colour && channels.findChannel("Y");
    shape.colour = colour || grey;
    shape.matte = channels.findChannel("A");
    shape.depth = channels.findChannel("Z");
    if (grey && (channels.findChannel("RY") || channels.findChannel("BY"))) {
        return "the colour is stored as luminance and chroma";
    }
    if (!shape.colour && !shape.matte) {
        return shape.depth ? "a PIX picture of depth alone could not be read again"
                           : "there is no channel R, G, B, Y or A";
    }
    for (const char *one : {"R", "G", "B", "A", "Z", "Y"}) {
        const Imf::Channel *channel = channels.findChannel(one);
        if (channel && (channel->xSampling != 1 || channel->ySampling != 1)) {
            return std::string("channel ") + one + " does not have a sample for every pixel";
        }
    }
    if (options.matte_only && grey && !shape.matte) {
        shape.colour = false;
        shape.matte = true;
    } else if (options.matte_only && shape.colour) {
        return "the picture is not plain grey";
    }
    return "";
}

// Depths are rounded to whole numbers from 0; those that are no numbers are the farthest.
int32_t ExrReader::to_depth(double sample)
{
    if (!std::isfinite(sample)) {
        return PIX_DEPTH_LIMIT;
    }
    const double scaled = sample * options.depth_scale;
    const double whole_number = std::round(scaled);
    const double nearest = std::clamp(whole_number, 0.0, double{INT32_MAX});
    limited += nearest != whole_number ? 1 : 0;
    rounded += nearest == whole_number && whole_number != scaled ? 1 : 0;
    return static_cast<int32_t>(nearest);
}

void ExrReader::note_parts()
{
    const Imf::MultiPartInputFile parts(stream, NO_THREADS, false);
    if (parts.parts() > 1) {
        notes.push_back(text_of("only the first of ", parts.parts(), " parts is taken"));
    }
    const Imf::Header &header = parts.header(0);
    if (header.hasType() && Imf::isDeepData(header.type())) {
        notes.emplace_back("deep samples are flattened");
    }
    stream.seekg(0);
}

void ExrReader::note_choice(const Imf::Header &header)
{
    std::string others;
    for (auto at = header.channels().begin(); at != header.channels().end(); ++at) {
        const std::string channel = at.name();
        if (channel.size() > 1 || std::string("RGBAZ").find(channel) == std::string::npos) {
            others += (channel == "Y" && grey ? ""
                       : others.empty()       ? ""
                                              : ", ") +
                      (channel == "Y" && grey ? "" : channel);
        }
    }
    if (!others.empty()) {
        notes.push_back("left out: " + others);
    }
    for (const char *colour : COLOURS) {
        if (shape.colour && !grey && !header.channels().findChannel(colour)) {
            notes.push_back(text_of("there is no channel ", colour, "; it is black"));
        }
    }
    if (header.dataWindow() != header.displayWindow()) {
        notes.push_back("the data window, " + size_of(header.dataWindow()) +
                        ", is taken, not the display window, " + size_of(header.displayWindow()));
    }
}

void ExrReader::finish()
{
    const int64_t pixels = int64_t{shape.width} * shape.height;
    const auto used = [](const Fractions &row) {
        return row.halves.size() + row.floats.size() > 0;
    };
    const int64_t samples =
        pixels * std::count_if(std::begin(fractions), std::end(fractions), used);
    const auto say = [this](int64_t count, int64_t all, const char *what) {
        if (count > 0) {
            notes.push_back(text_of(grouped(count), " of ", grouped(all), what));
        }
    };
    say(clamped, samples, " samples outside 0 to 1 clamped");
    say(rounded, pixels, " depths rounded to whole numbers; --depth-scale multiplies them first");
    say(limited, pixels, " depths outside 0 to 2147483647 clamped");
}

// Makes the buffers for the channels chosen.
void ExrReader::take_channels(const Imf::ChannelList &channels)
{
    if (grey) {
        take_fractions("Y", channels, &fractions[shape.colour ? 0 : 3]);
    }
    for (int channel = 0; shape.colour && !grey && channel < 3; ++channel) {
        take_fractions(COLOURS[channel], channels, &fractions[channel]);
    }
    if (channels.findChannel("A")) {
        take_fractions("A", channels, &fractions[3]);
    }
    const Imf::Channel *depth = channels.findChannel("Z");
    if (depth && depth->type == Imf::UINT) {
        take_channel("Z", Imf::UINT, &whole);
    } else if (depth) {
        take_channel("Z", Imf::FLOAT, &floats);
    }
    file->setFrameBuffer(frame);
}

void ExrReader::begin()
{
    guarded([this] {
        // Far larger pictures are refused before the library has buffers for them.
        Imf::Header::setMaxImageSize(4 * PIX_MAX_SIZE, 4 * PIX_MAX_SIZE);
        Imf::Header::setMaxTileSize(4 * PIX_MAX_SIZE, 4 * PIX_MAX_SIZE);
        note_parts();
        file.emplace(stream, NO_THREADS);
        const Imath::Box2i &window = file->header().dataWindow();
        const int64_t width = int64_t{window.max.x} - window.min.x + 1;
        const int64_t height = int64_t{window.max.y} - window.min.y + 1;
        check_size(name, width, height);
        shape.width = static_cast<int32_t>(width);
        shape.height = static_cast<int32_t>(height);
        left = window.min.x;
        line = window.min.y;
        const Imf::ChannelList &channels = file->header().channels();
        const std::string refusal = choose_channels(channels);
        if (!refusal.empty()) {
            throw Failure(options.matte_only ? EXIT_USAGE : EXIT_DAMAGED, name,
                          "cannot import: " + refusal);
        }
        take_channels(channels);
        note_choice(file->header());
    });
}

void ExrReader::read_row(void *const *rows)
{
    check_interrupt();
    guarded([this] { file->readPixels(line); });
    line += 1;
    for (const Fractions &channel : fractions) {
        clamped += channel.outside();
    }
    for (int channel = 0; shape.colour && channel < 3; ++channel) {
        fractions[grey ? 0 : channel].convert(colour_scale, rows[channel]);
    }
    if (shape.matte) {
        fractions[3].convert(matte_scale, rows[matte_index(shape)]);
    }
    if (shape.depth) {
        auto *depths = static_cast<int32_t *>(rows[depth_index(shape)]);
        const auto step = [this](auto sample) { return to_depth(sample); };
        std::transform(whole.begin(), whole.end(), depths, step);
        std::transform(floats.begin(), floats.end(), depths, step);
    }
}

} // namespace

// The first part of a file; its data window is the picture. Y is read as grey when there is no R, G
// or B. Fractions are rounded to bytes and clamped; depths are rounded and clamped to whole numbers
// of 31 bits, and are PIX_DEPTH_LIMIT where they are no numbers.
std::unique_ptr<RowReader> open_exr(FILE *stream, const std::string &name, const Options &options)
{
    auto reader = std::make_unique<ExrReader>(stream, name, options);
    reader->begin();
    return reader;
}
