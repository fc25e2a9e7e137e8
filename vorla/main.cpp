// The command line: options, help, and which command runs. Exit codes are those of report.h.
#include "vorla/commands.h"

#include <CLI/CLI.hpp>

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>

namespace {

struct Options {
    std::string module;
    std::string channels;
    bool search = false;
    bool quiet = false;
    bool json = false;
    bool recursive = false;
    Names files; // of every command; of export the last is the output
    std::string depth_samples;
    ExportOptions exporting;
    ImportOptions importing;
};

constexpr const char *COMMON_OPTIONS =
    "\nOptions of all commands (--module, --channels, --search, --quiet): vorla --help";

CLI::App *add_command(CLI::App *app, const char *name, const char *does, const char *example)
{
    CLI::App *command = app->add_subcommand(name, does);
    command->footer(std::string("Example:\n  ") + example + COMMON_OPTIONS);
    return command;
}

void add_files(CLI::App *command, Options *options)
{
    command->add_option("FILE", options->files, "Pictures; - is standard input")
        ->required()
        ->type_name("");
}

void add_common_options(CLI::App *app, Options *options)
{
    app->add_option("--module", options->module,
                    "Load this module, not $VORLA_MODULE or VYNVorla.so")
        ->type_name("PATH");
    app->add_option("--channels", options->channels,
                    "Only rgb; matte: also the matte; all: also depth (default)")
        ->check(CLI::IsMember({"rgb", "matte", "all"}))
        ->type_name("CHOICE");
    app->add_flag("--search", options->search,
                  "Look for names in the directories of KV_IMG_DIR too");
    app->add_flag("-q,--quiet", options->quiet, "No progress line");
}

void add_looking_commands(CLI::App *app, Options *options)
{
    CLI::App *info = add_command(app, "info", "Say what pictures are, from their headers",
                                 "vorla info --json renders/shot.pix");
    add_files(info, options);
    info->add_flag("--json", options->json, "One JSON object a line");

    CLI::App *probe = add_command(app, "probe", "Say which files are PIX (exit status 0: all are)",
                                  "if vorla probe shot.pix >/dev/null; then echo PIX; fi");
    add_files(probe, options);

    CLI::App *verify =
        add_command(app, "verify", "Decode every row of pictures", "vorla verify -r /jobs/2031");
    add_files(verify, options);
    verify->add_flag("-r,--recursive", options->recursive, "Verify the pictures in directories");

    add_command(app, "module", "Say what the module says of itself", "vorla module");
}

// Left alone, CLI11 puts the dots behind the last of the names.
struct ExportFormatter : CLI::Formatter {
    std::string make_option_usage(const CLI::Option * /*names*/) const override
    {
        return "IN... OUT";
    }
};

void add_export(CLI::App *app, Options *options)
{
    ExportOptions *exporting = &options->exporting;
    CLI::App *command = add_command(app, "export", "Make PNG or OpenEXR files of pictures",
                                    "vorla export renders/shot.0001 shot.0001.png\n"
                                    "  vorla export --to exr renders/*.pix pictures/");
    command
        ->add_option("IN OUT", options->files,
                     "Pictures, then the file to make, of several the directory;\n"
                     "- is standard input or, for one PNG, standard output")
        ->required()
        ->option_text("REQUIRED")
        ->expected(-1);
    command->formatter(std::make_shared<ExportFormatter>());
    command->get_formatter()->column_width(24);
    command->add_option("--to", exporting->to, "png or exr, if the name of OUT does not tell")
        ->check(CLI::IsMember({"png", "exr"}))
        ->type_name("FORMAT");
    command
        ->add_option("--depth-picture", exporting->depth_picture,
                     "Also make a 16-bit view of the depth")
        ->check([](const std::string &name) { return name.empty() ? "the name is empty" : ""; })
        ->type_name("FILE.png");
    command->add_option("--depth", options->depth_samples, "EXR: Z as uint (default) or float")
        ->check(CLI::IsMember({"uint", "float"}))
        ->type_name("TYPE");
    command->add_flag("--linear", exporting->linear, "EXR: apply the sRGB curve");
    command->add_flag("-f,--force", exporting->overwrite, "Overwrite files");
}

void add_import(CLI::App *app, Options *options)
{
    ImportOptions *importing = &options->importing;
    CLI::App *command = add_command(app, "import", "Make a PIX set of a PNG or OpenEXR file",
                                    "vorla import shot.exr renders/shot.pix");
    command->add_option("IN", importing->input, "A PNG or OpenEXR file")->required()->type_name("");
    command->add_option("OUT", importing->output, "The picture to make, such as shot.pix")
        ->required()
        ->type_name("");
    command->add_flag("--linear", importing->linear, "EXR: undo the sRGB curve");
    command->add_flag("--matte", importing->matte_only,
                      "A grey PNG is a matte: make a picture of the matte alone");
    command->add_flag("-f,--force", importing->overwrite, "Overwrite files");
}

void set_up(CLI::App *app, Options *options)
{
    app->fallthrough();
    app->require_subcommand(1);
    app->set_version_flag("--version", "vorla " VORLA_VERSION, "Print the version and exit");
    app->get_formatter()->column_width(24);
    app->footer("Exit status: 0 all fine; 1 a file is not PIX or is damaged; 2 wrong usage;\n"
                "3 something could not be opened, read or written; 4 no module.\n"
                "Example:\n  vorla verify -r /jobs/2031");
    add_common_options(app, options);
    add_looking_commands(app, options);
    add_export(app, options);
    add_import(app, options);
}

ExitCode dispatch(const std::string &command, const Session &session, Options *options)
{
    if (command == "info") {
        return run_info(session, options->files, options->json);
    }
    if (command == "probe") {
        return run_probe(session, options->files);
    }
    if (command == "verify") {
        return run_verify(session, options->files, options->recursive);
    }
    if (command == "module") {
        return run_module(session);
    }
    if (command == "import") {
        options->importing.output = plain_name(options->importing.output);
        return run_import(session, options->importing);
    }
    options->exporting.depth_float = options->depth_samples == "float";
    options->exporting.output =
        options->files.back() == "/dev/stdout" ? "-" : options->files.back();
    options->files.pop_back();
    options->exporting.inputs = options->files;
    return run_export(session, options->exporting);
}

ExitCode run(const std::string &command, Options *options)
{
    if (options->quiet) {
        be_quiet();
    }
    Session session(options->module);
    session.search = options->search;
    if (!options->channels.empty()) {
        session.channels = options->channels == "rgb"     ? PIX_CHANNELS_RGB
                           : options->channels == "matte" ? PIX_CHANNELS_RGB_MATTE
                                                          : PIX_CHANNELS_RGB_MATTE_Z;
    }
    return dispatch(command, session, options);
}

// What nobody knows what to do with is named first: the rest may follow from it.
void complain_of_usage(const CLI::App &app, const std::string &words)
{
    std::string what = words;
    const std::vector<std::string> unknown = app.remaining(true);
    if (!unknown.empty()) {
        what = unknown.front() + ": no such command or option";
    }
    const auto commands = app.get_subcommands();
    const std::string command = commands.empty() ? "" : commands.front()->get_name() + " ";
    complain("", what + " (see vorla " + command + "--help)");
}

// CLI11 takes "[a,b]" for a list and "++" for the end of a command, and ends one at a "--" behind
// its first name. So names like these and all behind a "--" get a byte before them while they are
// parsed, and so do names that begin with that byte.
constexpr char NAME_MARK = '\x1F';

// The arguments, the last one first.
std::vector<std::string> mark_names(int argc, char **argv)
{
    std::vector<std::string> arguments;
    bool only_names = false;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--" && !only_names) {
            only_names = true;
            continue;
        }
        const bool is_special = (argument.starts_with('[') && argument.ends_with(']')) ||
                                argument == "++" || argument.starts_with(NAME_MARK);
        arguments.push_back(only_names || is_special ? NAME_MARK + argument : argument);
    }
    std::reverse(arguments.begin(), arguments.end());
    return arguments;
}

void unmark_name(std::string *name)
{
    if (name->starts_with(NAME_MARK)) {
        name->erase(0, 1);
    }
}

void unmark_names(Options *options)
{
    for (std::string &name : options->files) {
        unmark_name(&name);
    }
    for (std::string *name : {&options->importing.input, &options->importing.output,
                              &options->exporting.depth_picture, &options->module}) {
        unmark_name(name);
    }
}

ExitCode parse_and_run(int argc, char **argv)
{
    Options options;
    CLI::App app("Looks at, checks and converts PIX pictures.", "vorla");
    set_up(&app, &options);
    try {
        app.parse(mark_names(argc, argv));
    } catch (const CLI::CallForHelp &) {
        std::istringstream help(app.help());
        for (std::string line; std::getline(help, line);) {
            print_line(line);
        }
        return EXIT_FINE;
    } catch (const CLI::CallForVersion &version) {
        print_line(version.what());
        return EXIT_FINE;
    } catch (const CLI::ParseError &error) {
        complain_of_usage(app, error.what());
        return EXIT_USAGE;
    }
    unmark_names(&options);
    options.importing.input =
        options.importing.input == "/dev/stdin" ? "-" : options.importing.input;
    const std::string command = app.get_subcommands().front()->get_name();
    const bool importing = command == "import";
    const bool nameless =
        std::count(options.files.begin(), options.files.end(), "") > 0 ||
        (importing && (options.importing.input.empty() || options.importing.output.empty()));
    if (nameless) {
        complain_of_usage(app, "a name is empty");
        return EXIT_USAGE;
    }
    if (command == "export" && options.files.size() < 2) {
        complain_of_usage(app, "OUT is missing");
        return EXIT_USAGE;
    }
    return run(command, &options);
}

// Takes the numbers of standard streams that are closed, so that no picture gets one and is read or
// written in its place. What is tried on them fails.
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
    catch_interrupts();
    ExitCode code = EXIT_IO;
    try {
        code = attempt([=] { return parse_and_run(argc, argv); });
    } catch (const Interrupted &) {
        (void)signal(interrupt_signal(), SIG_DFL);
        (void)raise(interrupt_signal());
    }
    return finish_output(code);
}
