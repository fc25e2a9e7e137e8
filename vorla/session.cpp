// Finding and loading the module. What it says of itself is printed in info.cpp.
#include "vorla/session.h"

#include <algorithm>
#include <filesystem>
#include <map>

namespace {

namespace fs = std::filesystem;

const std::map<std::string, int32_t> CHANNELS = {{"", PIX_CHANNELS_UNDECIDED},
                                                 {"rgb", PIX_CHANNELS_RGB},
                                                 {"matte", PIX_CHANNELS_RGB_MATTE},
                                                 {"all", PIX_CHANNELS_RGB_MATTE_Z}};

std::vector<std::string> texts;
std::vector<int> numbers;

void take_message(const StandinMessage &message, void * /*context*/)
{
    texts.emplace_back(message.text);
    numbers.push_back(message.set == 0 ? 0 : message.number); // 0: its report of a system error
}

// Beside the program, unless the module is only in the place where it is installed.
std::string find_module()
{
    std::error_code error;
    const fs::path directory = fs::read_symlink("/proc/self/exe", error).parent_path();
    if (error) {
        throw Failure(EXIT_MODULE, "VYNVorla.so",
                      "cannot find the module: /proc does not tell where vorla is; --module or "
                      "$VORLA_MODULE names it");
    }
    const fs::path beside = directory / "VYNVorla.so";
    const fs::path installed = directory.parent_path() / "lib/vorla/modules/VYNVorla.so";
    return !fs::exists(beside, error) && fs::exists(installed, error) ? installed : beside;
}

} // namespace

Session::Session(const Options &chosen)
    : options(chosen), channels(CHANNELS.at(chosen.channels)),
      module_path(chosen.module.empty() ? find_module() : chosen.module)
{
    if (module_path.find('/') == std::string::npos) {
        module_path.insert(0, "./"); // the loader would look for a bare name among the libraries
    }
    if (const char *failure = standin_load(module_path.c_str(), &module)) {
        const std::string why = failure;
        const std::string start = module_path + ": "; // which the complaint has already
        throw Failure(EXIT_MODULE, module_path, "cannot load the module: ",
                      why.substr(why.starts_with(start) ? start.size() : 0));
    }
    standin_set_sink(take_message, nullptr);
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

bool module_said(int number, int /*severity*/, const char * /*words*/)
{
    return std::find(numbers.begin(), numbers.end(), number) != numbers.end();
}
