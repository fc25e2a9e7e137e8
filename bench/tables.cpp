// The tables of ratios, on standard output, and the speeds behind them in a file.
#include "bench/bench.h"

#include <math.h>
#include <stdio.h>

#include <fstream>
#include <iterator>

namespace {

// How long a work may take, as a multiple of another.
struct Comparison {
    const char *title; // in README.md; null when its chart shows it
    const char *work;
    const char *beside;
    double target;
    const char *special = ""; // a picture that has its own target
    double special_target = 0;
};

// PackBits stores noise nearly as it is, in three bytes a pixel where a packet takes four.
constexpr Comparison COMPARISONS[] = {
    {"reading: its limit", "read file", "read limit", 1.25, "flat", 1.5},
    {"writing: its limit", "write", "write limit", 1.25, "flat", 1.5},
    {nullptr, "read file", "read png", 0.1, "noise", 0.2},
    {nullptr, "write", "write png", 0.1},
    {nullptr, "read file", "read tiff", 1 / 1.5, "noise", 1 / 0.3},
    {nullptr, "write", "write tiff", 1 / 1.2},
    {"reverse order: file order", "read reverse", "read file", 2.5},
    {"scattered order: file order", "read scattered", "read file", 3},
    {"every 16th row: all rows", "read 16th", "read file", 1},
    {"integer depth: read and swap", "depth integers", "depth limit", 1.25},
    {"float depth: read and swap", "depth floats", "depth limit", 1.5},
    {"open and close: bare calls", "open", "bare open", 1.5},
};

double target_of(const Comparison &comparison, const std::string &picture)
{
    return picture == comparison.special ? comparison.special_target : comparison.target;
}

// Not a number when the work was not timed.
double time_of(const Times &times, const std::string &picture, const std::string &work)
{
    const auto found = times.find(picture + "/" + work);
    return found == times.end() ? NAN : found->second;
}

double ratio_of(const Times &times, const std::string &picture, const Comparison &comparison)
{
    return time_of(times, picture, comparison.work) / time_of(times, picture, comparison.beside);
}

bool print_ratios(const Times &times)
{
    bool all_met = true;
    printf("picture  work            beside        ratio  target  met\n");
    for (const char *picture : PICTURES) {
        for (const Comparison &comparison : COMPARISONS) {
            const double ratio = ratio_of(times, picture, comparison);
            if (isnan(ratio)) {
                continue;
            }
            const double target = target_of(comparison, picture);
            all_met = all_met && ratio <= target;
            printf("%-8s %-15s %-12s %6.2f  %6.2f  %s\n", picture, comparison.work,
                   comparison.beside, ratio, target, ratio <= target ? "yes" : "NO");
        }
    }
    return all_met;
}

// The same with a column for each picture, for README.md.
void print_markdown(const Times &times)
{
    printf("\n| what is timed: what its time is divided by | at most |");
    for (const char *picture : PICTURES) {
        printf(" %s |", picture);
    }
    printf("\n|---|---|");
    for (size_t column = 0; column < std::size(PICTURES); ++column) {
        printf("---|");
    }
    for (const Comparison &comparison : COMPARISONS) {
        if (!comparison.title) {
            continue;
        }
        printf("\n| %s | %.3g", comparison.title, comparison.target);
        if (*comparison.special) {
            printf(" (%s %.3g)", comparison.special, comparison.special_target);
        }
        printf(" |");
        for (const char *picture : PICTURES) {
            const double ratio = ratio_of(times, picture, comparison);
            isnan(ratio) ? printf(" |") : printf(" %.2f |", ratio);
        }
    }
    printf("\n");
}

// Writes Mpixel/s: a block for reading, then a block for writing. Each has a line for each picture
// that was also timed with the peers.
void write_speeds(const Times &times, const std::string &path)
{
    std::ofstream file(path);
    for (const std::string way : {"read", "write"}) {
        for (const char *picture : PICTURES) {
            if (isnan(time_of(times, picture, way + " png"))) {
                continue;
            }
            file << picture;
            const std::string module = way == "read" ? "read file" : "write";
            for (const std::string &work : {module, way + " limit", way + " tiff", way + " png"}) {
                file << ' ' << WIDTH * HEIGHT / 1e3 / time_of(times, picture, work);
            }
            file << '\n';
        }
        file << "\n\n";
    }
}

using Value = std::function<double(const std::string &picture, const std::string &work)>;

// A line for each picture, a column for each work.
void print_values(const char *title, const std::vector<const char *> &works, const Value &value)
{
    for (const char *picture : PICTURES) {
        if (isnan(value(picture, works[0]))) {
            continue;
        }
        if (title) {
            printf("\n%s\n%-8s", title, "");
            for (const char *work : works) {
                printf("%16s", work);
            }
            printf("\n");
            title = nullptr;
        }
        printf("%-8s", picture);
        for (const char *work : works) {
            printf("%16.2f", value(picture, work));
        }
        printf("\n");
    }
}

} // namespace

bool print_tables(const Times &times, const std::string &path)
{
    const bool all_met = print_ratios(times);
    print_values("the codec alone, and copying the planes, in Gpixel/s",
                 {"decode", "encode", "copy"},
                 [&](const std::string &picture, const std::string &work) {
                     return WIDTH * HEIGHT / 1e6 / time_of(times, picture, work);
                 });
    print_values("the time of the module before, as a multiple of the time now",
                 {"read file", "read reverse", "read scattered", "write"},
                 [&](const std::string &picture, const std::string &work) {
                     return time_of(times, picture, work + " before") /
                            time_of(times, picture, work);
                 });
    print_markdown(times);
    write_speeds(times, path);
    return all_met;
}
