// The progress line: when it may show, and how it is drawn over itself.
#include "vorla/progress.h"

#include "vorla/report.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>

namespace {

constexpr auto FIRST_AFTER = std::chrono::milliseconds(500);
constexpr auto THEN_EVERY = std::chrono::milliseconds(100);

const Progress *outermost = nullptr;
bool shown = false;

} // namespace

Progress::Progress(const std::string &name, int64_t steps, const char *called)
    : file(one_line(name)), total(steps), unit(called),
      wanted(!outermost && !is_quiet() && isatty(STDERR_FILENO) == 1),
      next(std::chrono::steady_clock::now() + FIRST_AFTER)
{
    outermost = outermost ? outermost : this;
}

Progress::~Progress()
{
    if (outermost == this) {
        outermost = nullptr;
        wipe_progress();
    }
}

void Progress::show(int64_t done)
{
    const auto now = std::chrono::steady_clock::now();
    if (!wanted || now < next) {
        return;
    }
    next = now + THEN_EVERY;
    shown = true;
    const std::string line = "vorla: " + file + (file.empty() ? "" : ": ") + std::to_string(done) +
                             " of " + std::to_string(total) + " " + unit;
    winsize terminal = {};
    const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &terminal) == 0 && terminal.ws_col > 1;
    const int most = known ? terminal.ws_col - 1 : 79;
    fprintf(stderr, "\r%.*s\033[K", most, line.c_str());
}

void wipe_progress()
{
    if (shown && isatty(STDERR_FILENO) == 1) {
        (void)fputs("\r\033[K", stderr);
    }
    shown = false;
}
