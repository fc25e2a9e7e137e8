// What the program says and how it ends: complaints, notes and progress on standard error, results
// on standard output, one line each, and exit codes, of which the highest wins. What goes wrong is
// thrown as a Failure, which ends one picture; an interrupt is thrown too, and ends everything.
#pragma once

#include <cerrno>
#include <chrono>
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

// Runs the work on one picture. Prints a Failure and returns its exit code; does not catch an
// interrupt.
[[nodiscard]] ExitCode attempt(const std::function<ExitCode()> &work);

// Says "vorla: FILE: WHAT" on standard error, unless that was the last thing said.
void complain(const std::string &file, const std::string &what);

// The same for what is no failure; not when quiet.
void note(const std::string &file, const std::string &what);

// Turns notes and progress off.
void set_quiet(bool wanted);

// Writes one line of results to standard output. A failure shows in finish_output.
void print_line(const std::string &line);

// Writes text that needs no prefix: help, or the output of another process of this program.
void pass_on(const std::string &results, const std::string &complaints);

// Closes standard output, on which everything must have arrived. Returns `code`, or EXIT_IO, after
// a complaint, if that is higher and something has been lost.
[[nodiscard]] ExitCode finish_output(ExitCode code);

// The progress of a piece of work of `total` steps, called `unit` ("rows", "files"), on `file`: a
// line on standard error, only on a terminal, only when the work has taken more than half a second
// and has several steps, never when quiet. Only the outermost Progress is shown; its destructor
// removes the line.
class Progress {
  public:
    Progress(const std::string &file, int64_t total, const std::string &unit);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    // So many steps are done.
    void show(int64_t done);

  private:
    std::string before; // what stands before and behind the number
    std::string behind;
    std::chrono::steady_clock::time_point next; // the line is not drawn before
};

// --- Interrupts -----------------------------------------------------------------------------

struct Interrupted {};

// From now on SIGINT, SIGTERM, SIGHUP and SIGALRM are kept until check_interrupt looks, unless they
// are ignored. They end calls that wait, with EINTR.
void catch_interrupts();

// Throws Interrupted when there has been one. Work calls this at every row.
void check_interrupt();

// Attempts all that a process has to do. An interrupt ends the process by its signal.
[[nodiscard]] ExitCode attempt_all(const std::function<ExitCode()> &work);
