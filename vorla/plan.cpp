// Names of outputs.
#include "vorla/plan.h"

#include "vorla/formats.h"

#include <filesystem>
#include <map>

namespace {

namespace fs = std::filesystem;

// The last part of the name of what is made of `input` in a directory.
std::string output_name(const Session &session, const std::string &input,
                        const std::string &extension)
{
    const std::string file = file_part(input);
    const bool importing = session.options.command == "import";
    const PictureFormat *format = importing ? format_of_name(file) : nullptr;
    const std::string base = importing ? file : field_names(file).base;
    const std::string end = format ? std::string(".") + format->name : ".pix";
    return (ends_in(base, end) ? base.substr(0, base.size() - end.size()) : base) + extension;
}

} // namespace

bool is_directory(const std::string &name)
{
    std::error_code error;
    return fs::is_directory(name, error);
}

std::string identity_of(const Session &session, const std::string &name)
{
    std::error_code error;
    const FileSet files = find_files(plain_name(name), session.options.search);
    return fs::weakly_canonical(files.paths[KIND_MAIN][0], error).string();
}

Names inputs_of(const std::vector<Job> &jobs)
{
    Names names;
    for (const Job &job : jobs) {
        names.push_back(job.input);
    }
    return names;
}

void check_directory(const Options &options)
{
    if (options.files.size() > 1 && !is_directory(options.output)) {
        throw Failure(EXIT_USAGE, options.output, "no such directory; ", options.command,
                      " takes one IN and one OUT, or several IN and a directory");
    }
}

std::vector<Job> plan_jobs(const Session &session, const std::string &extension)
{
    const Options &options = session.options;
    if (!is_directory(options.output)) {
        return {{options.files[0], options.output}};
    }
    std::vector<Job> jobs;
    std::map<std::string, Job> taken; // by the output
    for (const std::string &input : options.files) {
        if (input == "-") {
            throw Failure(EXIT_USAGE, "standard input", "cannot ", options.command,
                          " into a directory: it has no name");
        }
        const std::string output = options.output + (options.output.ends_with('/') ? "" : "/") +
                                   output_name(session, input, extension);
        const std::string identity = identity_of(session, input);
        const auto [other, is_new] = taken.emplace(output, Job{input, identity});
        if (is_new) {
            jobs.push_back({input, output});
        } else if (identity != other->second.output) {
            throw Failure(EXIT_USAGE, input, "cannot ", options.command, ": ", output,
                          " is made of ", other->second.input);
        }
    }
    return jobs;
}
