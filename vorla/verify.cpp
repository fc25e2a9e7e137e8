// `vorla verify`: decodes every row of every kind of file.
#include "vorla/commands.h"
#include "vorla/progress.h"
#include "vorla/walk.h"

#include <filesystem>
#include <system_error>

namespace {

std::string kinds_of(const Source &source)
{
    std::string kinds = source.colour ? ", colour" : "";
    kinds += source.matte ? ", matte" : "";
    kinds += source.depth ? ", depth" : "";
    return kinds.substr(2);
}

// Finds the first row of an open picture that cannot be read.
ExitCode find_defect(Source *source, bool shows_rows, std::string *defect)
{
    if (shows_rows) {
        start_progress(source->name, source->height, "rows");
    }
    ExitCode code = EXIT_FINE;
    for (int32_t row = 0; code == EXIT_FINE && row < source->height; ++row) {
        code = try_read_row(source, row, defect);
        if (shows_rows) {
            show_progress(row + 1);
        }
    }
    if (shows_rows) {
        end_progress();
    }
    return code;
}

void print_defect(const Source &source, ExitCode code, const std::string &defect)
{
    if (code == EXIT_IO) {
        complain(source.name, defect);
    } else {
        print_line(source.name + ": " + defect);
    }
}

ExitCode verify(const Session &session, const std::string &file, bool shows_rows)
{
    Source source;
    std::string defect;
    ExitCode code = try_open_source(session, file, &source, &defect);
    for (const Dropped &dropped : source.dropped) {
        print_defect(source, dropped.code, dropped.reason);
    }
    if (code == EXIT_FINE && source.dropped.empty()) {
        code = find_defect(&source, shows_rows, &defect);
        if (code == EXIT_FINE) {
            print_line(source.name + ": ok (" + std::to_string(source.height) +
                       (source.height == 1 ? " row; " : " rows; ") + kinds_of(source) + ")");
        }
    }
    if (!defect.empty()) {
        print_defect(source, code, defect);
    }
    return worst(worst(code, code_of_dropped(source)), close_source(&source));
}

// Replaces directories by the pictures in them.
ExitCode gather(const Session &session, const Names &files, bool recursive, Names *pictures)
{
    ExitCode code = EXIT_FINE;
    for (const std::string &file : files) {
        std::error_code error;
        if (!std::filesystem::is_directory(file, error)) {
            pictures->push_back(file);
        } else if (recursive) {
            const size_t before = pictures->size();
            code = worst(code, find_pictures(session, file, pictures));
            if (pictures->size() == before) {
                complain(file, "no PIX files here");
            }
        } else {
            complain(file, "is a directory (-r verifies the pictures in it)");
            code = EXIT_IO;
        }
    }
    return code;
}

} // namespace

ExitCode run_verify(const Session &session, const Names &files, bool recursive)
{
    Names pictures;
    ExitCode code = gather(session, files, recursive, &pictures);
    const bool many = pictures.size() > 1;
    if (many) {
        start_progress("", static_cast<int64_t>(pictures.size()), "files");
    }
    int64_t done = 0;
    for (const std::string &picture : pictures) {
        code = worst(code, verify(session, picture, !many));
        if (many) {
            show_progress(++done);
        }
    }
    end_progress();
    return code;
}
