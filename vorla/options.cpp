// The commands and options of the command line, and the help.
#include "vorla/options.h"

#include "vorla/commands.h"

#include <CLI/CLI.hpp>

#include <algorithm>

namespace {

const CLI::Validator
    NOT_EMPTY([](const std::string &name) { return name.empty() ? "the name is empty" : ""; }, "");
const CLI::Validator ABOVE_ZERO(
    [](const std::string &factor) {
        const double value = std::strtod(factor.c_str(), nullptr);
        return value > 0 && std::isfinite(value) ? "" : factor + " is not a number above 0";
    },
    "");

// Adds an option, "-j,--jobs N", to some commands ("verify export"), or to all (""). It takes what
// the check allows, or one of the words if there are some ("png|exr"); without either it is a flag.
template <class Value>
void add(CLI::App *program, const std::string &commands, const std::string &option, Value *value,
         const char *does, const CLI::Validator &check = {})
{
    const Names parts = CLI::detail::split(option, ' ');
    const std::string taken = parts.size() > 1 ? parts[1] : "";
    const CLI::Validator words = CLI::IsMember(CLI::detail::split(taken, '|'));
    const CLI::Validator allowed = taken.find('|') == std::string::npos ? check : words;
    for (const std::string &command : CLI::detail::split(commands, ' ')) {
        CLI::App *app = command.empty() ? program : program->get_subcommand(command);
        CLI::Option *added = taken.empty() ? app->add_flag(parts[0], *value, does)
                                           : app->add_option(parts[0], *value, does);
        added->check(allowed.description(""))->type_name(taken);
    }
}

void add_options(CLI::App *app, Options *o)
{
    const CLI::Range whole(1, 16383);
    add(app, "", "--module PATH", &o->module, "Load this module instead of VYNVorla.so");
    app->get_option("--module")->envname("VORLA_MODULE");
    add(app, "", "--channels rgb|matte|all", &o->channels,
        "Only rgb; matte: also the matte; all: also depth (default)");
    add(app, "", "--search", &o->search, "Look for names in the directories of KV_IMG_DIR too");
    add(app, "", "-q,--quiet", &o->quiet, "No progress and no notes; verify: failures only");
    add(app, "info", "--json", &o->json, "One JSON object a line");
    add(app, "verify", "-r,--recursive", &o->recursive, "Verify the pictures in directories");
    add(app, "verify export import", "-j,--jobs N", &o->processes,
        "Work on N pictures at a time (default: one a processor)", whole);
    add(app, "export", "--to png|exr", &o->to, "What to make, if the name of OUT does not tell");
    add(app, "export", "--depth-picture FILE.png", &o->depth_picture,
        "Also make a 16-bit view of the depth", NOT_EMPTY);
    add(app, "export", "--depth uint|float", &o->depth_samples,
        "EXR: Z as uint (default) or float");
    add(app, "export", "--linear", &o->linear, "EXR: convert the colour from sRGB to linear light");
    add(app, "export", "--size N", &o->size, "Shrink to N x N pixels at most, by mean values",
        whole);
    add(app, "export", "--level 0-9", &o->level, "PNG: compression from 0, fast, to 9, small",
        CLI::Range(0, 9));
    add(app, "export", "--partial", &o->partial,
        "Export a damaged picture: rows that cannot be read are black");
    add(app, "import", "--linear", &o->linear, "EXR: convert the colour from linear light to sRGB");
    add(app, "import", "--matte", &o->matte_only,
        "A grey picture is a matte: make a picture of the matte alone");
    add(app, "import", "--depth-scale FACTOR", &o->depth_scale,
        "EXR: multiply depths before they are rounded", ABOVE_ZERO);
    add(app, "export import", "--skip-existing", &o->skips, "Skip inputs whose outputs exist");
    add(app, "export import", "-f,--force", &o->overwrite, "Overwrite existing files");
}

// Adds a command. `files` are what its names are called; "" when it takes none.
void add_command(CLI::App *program, Options *options, const char *name,
                 ExitCode (*run)(const Session &), const std::string &files, const char *does,
                 const std::string &example)
{
    CLI::App *command = program->add_subcommand(name, does);
    command->footer("Example:\n  " + example +
                    "\nOptions of all commands (--module, --channels, --search, --quiet): "
                    "vorla --help");
    const std::string names_are =
        files.ends_with("OUT") ? "Inputs, - for standard input; then the file or directory to make"
                               : "Pictures, - for standard input";
    CLI::Option *names = files.empty() ? nullptr : command->add_option(files, names_are);
    if (names) {
        // A bound, which nobody reaches: without one CLI11 takes "[a,b]" for two names.
        names->required()->take_all()->type_size(1 << 24)->check(NOT_EMPTY);
    }
    command->callback([=] {
        options->command = name;
        options->run = run;
        Names &given = options->files;
        given = names ? names->results() : Names();
        std::replace(given.begin(), given.end(), std::string("/dev/stdin"), std::string("-"));
        if (files.ends_with("OUT")) {
            if (given.size() < 2) {
                throw CLI::ValidationError("OUT is missing");
            }
            options->output = given.back() == "/dev/stdout" ? "-" : given.back();
            given.pop_back();
        }
    });
}

void add_commands(CLI::App *app, Options *o)
{
    add_command(app, o, "info", run_info, "FILE...", "Say what pictures are, from their headers",
                "vorla info --json renders/shot.pix");
    add_command(app, o, "probe", run_probe, "FILE...",
                "Say which files are PIX (exit status 0: all are)",
                "if vorla probe shot.pix >/dev/null; then echo PIX; fi");
    add_command(app, o, "verify", run_verify, "FILE...", "Decode every row of pictures",
                "vorla verify -r /jobs/2031");
    add_command(app, o, "export", run_export, "IN... OUT", "Make PNG or OpenEXR files of pictures",
                "vorla export renders/shot.0001 shot.0001.png\n"
                "  vorla export --to exr renders/*.pix pictures/");
    add_command(app, o, "import", run_import, "IN... OUT", "Make PIX sets of PNG or OpenEXR files",
                "vorla import shot.exr renders/shot.pix\n"
                "  vorla import pictures/*.exr renders/");
    add_command(app, o, "module", run_module, "", "Say what the module says of itself",
                "vorla module");
}

} // namespace

std::optional<Options> parse_options(int argc, char **argv)
{
    Options options;
    CLI::App app("Looks at, checks and converts PIX pictures.", "vorla");
    app.fallthrough()->require_subcommand(1);
    app.set_version_flag("--version", "vorla " VORLA_VERSION, "Print the version and exit");
    app.get_formatter()->column_width(24);
    app.footer("Exit status: 0 all fine; 1 a file is not PIX or is damaged; 2 wrong usage;\n"
               "3 something could not be opened, read or written; 4 no module.\n"
               "Example:\n  vorla verify -r /jobs/2031");
    add_commands(&app, &options);
    add_options(&app, &options);
    Names arguments(argv + 1, argv + argc);
    std::replace(arguments.begin(), std::find(arguments.begin(), arguments.end(), "--"),
                 std::string("++"), std::string("./++")); // CLI11 would drop it
    if (argc > 1 && arguments.front() == "help") {
        arguments.front() = "--help";
    }
    try {
        app.parse(Names(arguments.rbegin(), arguments.rend())); // the last one first
    } catch (const CLI::Success &help_or_version) {
        std::ostringstream text;
        (void)app.exit(help_or_version, text, text);
        pass_on(text.str(), "");
        return std::nullopt;
    } catch (const CLI::ParseError &error) {
        const Names unknown = app.remaining(true);
        const auto commands = app.get_subcommands();
        // Unknown arguments are reported first: the rest may follow from them.
        std::string what = argc == 1 ? "a command is missing" : error.what();
        if (!unknown.empty() && unknown.front() != "--") {
            what = unknown.front() + ": no such command or option";
        }
        pass_on("", argc == 1 ? app.help() : "");
        throw Failure(EXIT_USAGE, "", what, " (see vorla ",
                      commands.empty() ? "" : commands.front()->get_name() + " ", "--help)");
    }
    return options;
}
