// Complaints and results, and what becomes of the module's messages.
#include "vorla/report.h"

#include "standin/standin.h"
#include "vorla/progress.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

namespace {

std::string subject;
std::vector<std::string> *kept_messages = nullptr;
std::vector<int> issued; // numbers of messages since the subject was set
int output_error = 0;    // of the first line that could not be written

void note_output_error()
{
    output_error = output_error == 0 ? errno : output_error;
}

void take_message(const StandinMessage &message, void * /*context*/)
{
    issued.push_back(message.set == 0 ? 0 : message.number);
    if (kept_messages) {
        kept_messages->emplace_back(message.text);
    } else {
        complain(subject, message.text);
    }
}

} // namespace

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
    if (line == last) {
        return;
    }
    last = line;
    wipe_progress();
    if (fflush(stdout) != 0) { // in one log, results and complaints stay in order
        note_output_error();
    }
    fprintf(stderr, "%s\n", line.c_str());
}

void set_subject(const std::string &file, std::vector<std::string> *kept)
{
    subject = file;
    kept_messages = kept;
    issued.clear();
    standin_set_sink(take_message, nullptr);
}

bool module_said(int number)
{
    return std::find(issued.begin(), issued.end(), number) != issued.end();
}

void print_line(const std::string &line)
{
    wipe_progress();
    if (fputs(one_line(line).c_str(), stdout) == EOF || putchar('\n') == EOF) {
        note_output_error();
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
