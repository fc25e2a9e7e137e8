// The program: standard streams, interrupts, and which command runs.
#include "vorla/session.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

namespace {

// Opens /dev/null for each standard stream that is closed, so that no picture gets its number and
// is read or written as that stream. Reading from it, or writing to it, fails.
void occupy_standard_streams()
{
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(stream, F_GETFD) < 0 && errno == EBADF) {
            (void)open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        }
    }
}

} // namespace

int main(int argc, char **argv)
{
    occupy_standard_streams();
    (void)signal(SIGPIPE, SIG_IGN); // a write to a closed pipe fails like any other,
    (void)signal(SIGXFSZ, SIG_IGN); // and so does one past the limit of a file's size
    (void)signal(SIGCHLD, SIG_DFL); // processes are waited for
    catch_interrupts();
    return finish_output(attempt_all([=] {
        const std::optional<Options> options = parse_options(argc, argv);
        set_quiet(options && options->quiet);
        return options ? options->run(Session(*options)) : EXIT_FINE;
    }));
}
