// Complaints, notes and results, and the flag that an interrupt sets.
#include "vorla/report.h"

#include "vorla/progress.h"

#include <signal.h>
#include <string.h>
#include <unistd.h>

#include <new>

namespace {

bool quiet = false;
int output_error = 0; // of the first line that could not be written
volatile sig_atomic_t signal_seen = 0;

void note_output_error()
{
    output_error = output_error == 0 ? errno : output_error;
}

extern "C" void keep_signal(int number)
{
    signal_seen = number;
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

std::string one_line(std::string text)
{
    for (char &c : text) {
        const auto byte = static_cast<unsigned char>(c);
        c = byte < 0x20 || byte == 0x7F ? '?' : c;
    }
    return text;
}

void complain(const std::string &file, const std::string &what)
{
    static std::string last;
    const std::string line = one_line("vorla: " + file + (file.empty() ? "" : ": ") + what);
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

void be_quiet()
{
    quiet = true;
}

bool is_quiet()
{
    return quiet;
}

void print_line(const std::string &line)
{
    pass_on(one_line(line) + "\n", "");
}

void pass_on(const std::string &results, const std::string &complaints)
{
    wipe_progress();
    if (fputs(results.c_str(), stdout) == EOF) {
        note_output_error();
    }
    if (!complaints.empty()) {
        if (fflush(stdout) != 0) { // in one log, results and complaints stay in order
            note_output_error();
        }
        (void)fputs(complaints.c_str(), stderr);
    }
}

ExitCode finish_output(ExitCode code)
{
    const bool failed = ferror(stdout) != 0;
    if (fflush(stdout) != 0 || close(STDOUT_FILENO) != 0) { // some file systems tell late
        note_output_error();
    } else if (failed && output_error == 0) {
        output_error = EIO;
    }
    if (output_error == 0) {
        return code;
    }
    complain("standard output", std::string("cannot write: ") + strerror(output_error));
    return worst(code, EXIT_IO);
}

// --- Interrupts -----------------------------------------------------------------------------

void catch_interrupts()
{
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
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

int interrupt_signal()
{
    return signal_seen;
}
