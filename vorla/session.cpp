// Finding and loading the module. What it says of itself is printed in info.cpp.
#include "vorla/session.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace {

namespace fs = std::filesystem;

constexpr const char *MODULE_FILE = "VYNVorla.so";

std::vector<std::string> texts;
std::vector<int> numbers;

void take_message(const StandinMessage &message, void * /*context*/)
{
    texts.emplace_back(message.text);
    numbers.push_back(message.set == 0 ? 0 : message.number);
}

// Beside the program, unless the module is only in the place where it is installed. Empty when
// nobody says where the program is.
std::string default_path()
{
    std::error_code error;
    const fs::path directory = fs::read_symlink("/proc/self/exe", error).parent_path();
    if (error) {
        return "";
    }
    const fs::path beside = directory / MODULE_FILE;
    const fs::path installed = directory.parent_path() / "lib/vorla/modules" / MODULE_FILE;
    const bool is_beside = access(beside.c_str(), F_OK) == 0;
    const bool is_installed = access(installed.c_str(), F_OK) == 0;
    return !is_beside && is_installed ? installed : beside;
}

std::string find_module(const std::string &path)
{
    if (!path.empty()) {
        return path;
    }
    const char *variable = getenv("VORLA_MODULE");
    return variable && variable[0] != '\0' ? variable : default_path();
}

} // namespace

Session::Session(const Options &chosen)
    : options(chosen), channels(chosen.channels == "rgb"     ? PIX_CHANNELS_RGB
                                : chosen.channels == "matte" ? PIX_CHANNELS_RGB_MATTE
                                : chosen.channels == "all"   ? PIX_CHANNELS_RGB_MATTE_Z
                                                             : PIX_CHANNELS_UNDECIDED)
{
    std::string file = find_module(options.module);
    if (file.empty()) {
        throw Failure(EXIT_MODULE, MODULE_FILE,
                      "cannot find the module: /proc does not tell where vorla is; --module or "
                      "$VORLA_MODULE names it");
    }
    if (file.find('/') == std::string::npos) {
        file.insert(0, "./"); // the loader would look for a bare name among the libraries
    }
    module_path = file;
    if (const char *failure = standin_load(file.c_str(), &module)) {
        std::string why = failure;
        if (why.starts_with(file + ": ")) {
            why.erase(0, file.size() + 2);
        }
        throw Failure(EXIT_MODULE, file, "cannot load the module: " + why);
    }
    standin_set_sink(take_message, nullptr);
}

Session::~Session()
{
    standin_unload(&module);
}

const std::vector<std::string> &module_messages()
{
    return texts;
}

void forget_messages()
{
    texts.clear();
    numbers.clear();
}

bool module_said(int number)
{
    return std::find(numbers.begin(), numbers.end(), number) != numbers.end();
}
