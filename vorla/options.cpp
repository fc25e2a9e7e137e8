// The commands and options of the command line, in tables, and the help.
#include "vorla/options.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <variant>

namespace {

struct Command {
    const char *name;
    const char *does;
    const char *example;
    const char *files; // what its names are called; "" when it takes none
};

constexpr Command COMMANDS[] = {
    {"info", "Say what pictures are, from their headers", "vorla info --json renders/shot.pix",
     "FILE..."},
    {"probe", "Say which files are PIX (exit status 0: all are)",
     "if vorla probe shot.pix >/dev/null; then echo PIX; fi", "FILE..."},
    {"verify", "Decode every row of pictures", "vorla verify -r /jobs/2031", "FILE..."},
    {"export", "Make PNG or OpenEXR files of pictures",
     "vorla export renders/shot.0001 shot.0001.png\n"
     "  vorla export --to exr renders/*.pix pictures/",
     "IN... OUT"},
    {"import", "Make PIX sets of PNG or OpenEXR files",
     "vorla import shot.exr renders/shot.pix\n"
     "  vorla import pictures/*.exr renders/",
     "IN... OUT"},
    {"module", "Say what the module says of itself", "vorla module", ""},
};

// An option of a command, or of all.
struct Option {
    const char *command; // "" for all
    const char *names;
    const char *does;
    std::variant<bool Options::*, std::string Options::*, int Options::*, double Options::*> value;
    const char *type = "";
    CLI::Validator check = {};
};

const CLI::Range WHOLE(1, 16383, "");
const CLI::Validator
    SOME_NAME([](const std::string &name) { return name.empty() ? "the name is empty" : ""; }, "");

const Option OPTIONS[] = {
    {"", "--module", "Load this module, not $VORLA_MODULE or VYNVorla.so", &Options::module,
     "PATH"},
    {"", "--channels", "Only rgb; matte: also the matte; all: also depth (default)",
     &Options::channels, "CHOICE", CLI::IsMember({"rgb", "matte", "all"})},
    {"", "--search", "Look for names in the directories of KV_IMG_DIR too", &Options::search},
    {"", "-q,--quiet", "No progress and no notes; verify: failures only", &Options::quiet},
    {"info", "--json", "One JSON object a line", &Options::json},
    {"verify", "-r,--recursive", "Verify the pictures in directories", &Options::recursive},
    {"verify", "-j,--jobs", "So many processes; else one a processor", &Options::processes, "N",
     WHOLE},
    {"export", "-j,--jobs", "So many processes; else one a processor", &Options::processes, "N",
     WHOLE},
    {"import", "-j,--jobs", "So many processes; else one a processor", &Options::processes, "N",
     WHOLE},
    {"export", "--to", "png or exr, if the name of OUT does not tell", &Options::to, "FORMAT",
     CLI::IsMember({"png", "exr"})},
    {"export", "--depth-picture", "Also make a 16-bit view of the depth", &Options::depth_picture,
     "FILE.png", SOME_NAME},
    {"export", "--depth", "EXR: Z as uint (default) or float", &Options::depth_samples, "TYPE",
     CLI::IsMember({"uint", "float"})},
    {"export", "--linear", "EXR: apply the sRGB curve", &Options::linear},
    {"export", "--size", "Fit into N x N pixels, as the mean of those covered", &Options::size, "N",
     WHOLE},
    {"export", "--level", "PNG: compression from 0, fast, to 9, small", &Options::level, "0-9",
     CLI::Range(0, 9)},
    {"export", "--partial", "Rows that cannot be read are black", &Options::partial},
    {"export", "--skip-existing", "Pass over outputs that are there", &Options::skips},
    {"export", "-f,--force", "Overwrite files", &Options::overwrite},
    {"import", "--linear", "EXR: undo the sRGB curve", &Options::linear},
    {"import", "--matte", "A grey picture is a matte: make a picture of the matte alone",
     &Options::matte_only},
    {"import", "--depth-scale", "EXR: multiply depths before they are rounded",
     &Options::depth_scale, "FACTOR", CLI::PositiveNumber},
    {"import", "--skip-existing", "Pass over outputs that are there", &Options::skips},
    {"import", "-f,--force", "Overwrite files", &Options::overwrite},
};

void add_options(CLI::App *app, Options *options, const std::string &command)
{
    for (const Option &row : OPTIONS) {
        const auto add = [&](auto member) {
            if constexpr (std::is_same_v<decltype(member), bool Options::*>) {
                app->add_flag(row.names, options->*member, row.does);
            } else {
                CLI::Option *option = app->add_option(row.names, options->*member, row.does);
                option->check(row.check)->type_name(row.type);
            }
        };
        if (command == row.command) {
            std::visit(add, row.value);
        }
    }
}

// Left alone, CLI11 puts the dots behind the last of the names.
struct UsageFormatter : CLI::Formatter {
    std::string make_option_usage(const CLI::Option *names) const override
    {
        return names->get_name();
    }
};

void set_up(CLI::App *app, Options *options)
{
    app->fallthrough();
    app->require_subcommand(1);
    app->set_version_flag("--version", "vorla " VORLA_VERSION, "Print the version and exit");
    app->formatter(std::make_shared<UsageFormatter>());
    app->get_formatter()->column_width(24);
    app->footer("Exit status: 0 all fine; 1 a file is not PIX or is damaged; 2 wrong usage;\n"
                "3 something could not be opened, read or written; 4 no module.\n"
                "Example:\n  vorla verify -r /jobs/2031");
    add_options(app, options, "");
    for (const Command &row : COMMANDS) {
        CLI::App *command = app->add_subcommand(row.name, row.does);
        command->footer(std::string("Example:\n  ") + row.example +
                        "\nOptions of all commands (--module, --channels, --search, --quiet): "
                        "vorla --help");
        if (row.files[0] != '\0') {
            command
                ->add_option(row.files, options->files,
                             "Pictures, - for standard input; the last OUT: a file, - for standard "
                             "output, or a directory")
                ->required()
                ->option_text("REQUIRED")
                ->expected(-1);
        }
        add_options(command, options, row.name);
    }
}

// What nobody knows what to do with is named first: the rest may follow from it.
ExitCode complain_of_usage(const CLI::App &app, const std::string &words)
{
    const std::vector<std::string> unknown = app.remaining(true);
    const auto commands = app.get_subcommands();
    complain("", text_of(unknown.empty() ? words : unknown.front() + ": no such command or option",
                         " (see vorla ", commands.empty() ? "" : commands.front()->get_name() + " ",
                         "--help)"));
    return EXIT_USAGE;
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
        const bool is_special = (argument.starts_with('[') && argument.ends_with(']')) ||
                                argument == "++" || argument.starts_with(NAME_MARK);
        if (only_names || argument != "--") {
            arguments.push_back(only_names || is_special ? NAME_MARK + argument : argument);
        }
        only_names = only_names || argument == "--";
    }
    std::reverse(arguments.begin(), arguments.end());
    if (!arguments.empty() && arguments.back() == "help") {
        arguments.pop_back();
        arguments.insert(arguments.begin(), "--help");
    }
    return arguments;
}

void unmark_name(std::string *name)
{
    name->erase(0, name->starts_with(NAME_MARK) ? 1 : 0);
}

// Says what is wrong with the names, or "", and makes the last one the output where there is one.
std::string settle_names(Options *options)
{
    Names &files = options->files;
    unmark_name(&options->module);
    unmark_name(&options->depth_picture);
    std::for_each(files.begin(), files.end(), [](std::string &name) { unmark_name(&name); });
    if (std::count(files.begin(), files.end(), "") > 0) {
        return "a name is empty";
    }
    std::replace(files.begin(), files.end(), std::string("/dev/stdin"), std::string("-"));
    if (options->command == "export" || options->command == "import") {
        if (files.size() < 2) {
            return "OUT is missing";
        }
        options->output = files.back() == "/dev/stdout" ? "-" : files.back();
        files.pop_back();
    }
    return "";
}

} // namespace

bool parse_options(int argc, char **argv, Options *options, ExitCode *code)
{
    CLI::App app("Looks at, checks and converts PIX pictures.", "vorla");
    set_up(&app, options);
    *code = EXIT_FINE;
    try {
        app.parse(mark_names(argc, argv));
        options->command = app.get_subcommands().front()->get_name();
        const std::string fault = settle_names(options);
        *code = fault.empty() ? EXIT_FINE : complain_of_usage(app, fault);
        return fault.empty();
    } catch (const CLI::CallForHelp &) {
        pass_on(app.help(), "");
    } catch (const CLI::CallForVersion &version) {
        print_line(version.what());
    } catch (const CLI::ParseError &error) {
        *code = complain_of_usage(app, argc == 1 ? "a command is missing" : error.what());
        if (argc == 1) {
            pass_on("", app.help());
        }
    }
    return false;
}
