// `vorla info`, `probe` and `module`: what a picture's headers say, for people or, with --json, for
// programs; whether files are PIX; and what the loaded module says of itself.
#include "vorla/commands.h"
#include "vorla/source.h"

#include "host/messages.h"

#include <nlohmann/json.hpp>
#include <unistd.h>

#include <iomanip>

namespace {

// A line of a list, behind a label of at most 12 characters.
void print_entry(std::string label, const std::string &value)
{
    label.resize(12, ' ');
    print_line(label + value);
}

ExitCode try_all(const Session &session, ExitCode (*work)(const Session &, const std::string &))
{
    ExitCode code = EXIT_FINE;
    for (const std::string &file : session.options.files) {
        code = worst(code, attempt([&] { return work(session, file); }));
    }
    return code;
}

// --- info -----------------------------------------------------------------------------------

using Json = nlohmann::ordered_json;

// A file name need not be UTF-8: then its bytes are given too.
Json named_object(const std::string &file)
{
    Json object = {{"file", file}};
    try {
        (void)object.dump();
    } catch (const Json::exception &) {
        std::ostringstream bytes;
        for (const char c : file) {
            bytes << std::hex << std::setw(2) << std::setfill('0') << (c & 0xFF);
        }
        object["file_bytes"] = bytes.str();
    }
    return object;
}

Json facts_of(const Source &source)
{
    const PictureShape &shape = source.shape;
    const ImageInfo &info = *source.handle->info;
    Json facts = named_object(source.name);
    facts["width"] = shape.width;
    facts["height"] = shape.height;
    const bool holds[] = {shape.colour, shape.matte, shape.depth};
    Names channels;
    Names files;
    for (const FileKind kind : KINDS) {
        if (holds[kind]) {
            channels.emplace_back(KIND_NAMES[kind]);
        }
        if (source.is_open(kind)) {
            const Names &paths = source.files.paths[kind];
            files.insert(files.end(), paths.begin(), paths.end());
        }
    }
    facts["channels"] = channels;
    const char *const depth_kind = source.float_depth ? "float" : "integer";
    facts["depth_kind"] = shape.depth ? Json(depth_kind) : Json();
    facts["fields"] = source.files.fields;
    facts["files"] = source.opened == "/dev/stdin" ? Names{source.name} : files;
    facts["dropped"] = Json::array();
    for (const Dropped &one : source.dropped) {
        facts["dropped"].push_back({{"kind", KIND_NAMES[one.kind]}, {"reason", one.reason}});
    }
    const std::string format = info.format_label;
    facts["format"] = format == PIX_LABEL_FORMAT.text ? Json() : Json(format);
    facts["aspect"] = std::stod(text_of(std::setprecision(7), info.aspect));
    return facts;
}

void print_for_people(const Json &facts)
{
    print_line(text_of(facts["file"].get<std::string>(), ": ", facts["width"], " x ",
                       facts["height"], " pixels"));
    std::string channels;
    for (const std::string name : facts["channels"]) {
        channels += (channels.empty() ? "" : ", ") + name;
    }
    const Json &depth = facts["depth_kind"];
    channels += depth.is_null() ? "" : " (" + depth.get<std::string>() + ")";
    print_entry("  channels", channels);
    print_entry("  stored", facts["fields"].get<bool>() ? "as two fields" : "as one file");
    for (const Json &file : facts["files"]) {
        print_entry(&file == &facts["files"].front() ? "  files" : "", file);
    }
    for (const Json &dropped : facts["dropped"]) {
        print_entry("  dropped", dropped["reason"]);
    }
    print_entry("  format", facts["format"].is_null() ? "none" : facts["format"]);
    print_entry("  aspect", text_of(std::setprecision(7), facts["aspect"].get<double>()));
}

void print_for_programs(const Json &object)
{
    std::string line = object.dump(-1, ' ', false, Json::error_handler_t::replace);
    for (size_t at = 0; (at = line.find('\x7F', at)) != std::string::npos;) {
        line.replace(at, 1, "\\u007f"); // the library lets this one pass
    }
    print_line(line);
}

ExitCode inform(const Session &session, const std::string &file)
{
    const bool json = session.options.json;
    try {
        const Source source(session, file);
        if (!json && &file != &session.options.files.front()) {
            print_line("");
        }
        (json ? print_for_programs : print_for_people)(facts_of(source));
        for (const Dropped &dropped : source.dropped) {
            if (dropped.code == EXIT_IO) {
                complain(source.name, dropped.reason);
            }
        }
        return source.code_of_dropped();
    } catch (const Failure &failure) {
        if (json) {
            Json object = named_object(failure.file);
            object["error"] = failure.what();
            print_for_programs(object);
        }
        throw;
    }
}

// --- probe ----------------------------------------------------------------------------------

// Of a picture that is stored as two fields, both are asked about.
ExitCode probe(const Session &session, const std::string &file)
{
    const bool standard = file == "-" || file == "/dev/stdin";
    const std::string path = standard ? "/dev/stdin" : file;
    const bool is_there = access(path.c_str(), F_OK) == 0;
    bool good = true;
    for (const std::string &part :
         is_there ? Names{path} : find_files(path, session.options.search).paths[KIND_MAIN]) {
        good = is_pix(session, part) && good;
    }
    print_line((standard ? "standard input" : file) + (good ? ": PIX" : ": not PIX"));
    return good ? EXIT_FINE : EXIT_DAMAGED;
}

// --- module ---------------------------------------------------------------------------------

std::string describe(const CapabilityEntry &entry)
{
    std::string text = text_of(entry.code, " ", entry.label,
                               (entry.flags & 1) != 0 ? ", for reading:" : ", for writing:");
    for (const CapabilityChoice *row = entry.choices->rows; row->label_set != 0; ++row) {
        text += text_of(row == entry.choices->rows ? " " : ", ", row->value, " ", row->label);
    }
    return text;
}

} // namespace

ExitCode run_info(const Session &session)
{
    return try_all(session, inform);
}

ExitCode run_probe(const Session &session)
{
    return try_all(session, probe);
}

ExitCode run_module(const Session &session)
{
    print_entry("path", session.module_path);
    print_entry("name", standin_text(&session.module, "imageName"));
    print_entry("version", standin_text(&session.module, "version"));
    print_entry("extension", standin_text(&session.module, "imageExtension"));
    const CapabilityEntry *table = nullptr;
    int32_t counts[3];
    session.module.capability(&table, &counts[0], &counts[1], &counts[2]);
    for (const CapabilityEntry *entry = table; entry && entry->label_set != 0; ++entry) {
        print_entry("capability", describe(*entry));
    }
    return EXIT_FINE;
}
