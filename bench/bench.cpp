// Times the built module in one run with its limits (bench.h) and its peers (libpng and libtiff),
// and prints tables of ratios: times differ from machine to machine and from minute to minute,
// ratios far less. `bench MODULE.so DIRECTORY [MODULE-BEFORE.so]`. Leaves speeds in
// DIRECTORY/speed. Fails when a target is missed.
#include "bench/bench.h"
#include "format/header.h"

#include <benchmark/benchmark.h>

#include <stdio.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <numeric>
#include <random>

namespace {

StandinModule now;
StandinModule before; // nothing is loaded when there is no module to compare with
std::string directory;

struct NamedOrder {
    const char *name;
    Order scanlines;
};

std::vector<NamedOrder> orders()
{
    Order file(HEIGHT);
    std::iota(file.rbegin(), file.rend(), 0);
    const Order reverse(file.rbegin(), file.rend());
    Order scattered = file;
    std::shuffle(scattered.begin(), scattered.end(), std::minstd_rand(1));
    Order sparse;
    for (size_t row = 0; row < file.size(); row += 16) {
        sparse.push_back(file[row]);
    }
    return {{"file", file}, {"reverse", reverse}, {"scattered", scattered}, {"16th", sparse}};
}

Bytes read_packets(const std::string &path)
{
    std::ifstream file(path);
    file.seekg(sizeof(PixHeader));
    return Bytes(std::istreambuf_iterator<char>(file), {});
}

// --- What is timed --------------------------------------------------------------------------

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

// What the works on one picture have in common.
struct Subject {
    std::string name;
    Picture picture;
    std::string path; // without extension
    std::string pix;
    Bytes packets;
    Bytes interleaved;
    Bytes scratch;
    std::vector<Bytes> buffers; // of a row
    std::vector<void *> rows;   // point to them
};

std::map<std::string, Subject> subjects; // by their names, for as long as the benchmark runs

// Adds reading and writing by a module. First writes and reads the picture once, untimed, and ends
// the process when the packets or the samples are wrong.
void add_module(const Subject &subject, const StandinModule &by, const std::string &suffix)
{
    write_pix(by, subject.pix, subject.picture, nullptr);
    if (read_packets(subject.pix) != subject.packets) {
        fail(subject.pix, "the packets differ from the codec's");
    }
    for (const NamedOrder &order : orders()) {
        read_pix(by, subject.pix, order.scanlines, &subject.picture);
        if (subject.name == "matte" && order.name != std::string("file")) {
            continue; // its rows take less time than a seek
        }
        add(subject.name + "/read " + order.name + suffix,
            [&, order] { read_pix(by, subject.pix, order.scanlines, nullptr); });
    }
    add(subject.name + "/write" + suffix,
        [&] { write_pix(by, subject.path + ".out", subject.picture, nullptr); });
}

void add_limits(Subject &subject)
{
    if (decode_packets(subject.packets, subject.rows) != HEIGHT ||
        decode_file(subject.pix, subject.rows) != HEIGHT) {
        fail(subject.pix, "the codec does not decode the packets");
    }
    add(subject.name + "/read limit", [&] { decode_file(subject.pix, subject.rows); });
    add(subject.name + "/write limit",
        [&] { encode_file(subject.path + ".raw", subject.picture); });
    add(subject.name + "/decode", [&] { decode_packets(subject.packets, subject.rows); });
    add(subject.name + "/encode",
        [&] { encode_picture(subject.picture, [](const uint8_t *, size_t) {}); });
    add(subject.name + "/copy", [&] { copy_rows(subject.picture, subject.rows); });
}

void add_peers(Subject &subject)
{
    const std::string png = subject.path + ".png";
    const std::string tiff = subject.path + ".tif";
    for (size_t pixel = 0; pixel < subject.picture.planes[0].size(); ++pixel) {
        for (const Bytes &plane : subject.picture.planes) {
            subject.interleaved.push_back(plane[pixel]);
        }
    }
    write_png(png, subject.interleaved);
    write_tiff(tiff, subject.picture);
    add(subject.name + "/read png", [&, png] { read_png(png, &subject.scratch); });
    add(subject.name + "/write png", [&, png] { write_png(png + "2", subject.interleaved); });
    add(subject.name + "/read tiff", [&, tiff] { read_tiff(tiff, subject.rows); });
    add(subject.name + "/write tiff", [&, tiff] { write_tiff(tiff + "2", subject.picture); });
}

void add_picture(const std::string &name)
{
    Picture picture = make_picture(name);
    if (picture.planes.empty()) {
        printf("\"%s\" is left out: %s is missing\n", name.c_str(), PHOTOGRAPH);
        return;
    }
    Subject &subject = subjects[name];
    subject.name = name;
    subject.picture = std::move(picture);
    subject.path = directory + "/r/" + name;
    subject.pix = subject.path + ".pix";
    encode_picture(subject.picture, [&](const uint8_t *bytes, size_t size) {
        subject.packets.insert(subject.packets.end(), bytes, bytes + size);
    });
    subject.buffers.assign(subject.picture.planes.size(), Bytes(WIDTH));
    for (Bytes &buffer : subject.buffers) {
        subject.rows.push_back(buffer.data());
    }
    if (before.library) {
        add_module(subject, before, " before");
    }
    add_module(subject, now, "");
    add_limits(subject);
    if (subject.rows.size() == 3) {
        add_peers(subject);
    }
}

// Depth beside a flat picture, as integers and as floats, and what reading and swapping it takes.
void add_depth()
{
    const Subject &flat = subjects["flat"];
    static std::vector<int32_t> depth(WIDTH);
    static const Order file = orders()[0].scanlines;
    std::iota(depth.begin(), depth.end(), 0x4CBEBC20);
    const std::string integers = directory + "/r/depth.pix";
    const std::string floats = directory + "/r/floats.pix";
    write_pix(now, integers, flat.picture, depth.data());
    write_pix(now, floats, flat.picture, depth.data());
    FILE *companion = fopen((directory + "/depth/floats.pix").c_str(), "r+");
    fwrite("\0\0\xD9\x67", 1, 4, companion);
    fclose(companion);
    add("flat/depth integers", [=] { read_pix(now, integers, file, nullptr); });
    add("flat/depth floats", [=] { read_pix(now, floats, file, nullptr); });
    add("flat/depth limit", [&flat] {
        decode_file(flat.pix, flat.rows);
        swap_file(directory + "/depth/depth.pix");
    });
}

void add_open()
{
    static std::vector<int32_t> depth(WIDTH);
    const std::string names[] = {directory + "/r/set.pix", directory + "/mask/set.pix",
                                 directory + "/depth/set.pix"};
    write_pix(now, names[0], subjects["render"].picture, depth.data());
    write_pix(now, names[1], subjects["matte"].picture, nullptr);
    add("render/open", [=] {
        ImageHandle *handle = open_pix(now, names[0]);
        handle->close_proc(handle);
    });
    add("render/bare open", [=] {
        for (const std::string &name : names) {
            FILE *file = fopen(name.c_str(), "r");
            char header[sizeof(PixHeader)];
            benchmark::DoNotOptimize(fread(header, sizeof header, 1, file));
            fclose(file);
        }
    });
}

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

    Times times;
};

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (argc != 3 && argc != 4) {
        fprintf(stderr, "usage: bench MODULE.so DIRECTORY [MODULE-BEFORE.so]\n");
        return 2;
    }
    directory = argv[2];
    load(argv[1], &now);
    if (argc == 4) {
        load(argv[3], &before);
    }
    for (const char *name : PICTURES) {
        add_picture(name);
    }
    add_depth();
    add_open();
    Medians medians;
    benchmark::RunSpecifiedBenchmarks(&medians);
    return print_tables(medians.times, directory + "/speed") ? 0 : 1;
}
