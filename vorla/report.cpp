// Complaints, notes, results and progress, and the flag that an interrupt sets.
#include "vorla/report.h"

#include <signal.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <new>

namespace {

bool quiet = false;
int output_error = 0; // of the first line that could not be written
volatile sig_atomic_t signal_seen = 0;
const Progress *drawn = nullptr; // the outermost
bool progress_shows = false;

extern "C" void keep_signal(int number)
{
    signal_seen = signal_seen != 0 ? signal_seen : number;
    (void)alarm(1); // signals again in a second, to end a call that began after this signal
}

// A name can hold anything: the text as one line, without what would move a terminal's cursor.
std::string one_line(std::string text)
{
    const auto is_control = [](unsigned char c) { return c < 0x20 || c == 0x7F; };
    std::replace_if(text.begin(), text.end(), is_control, '?');
    return text;
}

std::string line_of(const std::string &file, const std::string &what)
{
    return one_line("vorla: " + file + (file.empty() ? "" : ": ") + what);
}

} // namespace

// --- Words ----------------------------------------------------------------------------------

void fail_system(const std::string &file, const std::string &what, int reason)
{
    throw Failure(EXIT_IO, file, what + ": " + strerror(reason));
}

ExitCode attempt(const std::function<ExitCode()> &work)
{
    try {
        return work();
    } catch (const Failure &failure) {
        check_interrupt(); // it may be the reason
        complain(failure.file, failure.what());
        return failure.code;
    } catch (const std::bad_alloc &) {
        complain("", strerror(ENOMEM));
    } catch (const std::exception &problem) {
        complain("", problem.what());
    }
    return EXIT_IO;
}

void complain(const std::string &file, const std::string &what)
{
    static std::string last;
    const std::string line = line_of(file, what);
    if (line != last) {
        last = line;
        pass_on("", line + "\n");
    }
}

void note(const std::string &file, const std::string &what)
{
    if (!quiet) {
        complain(file, what);
    }
}

void set_quiet(bool wanted)
{
    quiet = wanted;
}

void print_line(const std::string &line)
{
    pass_on(one_line(line) + "\n", "");
}

// Wipes the progress line, and leaves nothing in the stream: in one log, results and complaints
// stay in order, and a process that is forked gets none of them.
void pass_on(const std::string &results, const std::string &complaints)
{
    if (progress_shows && isatty(STDERR_FILENO) == 1) { // in a worker, it is a file
        (void)fputs("\r\033[K", stderr);
    }
    progress_shows = false;
    if ((fputs(results.c_str(), stdout) == EOF || fflush(stdout) != 0) && output_error == 0) {
        output_error = errno;
    }
    (void)fputs(complaints.c_str(), stderr);
}

ExitCode finish_output(ExitCode code)
{
    if (close(STDOUT_FILENO) != 0 && output_error == 0) { // some file systems tell late
        output_error = errno;
    }
    if (output_error == 0) {
        return code;
    }
    complain("standard output", std::string("cannot write: ") + strerror(output_error));
    return worst(code, EXIT_IO);
}

// --- Progress -------------------------------------------------------------------------------

Progress::Progress(const std::string &file, int64_t total, const std::string &unit)
    : before(line_of(file, "")), behind(text_of(" of ", total, " ", unit)),
      next(std::chrono::steady_clock::now() + std::chrono::milliseconds(500))
{
    if (!drawn && !quiet && total > 1 && isatty(STDERR_FILENO) == 1) {
        drawn = this;
    }
}

Progress::~Progress()
{
    if (drawn == this) {
        drawn = nullptr;
        pass_on("", ""); // wipes the line
    }
}

void Progress::show(int64_t done)
{
    if (drawn != this || std::chrono::steady_clock::now() < next) {
        return;
    }
    next = std::chrono::steady_clock::now() + std::chrono::milliseconds(100);
    progress_shows = true;
    winsize terminal = {};
    (void)ioctl(STDERR_FILENO, TIOCGWINSZ, &terminal);
    const std::string line = text_of(before, done, behind);
    fprintf(stderr, "\r%.*s\033[K", terminal.ws_col > 1 ? terminal.ws_col - 1 : 79, line.c_str());
}

// --- Interrupts -----------------------------------------------------------------------------

void catch_interrupts()
{
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGALRM}) {
        struct sigaction action = {};
        if (sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_DFL) {
            action.sa_handler = keep_signal;
            (void)sigaction(number, &action, nullptr);
        }
    }
}

void check_interrupt()
{
    if (signal_seen != 0) {
        throw Interrupted();
    }
}

ExitCode attempt_all(const std::function<ExitCode()> &work)
{
    try {
        return attempt(work);
    } catch (const Interrupted &) {
        (void)signal(signal_seen, SIG_DFL);
        (void)raise(signal_seen);
    }
    return EXIT_IO;
}
