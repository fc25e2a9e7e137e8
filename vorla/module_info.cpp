// `vorla module`: what the loaded module says of itself.
#include "vorla/commands.h"

namespace {

void print_entry(const char *label, const std::string &value)
{
    char start[32];
    (void)snprintf(start, sizeof start, "%-12s", label);
    print_line(start + value);
}

std::string describe(const CapabilityEntry &entry)
{
    std::string text = std::to_string(entry.code) + " " + entry.label;
    text += (entry.flags & 1) != 0 ? ", for reading:" : ", for writing:";
    for (const CapabilityChoice *row = entry.choices->rows; row->label_set != 0; ++row) {
        text += (row == entry.choices->rows ? " " : ", ") + std::to_string(row->value) + " " +
                row->label;
    }
    return text;
}

} // namespace

ExitCode run_module(const Session &session)
{
    print_entry("path", session.module_path);
    print_entry("name", standin_text(&session.module, "imageName"));
    print_entry("version", standin_text(&session.module, "version"));
    print_entry("extension", standin_text(&session.module, "imageExtension"));
    const CapabilityEntry *table = nullptr;
    int32_t inputs = 0;
    int32_t outputs = 0;
    int32_t entries = 0;
    session.module.capability(&table, &inputs, &outputs, &entries);
    for (const CapabilityEntry *entry = table; entry && entry->label_set != 0; ++entry) {
        print_entry("capability", describe(*entry));
    }
    return EXIT_FINE;
}
