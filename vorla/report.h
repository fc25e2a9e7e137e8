// What the program says and how it ends: complaints and notes on standard error, one line each,
// results on standard output, and exit codes, of which the highest wins. What goes wrong is thrown
// as a Failure, which ends one picture; an interrupt is thrown too, and ends everything.
#pragma once

#include <cerrno>
#include <functional>
#include <sstream>
#include <stdexcept>

enum ExitCode {
    EXIT_FINE = 0,
    EXIT_DAMAGED = 1, // a file is not PIX, is damaged or did not verify
    EXIT_USAGE = 2,
    EXIT_IO = 3,     // something could not be opened, read or written
    EXIT_MODULE = 4, // the module could not be loaded
};

// The higher of two exit codes.
[[nodiscard]] constexpr ExitCode worst(ExitCode a, ExitCode b)
{
    return a > b ? a : b;
}

// The parts, numbers too, as one text.
template <class... Parts>
[[nodiscard]] std::string text_of(const Parts &...parts)
{
    std::ostringstream text;
    (text << ... << parts);
    return text.str();
}

// What went wrong: the file, or "", and in words what could not be done and why.
struct Failure : std::runtime_error {
    ExitCode code;
    std::string file;

    template <class... Parts>
    Failure(ExitCode exit_code, std::string name, const Parts &...what)
        : std::runtime_error(text_of(what...)), code(exit_code), file(std::move(name))
    {
    }
};

// Throws a Failure, EXIT_IO, that ends with the system's reason.
[[noreturn]] void fail_system(const std::string &file, const std::string &what, int reason = errno);

// Runs the work on one picture. A failure is complained of and becomes the result; an interrupt is
// thrown further.
[[nodiscard]] ExitCode attempt(const std::function<ExitCode()> &work);

// Says "vorla: FILE: WHAT" on standard error, unless that was the last thing said.
void complain(const std::string &file, const std::string &what);

// The same for what is no failure; not after be_quiet.
void note(const std::string &file, const std::string &what);

// Turns notes and progress off for good.
void be_quiet();
[[nodiscard]] bool is_quiet();

// A name can hold anything: the text as one line, without what would move a terminal's cursor.
[[nodiscard]] std::string one_line(std::string text);

// Writes one line of results to standard output. A failure shows in finish_output.
void print_line(const std::string &line);

// Passes on what another process of this program has said.
void pass_on(const std::string &results, const std::string &complaints);

// Closes standard output, on which everything must have arrived. Returns `code`, or EXIT_IO, after
// a complaint, if that is higher and something has been lost.
[[nodiscard]] ExitCode finish_output(ExitCode code);

// --- Interrupts -----------------------------------------------------------------------------

struct Interrupted {};

// From now on SIGINT, SIGTERM and SIGHUP are kept until check_interrupt looks, unless they are
// ignored.
void catch_interrupts();

// Throws Interrupted when there has been one. Work calls this at every row.
void check_interrupt();

// The signal, or 0.
[[nodiscard]] int interrupt_signal();
