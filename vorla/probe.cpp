// `vorla probe`: whether files are PIX, asked of the module. Of a picture that is stored as two
// fields, both are asked about.
#include "vorla/commands.h"
#include "vorla/spool.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

namespace {

// Asks about one file, standard input included.
ExitCode probe_file(const Session &session, const std::string &path, std::string *why)
{
    const bool standard = path == "/dev/stdin";
    if (standard && make_input_seekable(why) != EXIT_FINE) {
        return EXIT_IO;
    }
    FILE *stream = standard ? stdin : fopen(path.c_str(), "r");
    if (!stream) {
        *why = std::string("cannot open: ") + strerror(errno);
        return EXIT_IO;
    }
    clearerr(stream);
    errno = 0;
    const bool is_pix = session.module.is_file(path.c_str(), stream) == 1;
    const bool failed = !is_pix && ferror(stream) != 0;
    if (failed) {
        *why = std::string("cannot read: ") + strerror(errno);
    }
    if (!standard) {
        (void)fclose(stream);
    }
    return failed ? EXIT_IO : is_pix ? EXIT_FINE : EXIT_DAMAGED;
}

} // namespace

ExitCode run_probe(const Session &session, const Names &files)
{
    ExitCode code = EXIT_FINE;
    for (const std::string &file : files) {
        const bool standard = file == "-" || file == "/dev/stdin";
        const std::string shown = standard ? "standard input" : file;
        const std::string path = standard ? "/dev/stdin" : file;
        const bool is_there = access(path.c_str(), F_OK) == 0;
        ExitCode answer = EXIT_FINE;
        for (const std::string &part :
             is_there ? Names{path} : find_files(path, session.search).main) {
            std::string why;
            answer = worst(answer, probe_file(session, part, &why));
            if (!why.empty()) {
                complain(standard ? shown : part, why);
            }
        }
        if (answer != EXIT_IO) {
            print_line(shown + (answer == EXIT_FINE ? ": PIX" : ": not PIX"));
        }
        code = worst(code, answer);
    }
    return code;
}
