// The progress line: when it may show, and how it is drawn over itself.
#include "vorla/progress.h"

#include "vorla/report.h"

#include <stdio.h>
#include <unistd.h>

#include <chrono>

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto FIRST_AFTER = std::chrono::milliseconds(500);
constexpr auto THEN_EVERY = std::chrono::milliseconds(100);

struct Work {
    std::string file;
    int64_t total = 0;
    const char *unit = "";
    Clock::time_point next; // the line is not drawn before
    bool wanted = false;
    bool shown = false;
};

Work work;
bool quiet = false;

} // namespace

void start_progress(const std::string &file, int64_t total, const char *unit)
{
    end_progress();
    work.file = one_line(file);
    work.total = total;
    work.unit = unit;
    work.next = Clock::now() + FIRST_AFTER;
    work.wanted = !quiet && isatty(STDERR_FILENO) == 1;
}

void show_progress(int64_t done)
{
    if (!work.wanted) {
        return;
    }
    const Clock::time_point now = Clock::now();
    if (now < work.next) {
        return;
    }
    work.next = now + THEN_EVERY;
    work.shown = true;
    fprintf(stderr, "\rvorla: %s%s%lld of %lld %s\033[K", work.file.c_str(),
            work.file.empty() ? "" : ": ", static_cast<long long>(done),
            static_cast<long long>(work.total), work.unit);
}

void wipe_progress()
{
    if (work.shown) {
        fputs("\r\033[K", stderr);
        work.shown = false;
    }
}

void end_progress()
{
    wipe_progress();
    work.wanted = false;
}

void be_quiet()
{
    quiet = true;
    end_progress();
}
