// `vorla info`: what the headers of a picture's files say, for people or, with --json, for
// programs.
#include "vorla/commands.h"
#include "vorla/source.h"

#include "format/header.h"
#include "host/messages.h"

#include <nlohmann/json.hpp>

#include <cstdlib>

namespace {

struct Facts {
    Names channels;
    std::string depth_kind; // "" without depth
    Names files;
    std::string format; // "" for none
    std::string aspect;
};

Facts facts_of(const Source &source)
{
    Facts facts;
    const bool is_open[] = {source.shape.colour, source.shape.matte, source.shape.depth};
    const char *const names[] = {"colour", "matte", "depth"};
    for (const FileKind kind : {KIND_MAIN, KIND_MATTE, KIND_DEPTH}) {
        if (is_open[kind]) {
            facts.channels.emplace_back(names[kind]);
        }
        const bool is_main = kind == KIND_MAIN;
        if (is_main || (is_open[kind] && source.shape.colour)) {
            const Names &paths = source.files.paths[kind];
            facts.files.insert(facts.files.end(), paths.begin(), paths.end());
        }
    }
    if (source.opened == "/dev/stdin") {
        facts.files = {source.name};
    }
    if (source.shape.depth) {
        const bool is_float = read_header(source.files, KIND_DEPTH).tag == PIX_MAGIC_DEPTH_FLOAT;
        facts.depth_kind = is_float ? "float" : "integer";
    }
    const ImageInfo &info = *source.handle->info;
    facts.format = info.format_label;
    if (facts.format == PIX_LABEL_FORMAT.text) {
        facts.format.clear();
    }
    char aspect[32];
    (void)snprintf(aspect, sizeof aspect, "%.7g", static_cast<double>(info.aspect));
    facts.aspect = aspect;
    return facts;
}

// --- For people -----------------------------------------------------------------------------

void print_fact(const char *label, const std::string &value)
{
    char start[32];
    (void)snprintf(start, sizeof start, "  %-10s", label);
    print_line(start + value);
}

void print_facts(const Source &source, const Facts &facts, bool first)
{
    if (!first) {
        print_line("");
    }
    print_line(source.name + ": " + std::to_string(source.shape.width) + " x " +
               std::to_string(source.shape.height) + " pixels");
    std::string channels;
    for (const std::string &channel : facts.channels) {
        channels += (channels.empty() ? "" : ", ") + channel;
    }
    if (source.shape.depth) {
        channels += " (" + facts.depth_kind + ")";
    }
    print_fact("channels", channels);
    print_fact("stored", source.files.fields ? "as two fields" : "as one file");
    for (size_t i = 0; i < facts.files.size(); ++i) {
        print_fact(i == 0 ? "files" : "", facts.files[i]);
    }
    for (const Dropped &dropped : source.dropped) {
        print_fact("dropped", dropped.reason);
    }
    print_fact("format", facts.format.empty() ? "none" : facts.format);
    print_fact("aspect", facts.aspect);
}

// --- For programs ---------------------------------------------------------------------------

using Json = nlohmann::ordered_json;

Json or_null(const std::string &text)
{
    return text.empty() ? Json() : Json(text);
}

void print_json(const Json &object)
{
    std::string line = object.dump(-1, ' ', false, Json::error_handler_t::replace);
    for (size_t at = 0; (at = line.find('\x7F', at)) != std::string::npos;) {
        line.replace(at, 1, "\\u007f"); // the library lets this one pass
    }
    print_line(line);
}

// A file name need not be UTF-8: then its bytes are given too.
Json named_object(const std::string &file)
{
    Json object;
    object["file"] = file;
    try {
        (void)object.dump();
    } catch (const Json::exception &) {
        std::string bytes;
        for (const char c : file) {
            const auto byte = static_cast<unsigned char>(c);
            bytes += {"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]};
        }
        object["file_bytes"] = bytes;
    }
    return object;
}

void print_object(const Source &source, const Facts &facts)
{
    Json object = named_object(source.name);
    object["width"] = source.shape.width;
    object["height"] = source.shape.height;
    object["channels"] = facts.channels;
    object["depth_kind"] = or_null(facts.depth_kind);
    object["fields"] = source.files.fields;
    object["files"] = facts.files;
    object["dropped"] = Json::array();
    for (const Dropped &dropped : source.dropped) {
        object["dropped"].push_back({{"kind", dropped.kind}, {"reason", dropped.reason}});
    }
    object["format"] = or_null(facts.format);
    object["aspect"] = strtod(facts.aspect.c_str(), nullptr);
    print_json(object);
}

void print_failure(const std::string &file, const std::string &why)
{
    Json object = named_object(file);
    object["error"] = why;
    print_json(object);
}

ExitCode inform(const Session &session, const std::string &file, bool first)
{
    const bool json = session.options.json;
    try {
        const Source source(session, file);
        const Facts facts = facts_of(source);
        if (json) {
            print_object(source, facts);
        } else {
            print_facts(source, facts, first);
        }
        for (const Dropped &dropped : source.dropped) {
            if (dropped.code == EXIT_IO) {
                complain(source.name, dropped.reason);
            }
        }
        return source.code_of_dropped();
    } catch (const Failure &failure) {
        if (json) {
            print_failure(failure.file, failure.what());
        }
        throw;
    }
}

} // namespace

ExitCode run_info(const Session &session)
{
    ExitCode code = EXIT_FINE;
    for (const std::string &file : session.options.files) {
        const bool first = &file == &session.options.files.front();
        code = worst(code, attempt([&] { return inform(session, file, first); }));
    }
    return code;
}
