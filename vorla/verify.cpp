// `vorla verify`: decodes every row of every kind of file.
#include "vorla/commands.h"
#include "vorla/progress.h"
#include "vorla/source.h"
#include "vorla/walk.h"

#include <filesystem>
#include <system_error>

namespace {

std::string kinds_of(const PictureShape &shape)
{
    std::string kinds = shape.colour ? ", colour" : "";
    kinds += shape.matte ? ", matte" : "";
    kinds += shape.depth ? ", depth" : "";
    return kinds.substr(2);
}

// Results go to standard output, what kept them from being found to standard error.
void print_defect(const std::string &name, ExitCode code, const std::string &defect)
{
    if (code == EXIT_IO) {
        complain(name, defect);
    } else {
        print_line(name + ": " + defect);
    }
}

void read_rows(Source *source)
{
    Progress progress(source->name, source->shape.height, "rows");
    for (int32_t row = 0; row < source->shape.height; ++row) {
        source->read_row(row);
        progress.show(row + 1);
    }
}

ExitCode verify_open(const Session &session, const std::string &file)
{
    Source source(session, file);
    for (const Dropped &dropped : source.dropped) {
        print_defect(source.name, dropped.code, dropped.reason);
    }
    if (source.dropped.empty()) {
        read_rows(&source);
        const int32_t height = source.shape.height;
        print_line(source.name + ": ok (" + std::to_string(height) +
                   (height == 1 ? " row; " : " rows; ") + kinds_of(source.shape) + ")");
    }
    return source.code_of_dropped();
}

ExitCode verify(const Session &session, const std::string &file)
{
    try {
        return verify_open(session, file);
    } catch (const Failure &failure) {
        check_interrupt();
        print_defect(failure.file, failure.code, failure.what());
        return failure.code;
    }
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
    Progress progress("", static_cast<int64_t>(pictures.size()), "files");
    int64_t done = 0;
    for (const std::string &picture : pictures) {
        code = worst(code, attempt([&] { return verify(session, picture); }));
        progress.show(++done);
    }
    return code;
}
