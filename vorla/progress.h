// A progress line on standard error: only on a terminal, only when the work has taken more than
// half a second, never when quiet.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

// A piece of work of `total` steps, called `unit` ("rows", "files"), on `file`. While one lives,
// those that are made within its work show nothing. The line goes with it.
class Progress {
  public:
    Progress(const std::string &file, int64_t total, const char *unit);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    // So many steps are done.
    void show(int64_t done);

  private:
    std::string file;
    int64_t total;
    const char *unit;
    bool wanted;
    std::chrono::steady_clock::time_point next; // the line is not drawn before
};

// Clears the line for now, so that something else can be written there.
void wipe_progress();
