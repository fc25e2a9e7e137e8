// The list that the signal handler reads: fixed in size, for the handler may not allocate.
#include "vorla/doomed.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <iterator>

namespace {

constexpr int ENDING_SIGNALS[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGXCPU};

// What a signal removes, the last entry first. An empty path is a free entry.
struct Doomed {
    char path[PATH_MAX];
    bool is_directory;
};

Doomed doomed[8];

sigset_t ending_signals()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int signal_number : ENDING_SIGNALS) {
        sigaddset(&set, signal_number);
    }
    return set;
}

// Calls nothing that a signal handler may not call. The default action takes place when it returns.
extern "C" void remove_doomed(int signal_number)
{
    for (int at = static_cast<int>(std::size(doomed)) - 1; at >= 0; --at) {
        if (doomed[at].path[0] != '\0') {
            (void)(doomed[at].is_directory ? rmdir(doomed[at].path) : unlink(doomed[at].path));
        }
    }
    (void)signal(signal_number, SIG_DFL);
    (void)raise(signal_number);
}

// A signal that is ignored stays ignored, as under nohup.
void catch_signals()
{
    static bool caught = false;
    for (const int signal_number : ENDING_SIGNALS) {
        struct sigaction action = {};
        if (!caught && sigaction(signal_number, nullptr, &action) == 0 &&
            action.sa_handler == SIG_DFL) {
            action.sa_handler = remove_doomed;
            action.sa_mask = ending_signals();
            (void)sigaction(signal_number, &action, nullptr);
        }
    }
    caught = true;
}

} // namespace

SignalsHeld::SignalsHeld()
{
    const sigset_t set = ending_signals();
    (void)sigprocmask(SIG_BLOCK, &set, &before);
}

SignalsHeld::~SignalsHeld()
{
    (void)sigprocmask(SIG_SETMASK, &before, nullptr);
}

bool doom(const std::string &path, bool is_directory)
{
    catch_signals();
    Doomed *entry = std::find_if(std::begin(doomed), std::end(doomed),
                                 [](const Doomed &one) { return one.path[0] == '\0'; });
    if (entry == std::end(doomed) || path.size() >= sizeof entry->path) {
        errno = ENAMETOOLONG;
        return false;
    }
    memcpy(entry->path, path.c_str(), path.size() + 1);
    entry->is_directory = is_directory;
    return true;
}

void spare(const std::string &path)
{
    for (Doomed &entry : doomed) {
        if (path == entry.path) {
            entry.path[0] = '\0';
        }
    }
}
