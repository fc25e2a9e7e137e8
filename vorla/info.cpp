// `vorla info`: what the headers of a picture's files say, for people or, with --json, for
// programs.
#include "vorla/commands.h"
#include "vorla/headers.h"

#include "format/header.h"
#include "host/messages.h"

#include <nlohmann/json.hpp>

#include <cstdio>
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
    facts.files = source.files.main;
    if (source.opened == "/dev/stdin") {
        facts.files = {source.name};
    }
    if (source.colour) {
        facts.channels.emplace_back("colour");
    }
    if (source.matte) {
        facts.channels.emplace_back("matte");
    }
    if (source.matte && source.colour) {
        facts.files.insert(facts.files.end(), source.files.matte.begin(), source.files.matte.end());
    }
    if (source.depth) {
        facts.channels.emplace_back("depth");
        facts.files.insert(facts.files.end(), source.files.depth.begin(), source.files.depth.end());
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

void print_facts(const Source &source, const Facts &facts)
{
    print_line(source.name + ": " + std::to_string(source.width) + " x " +
               std::to_string(source.height) + " pixels");
    std::string channels;
    for (const std::string &channel : facts.channels) {
        channels += (channels.empty() ? "" : ", ") + channel;
    }
    if (source.depth) {
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

void print_object(const Source &source, const Facts &facts)
{
    Json object;
    object["file"] = source.name;
    object["width"] = source.width;
    object["height"] = source.height;
    object["channels"] = facts.channels;
    object["depth_kind"] = or_null(facts.depth_kind);
    object["fields"] = source.files.fields;
    object["files"] = facts.files;
    object["dropped"] = Json::array();
    for (const Dropped &dropped : source.dropped) {
        Json entry;
        entry["kind"] = dropped.kind;
        entry["reason"] = dropped.reason;
        object["dropped"].push_back(entry);
    }
    object["format"] = or_null(facts.format);
    object["aspect"] = strtod(facts.aspect.c_str(), nullptr);
    // A file name need not be UTF-8.
    std::string line = object.dump(-1, ' ', false, Json::error_handler_t::replace);
    for (size_t at = 0; (at = line.find('\x7F', at)) != std::string::npos;) {
        line.replace(at, 1, "\\u007f"); // the library lets this one pass
    }
    print_line(line);
}

} // namespace

ExitCode run_info(const Session &session, const Names &files, bool json)
{
    ExitCode code = EXIT_FINE;
    bool first = true;
    for (const std::string &file : files) {
        Source source;
        std::string why;
        ExitCode opened = try_open_source(session, file, &source, &why);
        if (opened != EXIT_FINE) {
            complain(source.name, why);
            code = worst(code, opened);
            continue;
        }
        const Facts facts = facts_of(source);
        if (json) {
            print_object(source, facts);
        } else {
            if (!first) {
                print_line("");
            }
            print_facts(source, facts);
        }
        first = false;
        for (const Dropped &dropped : source.dropped) {
            if (dropped.code == EXIT_IO) {
                complain(source.name, dropped.reason);
                code = EXIT_IO;
            }
        }
        code = worst(code, close_source(&source));
    }
    return code;
}
