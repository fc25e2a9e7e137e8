// What the program says and how it ends: complaints on standard error, one line each, and exit
// codes, of which the highest wins.
#pragma once

#include <string>
#include <vector>

enum ExitCode {
    EXIT_FINE = 0,
    EXIT_DAMAGED = 1, // a file is not PIX, is damaged or did not verify
    EXIT_USAGE = 2,
    EXIT_IO = 3,     // something could not be opened, read or written
    EXIT_MODULE = 4, // the module could not be loaded
};

// Says "vorla: FILE: WHAT" on standard error, unless that was the last thing said. Clears a
// progress line that stands there first.
void complain(const std::string &file, const std::string &what);

// From now on the module's messages are about `file`. They are complained of as they come, or,
// while `kept` is not null, added to it instead.
void set_subject(const std::string &file, std::vector<std::string> *kept = nullptr);

// True when the module has issued message `number` since set_subject was last called; number 0
// stands for its report of a system error.
[[nodiscard]] bool module_said(int number);

// The number of a message: message_number(PIX_MSG_...), with a name of host/messages.h.
constexpr int message_number(int number, int /*severity*/, const char * /*words*/)
{
    return number;
}

// The higher of two exit codes.
[[nodiscard]] constexpr ExitCode worst(ExitCode a, ExitCode b)
{
    return a > b ? a : b;
}

// A name can hold anything: the text as one line, without what would move a terminal's cursor.
[[nodiscard]] std::string one_line(std::string text);

// Writes one line of results to standard output. A failure shows in finish_output.
void print_line(const std::string &line);

// Closes standard output, on which everything must have arrived. Returns `code`, or EXIT_IO, after
// a complaint, if that is higher and something has been lost.
[[nodiscard]] ExitCode finish_output(ExitCode code);
