// Names of outputs.
#include "vorla/plan.h"

#include <sys/stat.h>

#include <map>

bool is_directory(const std::string &name)
{
    struct stat entry;
    return stat(name.c_str(), &entry) == 0 && S_ISDIR(entry.st_mode);
}

std::string without(const std::string &name, const std::string &end)
{
    return ends_in(name, end) ? name.substr(0, name.size() - end.size()) : name;
}

std::vector<Job> plan_directory(const std::string &verb, const Names &inputs,
                                const std::string &directory,
                                const std::function<std::string(const std::string &)> &name_of)
{
    std::vector<Job> jobs;
    std::map<std::string, std::string> taken;
    for (const std::string &input : inputs) {
        if (input == "-") {
            throw Failure(EXIT_USAGE, "standard input",
                          "cannot " + verb + " into a directory: it has no name");
        }
        const std::string base = field_names(input).base;
        const std::string output = directory + (directory.ends_with('/') ? "" : "/") +
                                   name_of(field_names(file_part(input)).base);
        const auto [other, is_new] = taken.emplace(output, input);
        if (is_new) {
            jobs.push_back({input, output});
        } else if (base != field_names(other->second).base) {
            throw Failure(EXIT_USAGE, input,
                          "cannot " + verb + ": " + output + " is made of " + other->second);
        }
    }
    return jobs;
}
