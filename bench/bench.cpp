// Times the built module, driven as a host drives it, beside its limits and its peers, in one run,
// and prints a table of ratios: times differ from machine to machine and from minute to minute,
// ratios far less. `bench MODULE.so DIRECTORY`.
#include "bench/pictures.h"

#include <benchmark/benchmark.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <functional>
#include <map>
#include <numeric>
#include <random>

namespace {

StandinModule module;
std::string directory;

// --- The module -----------------------------------------------------------------------------

ImageHandle *check(ImageHandle *handle, int32_t result, const std::string &path)
{
    if (result != 1) {
        fprintf(stderr, "bench: %s: cannot open the image\n", path.c_str());
        exit(1);
    }
    return handle;
}

void write_pix(const std::string &path, const Picture &picture, std::vector<int32_t> *depth)
{
    const int32_t colours = picture.planes.size() == 3 ? 3 : 0;
    ImageHandle *handle =
        standin_new_writer(path.c_str(), WIDTH, HEIGHT, colours, colours == 0, depth != nullptr);
    check(handle, module.write_open(handle), path);
    for (int32_t row = 0; row < HEIGHT; ++row) {
        std::vector<void *> rows = row_pointers(picture, row);
        if (depth) {
            rows.push_back(depth->data());
        }
        handle->scanline_proc(handle->priv->state, HEIGHT - 1 - row, rows.data());
    }
    if (handle->close_proc(handle) != 0) {
        exit(1);
    }
}

using Order = std::vector<int32_t>; // of scanlines

// Reads the scanlines in `order`; compares them with `picture` unless that is null.
void read_pix(const std::string &path, const Order &order, const Picture *picture)
{
    ImageHandle *handle = standin_new_reader(path.c_str());
    check(handle, module.read_open(handle), path);
    for (const int32_t y : order) {
        void **rows = nullptr;
        bool good = handle->scanline_proc(handle->priv->state, y, &rows) == 0;
        for (size_t plane = 0; good && picture && plane < picture->planes.size(); ++plane) {
            const void *expected = row_pointers(*picture, HEIGHT - 1 - y)[plane];
            good = memcmp(rows[plane], expected, WIDTH) == 0;
        }
        if (!good) {
            fprintf(stderr, "bench: %s: scanline %d differs\n", path.c_str(), y);
            exit(1);
        }
    }
    handle->close_proc(handle);
}

std::map<std::string, Order> orders()
{
    Order file(HEIGHT);
    std::iota(file.rbegin(), file.rend(), 0);
    Order reverse(file.rbegin(), file.rend());
    Order scattered = file;
    std::shuffle(scattered.begin(), scattered.end(), std::minstd_rand(1));
    Order sparse;
    for (size_t row = 0; row < file.size(); row += 16) {
        sparse.push_back(file[row]);
    }
    return {{"file", file}, {"reverse", reverse}, {"scattered", scattered}, {"16th", sparse}};
}

// --- The works ------------------------------------------------------------------------------

void add(const std::string &name, const std::function<void()> &work)
{
    benchmark::RegisterBenchmark(name.c_str(),
                                 [work](benchmark::State &state) {
                                     for (auto _ : state) {
                                         work();
                                     }
                                 })
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
}

Bytes file_bytes(const std::string &path, size_t skip)
{
    FILE *file = fopen(path.c_str(), "r");
    fseek(file, 0, SEEK_END);
    Bytes bytes(static_cast<size_t>(ftell(file)) - skip);
    fseek(file, static_cast<long>(skip), SEEK_SET);
    if (fread(bytes.data(), 1, bytes.size(), file) != bytes.size()) {
        exit(1);
    }
    fclose(file);
    return bytes;
}

// What the works on one picture have in common, for as long as the benchmark runs.
struct Bench {
    Picture picture;
    std::string path; // without extension
    Bytes packets;
    Bytes interleaved;
    Bytes scratch;
    Bytes encoded;
    std::vector<Bytes> buffers;
    std::vector<void *> rows;
};

void add_picture(const std::string &name, int channels)
{
    auto *bench = new Bench{make_picture(name, channels),
                            directory + "/r/" + name + (channels == 3 ? "" : "-matte"),
                            {},
                            {},
                            {},
                            {},
                            {},
                            {}};
    const std::string label = name + (channels == 3 ? "" : " matte");
    const Picture &picture = bench->picture;
    const std::string pix = bench->path + ".pix";
    write_pix(pix, picture, nullptr);
    for (const auto &[order_name, order] : orders()) {
        read_pix(pix, order, &picture);
        const Order scanlines = order; // clang 14 does not capture bindings
        std::string work = label + "/read ";
        work += order_name;
        add(work, [=] { read_pix(pix, scanlines, nullptr); });
    }
    add(label + "/write", [=, &picture] { write_pix(bench->path + ".out", picture, nullptr); });

    bench->packets = file_bytes(pix, 10);
    bench->encoded.resize(size_t{WIDTH} * HEIGHT * 4);
    bench->buffers.assign(static_cast<size_t>(channels), Bytes(WIDTH));
    for (Bytes &buffer : bench->buffers) {
        bench->rows.push_back(buffer.data());
    }
    add(label + "/read limit", [=] {
        read_bytes(pix, &bench->scratch);
        decode_packets(bench->packets, channels, bench->rows.data());
    });
    if (encode_packets(picture, &bench->encoded) != bench->packets.size() ||
        memcmp(bench->encoded.data(), bench->packets.data(), bench->packets.size()) != 0) {
        fprintf(stderr, "bench: %s: the packets differ\n", label.c_str());
        exit(1);
    }
    add(label + "/write limit", [=, &picture] {
        const size_t size = encode_packets(picture, &bench->encoded);
        write_bytes(bench->path + ".raw", bench->encoded, size);
    });
    write_tiff(bench->path + ".tif", picture);
    add(label + "/read tiff", [=] { read_tiff(bench->path + ".tif", bench->rows.data()); });
    add(label + "/write tiff", [=, &picture] { write_tiff(bench->path + ".tif2", picture); });
    if (channels != 3) {
        return;
    }
    for (size_t pixel = 0; pixel < picture.planes[0].size(); ++pixel) {
        for (const Bytes &plane : picture.planes) {
            bench->interleaved.push_back(plane[pixel]);
        }
    }
    write_png(bench->path + ".png", bench->interleaved);
    add(label + "/read png", [=] { read_png(bench->path + ".png", &bench->scratch); });
    add(label + "/write png", [=] { write_png(bench->path + ".png2", bench->interleaved); });
}

// Depth beside a flat picture, as integers and as floats, and what reading and swapping it takes.
void add_depth()
{
    static const Picture flat = make_picture("flat", 3);
    static std::vector<int32_t> depth(WIDTH);
    std::iota(depth.begin(), depth.end(), 0x4CBEBC20);
    const Order file = orders()["file"];
    const std::string path = directory + "/r/depth.pix";
    write_pix(path, flat, &depth);
    write_pix(directory + "/r/floats.pix", flat, &depth);
    FILE *companion = fopen((directory + "/depth/floats.pix").c_str(), "r+");
    fwrite("\0\0\xD9\x67", 1, 4, companion);
    fclose(companion);
    add("depth/integers", [=] { read_pix(path, file, nullptr); });
    add("depth/floats", [=] { read_pix(directory + "/r/floats.pix", file, nullptr); });
    add("depth/limit", [=] {
        read_pix(directory + "/r/flat.pix", file, nullptr);
        FILE *samples = fopen((directory + "/depth/depth.pix").c_str(), "r");
        std::vector<uint32_t> row(WIDTH);
        for (int32_t y = 0; y < HEIGHT; ++y) {
            if (fread(row.data(), 4, WIDTH, samples) != WIDTH) {
                exit(1);
            }
            for (uint32_t &sample : row) {
                sample = __builtin_bswap32(sample);
            }
            benchmark::DoNotOptimize(row.data());
        }
        fclose(samples);
    });
}

void add_open()
{
    static const Picture picture = make_picture("render", 3);
    static std::vector<int32_t> depth(WIDTH);
    const std::string names[] = {directory + "/r/set.pix", directory + "/mask/set.pix",
                                 directory + "/depth/set.pix"};
    write_pix(names[0], picture, &depth);
    write_pix(names[1], make_picture("render", 1), nullptr);
    add("open/module", [=] {
        ImageHandle *handle = standin_new_reader(names[0].c_str());
        check(handle, module.read_open(handle), names[0]);
        handle->close_proc(handle);
    });
    add("open/bare", [=] {
        for (const std::string &name : names) {
            FILE *file = fopen(name.c_str(), "r");
            char header[10];
            benchmark::DoNotOptimize(fread(header, sizeof header, 1, file));
            fclose(file);
        }
    });
}

// --- The table ------------------------------------------------------------------------------

// Keeps the medians.
class Medians : public benchmark::BenchmarkReporter {
  public:
    bool ReportContext(const Context &) override
    {
        return true;
    }

    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs) {
            if (run.aggregate_name == "median") {
                times[run.run_name.function_name] = run.GetAdjustedRealTime();
            }
        }
    }

    std::map<std::string, double> times;
};

// One line: how long `work` takes, as a multiple of `measure`, and whether that is within `target`.
void print_ratio(const Medians &medians, const std::string &work, const std::string &measure,
                 double target)
{
    if (!medians.times.count(work) || !medians.times.count(measure)) {
        return; // left out with --benchmark_filter
    }
    const double ratio = medians.times.at(work) / medians.times.at(measure);
    printf("%-24s %-24s %6.2f   at most %4.2f  %s\n", work.c_str(), measure.c_str(), ratio, target,
           ratio <= target ? "yes" : "NO");
}

void print_table(const Medians &medians)
{
    const auto row = [&](const std::string &work, const std::string &measure, double target) {
        print_ratio(medians, work, measure, target);
    };
    printf("%-24s %-24s  ratio   target        met\n", "work", "beside");
    for (const std::string name : {"flat", "short", "render", "noise"}) {
        row(name + "/read file", name + "/read limit", 1.5);
        row(name + "/write", name + "/write limit", 1.5);
        row(name + "/read file", name + "/read png", name == "noise" ? 1 : 0.25);
        row(name + "/write", name + "/write png", name == "noise" ? 1 : 0.25);
        if (name != "noise") {
            row(name + "/read file", name + "/read tiff", 1);
            row(name + "/write", name + "/write tiff", 1);
        }
        row(name + "/read reverse", name + "/read file", 2);
        row(name + "/read scattered", name + "/read file", 3);
        row(name + "/read 16th", name + "/read file", 1);
    }
    row("render matte/read file", "render matte/read limit", 1.5);
    row("render matte/write", "render matte/write limit", 1.5);
    row("render matte/read file", "render matte/read tiff", 1);
    row("render matte/write", "render matte/write tiff", 1);
    row("depth/integers", "depth/limit", 1.5);
    row("depth/floats", "depth/limit", 2);
    row("open/module", "open/bare", 1.5);
}

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (argc != 3) {
        fprintf(stderr, "usage: bench MODULE.so DIRECTORY\n");
        return 2;
    }
    directory = argv[2];
    if (const char *failure = standin_load(argv[1], &module)) {
        fprintf(stderr, "bench: %s: %s\n", argv[1], failure);
        return 1;
    }
    for (const char *name : {"flat", "short", "render", "noise"}) {
        add_picture(name, 3);
    }
    add_picture("render", 1);
    add_depth();
    add_open();
    Medians medians;
    benchmark::RunSpecifiedBenchmarks(&medians);
    print_table(medians);
    return 0;
}
