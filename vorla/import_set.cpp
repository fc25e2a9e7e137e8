// Companions stand where names.h says. A picture without colour has none, whatever stands there.
#include "vorla/import_set.h"

#include "host/messages.h"
#include "vorla/names.h"

#include <unistd.h>

namespace {

constexpr const char *LABELS[] = {PIX_LABEL_MATTE.text, PIX_LABEL_DEPTH.text};

bool has_companion(const PictureShape &shape, const char *label)
{
    return shape.colour && (label == PIX_LABEL_MATTE.text ? shape.matte : shape.depth);
}

std::string directory_of(const std::string &path)
{
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

ExitCode check_name(const std::string &output, const PictureShape &shape)
{
    if (is_written_directly(output)) {
        complain(output, "cannot import: a picture is a set of files, which need names");
        return EXIT_USAGE;
    }
    if (field_names(output).is_field) {
        complain(output, "cannot import: it is a field's name, and fields are not written");
        return EXIT_USAGE;
    }
    for (const char *label : LABELS) {
        const std::string directory = directory_of(companion_path(output, label));
        if (shape.colour && is_same_file(directory, directory_of(output))) {
            complain(output, std::string("cannot import: a picture in the directory of the ") +
                                 label + " files would be its own companion");
            return EXIT_USAGE;
        }
    }
    return EXIT_FINE;
}

} // namespace

ExitCode check_set(const std::string &output, const PictureShape &shape, bool overwrite)
{
    ExitCode code = check_name(output, shape);
    if (code == EXIT_FINE) {
        code = check_free(output, overwrite);
    }
    const FieldNames fields = field_names(output);
    for (const std::string &field : {fields.even, fields.odd}) {
        if (code == EXIT_FINE && !overwrite && access(field.c_str(), F_OK) == 0) {
            complain(output, "cannot write: there is the field " + field +
                                 ", which the picture would hide; -f makes it all the same");
            code = EXIT_IO;
        }
    }
    for (const char *label : LABELS) {
        if (shape.colour && code == EXIT_FINE) {
            code = check_free(companion_path(output, label), overwrite);
        }
    }
    return code;
}

ExitCode add_set(PendingSet *set, const std::string &output, const PictureShape &shape)
{
    const PendingFile *main = add_pending(set, output);
    if (!main) {
        return EXIT_IO;
    }
    const std::string temporary = main->temporary;
    for (const char *label : LABELS) {
        if (!has_companion(shape, label)) {
            continue;
        }
        const std::string companion = companion_path(output, label);
        if (const ExitCode code = add_directory(set, directory_of(companion))) {
            return code;
        }
        if (!add_pending_as(set, companion, companion_path(temporary, label))) {
            return EXIT_IO;
        }
    }
    return EXIT_FINE;
}

std::vector<std::string> foreign_companions(const std::string &output, const PictureShape &shape)
{
    std::vector<std::string> foreign;
    for (const char *label : LABELS) {
        if (shape.colour && !has_companion(shape, label)) {
            foreign.push_back(companion_path(output, label));
        }
    }
    return foreign;
}
