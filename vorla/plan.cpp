// Names of outputs.
#include "vorla/plan.h"

#include "vorla/batch.h"
#include "vorla/files.h"
#include "vorla/formats.h"
#include "vorla/names.h"

#include <filesystem>
#include <map>

namespace {

namespace fs = std::filesystem;

std::string true_path(const std::string &name)
{
    std::error_code error;
    const fs::path path = fs::weakly_canonical(fs::absolute(name, error), error);
    return is_standard_output(name) ? "-" : error ? name : path.string();
}

// Returns the extension by which a name would be taken for an input of the command.
std::string end_of_input(const Options &options, const std::string &name)
{
    const PictureFormat *format = options.command == "import" ? format_of_name(name) : nullptr;
    return format ? std::string(".") + format->name : ".pix";
}

// What is made of `input` in a directory.
std::string output_name(const Options &options, const std::string &input,
                        const std::string &extension)
{
    const std::string file = file_part(input);
    const std::string base = options.command == "import" ? file : field_names(file).base;
    const std::string end = end_of_input(options, base);
    const size_t size = base.size() - (ends_in(base, end) ? end.size() : 0);
    return fs::path(options.output) / (base.substr(0, size) + "." + extension);
}

// The output of each input, "" for a picture that is named before.
Names plan_outputs(const Session &session, const std::string &extension)
{
    const Options &options = session.options;
    if (!is_directory(options.output)) {
        return {options.output};
    }
    Names outputs;
    std::map<std::string, std::string> inputs; // by the output
    for (const std::string &input : options.files) {
        refuse_if(input == "-", "standard input", "cannot ", options.command,
                  " into a directory: it has no name");
        const std::string output = output_name(options, input, extension);
        const auto [other, is_new] = inputs.emplace(output, input);
        refuse_if(!is_new && identity_of(session, input) != identity_of(session, other->second),
                  input, "cannot ", options.command, ": ", output, " is already made of ",
                  other->second);
        outputs.push_back(is_new ? output : "");
    }
    return outputs;
}

} // namespace

bool is_directory(const std::string &name)
{
    std::error_code error;
    return fs::is_directory(name, error);
}

std::string identity_of(const Session &session, const std::string &name)
{
    return true_path(find_files(plain_name(name), session.options.search).paths[KIND_MAIN][0]);
}

void check_output(const Options &options)
{
    const std::string &output = options.output;
    if (is_directory(output)) {
        return;
    }
    refuse_if(options.files.size() > 1, output, "no such directory; ", options.command,
              " takes one IN and one OUT, or several IN and a directory");
    const bool importing = options.command == "import";
    const std::string end = end_of_input(options, output);
    refuse_if(ends_in(output, end) && end != (importing ? ".pix" : ""), output, "cannot ",
              options.command, ": the name ends in ", end, ", and what is made is ",
              importing ? "PIX" : "PNG or OpenEXR");
    // A PIX file needs no extension.
    const bool is_file = importing || output == "-" || may_exist(output) ||
                         file_part(output).find('.') != std::string::npos;
    refuse_if(output.ends_with('/') || !is_file, output, "no such directory");
}

ExitCode run_work(const Session &session, const std::string &extension, Work *work)
{
    const Options &options = session.options;
    const std::string &view = options.depth_picture;
    const Names outputs = plan_outputs(session, extension);
    refuse_if(!view.empty() && true_path(outputs[0]) == true_path(view), view,
              "cannot be both the picture and the view of its depth");
    return run_batch(session, options.output, options.files, [&](size_t at) {
        const std::string &output = outputs[at];
        // may_exist is true for "", so without a view only the output counts.
        const bool is_there = output != "-" && may_exist(output) && may_exist(view);
        const bool passes = output.empty() || (options.skips && is_there);
        return passes ? EXIT_FINE : work(session, options.files[at], output);
    });
}
