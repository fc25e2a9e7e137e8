// `vorla probe`: whether files are PIX, asked of the module. Of a picture that is stored as two
// fields, both are asked about.
#include "vorla/commands.h"
#include "vorla/files.h"

#include <unistd.h>

namespace {

// Asks about one file, standard input included.
bool is_pix(const Session &session, const std::string &path, const std::string &shown)
{
    const bool standard = path == "/dev/stdin";
    refuse_pipe(path);
    if (standard) {
        make_input_seekable();
    }
    FILE *stream = standard ? stdin : fopen(path.c_str(), "re");
    if (!stream) {
        fail_system(shown, "cannot open");
    }
    clearerr(stream);
    errno = 0;
    const bool answer = session.module.is_file(path.c_str(), stream) == 1;
    const int reason = !answer && ferror(stream) != 0 ? errno : 0;
    if (!standard) {
        (void)fclose(stream);
    }
    if (reason != 0) {
        fail_system(shown, "cannot read", reason);
    }
    return answer;
}

ExitCode probe(const Session &session, const std::string &file)
{
    const bool standard = file == "-" || file == "/dev/stdin";
    const std::string shown = standard ? "standard input" : file;
    const std::string path = standard ? "/dev/stdin" : file;
    const bool is_there = access(path.c_str(), F_OK) == 0;
    bool good = true;
    for (const std::string &part :
         is_there ? Names{path} : find_files(path, session.options.search).paths[KIND_MAIN]) {
        good = is_pix(session, part, standard ? shown : part) && good;
    }
    print_line(shown + (good ? ": PIX" : ": not PIX"));
    return good ? EXIT_FINE : EXIT_DAMAGED;
}

} // namespace

ExitCode run_probe(const Session &session)
{
    ExitCode code = EXIT_FINE;
    for (const std::string &file : session.options.files) {
        code = worst(code, attempt([&] { return probe(session, file); }));
    }
    return code;
}
