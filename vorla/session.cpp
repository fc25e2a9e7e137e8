// Finding and loading the module. What it says of itself is printed in module_info.cpp.
#include "vorla/session.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace {

namespace fs = std::filesystem;

constexpr const char *MODULE_FILE = "VYNVorla.so";

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
    const fs::path installed = directory.parent_path() / "lib/vorla" / MODULE_FILE;
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

ExitCode load_module(const std::string &path, Session *session)
{
    std::string file = find_module(path);
    if (file.empty()) {
        complain(MODULE_FILE, "cannot find the module: /proc does not tell where vorla is; "
                              "--module or $VORLA_MODULE names it");
        return EXIT_MODULE;
    }
    if (file.find('/') == std::string::npos) {
        file.insert(0, "./"); // the loader would look for a bare name among the libraries
    }
    session->module_path = file;
    const char *failure = standin_load(file.c_str(), &session->module);
    if (!failure) {
        return EXIT_FINE;
    }
    std::string why = failure;
    if (why.starts_with(file + ": ")) {
        why.erase(0, file.size() + 2);
    }
    complain(file, "cannot load the module: " + why);
    return EXIT_MODULE;
}
