// What the fuzz targets share that make files of their input: a private directory for these, and
// the images in it.
#pragma once

#include "fuzz/input.h"
#include "tests/invariants.h"

#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <filesystem>
#include <string>

// Where the kinds of file lie: colour, matte and depth.
constexpr const char *FOLDERS[] = {"renders", "mask", "depth"};

// Makes the directory of this process, with its folders, in memory where that can be had. It is
// removed at exit. Readies the module and silences its messages.
inline std::string make_directory()
{
    const bool memory = access("/dev/shm", W_OK) == 0;
    std::string path = memory ? "/dev/shm" : std::filesystem::temp_directory_path().string();
    path += "/vorla-fuzz-XXXXXX";
    CHECK(mkdtemp(path.data()));
    for (const char *folder : FOLDERS) {
        std::filesystem::create_directory(path + "/" + folder);
    }
    setenv("KV_IMG_DIR", (path + ":" + path + "/none").c_str(), 1);
    standin_set_sink([](const StandinMessage &, void *) {}, nullptr);
    CHECK(imageInit() == 1);
    return path;
}

// The path of a file; one to be searched for lies under the search list, not where its name says.
inline std::string path_of(const char *folder, const char *name, bool searched = false)
{
    static const std::string directory = make_directory();
    static const int removal = atexit([] { std::filesystem::remove_all(directory); });
    CHECK(removal == 0);
    return (searched ? "" : directory + "/") + folder + "/" + name;
}

// Stops the process with what is wrong, unless that is nothing.
inline void check_none(const std::string &wrong)
{
    wrong.empty() ? void() : (void)fprintf(stderr, "%s\n", wrong.c_str());
    CHECK(wrong.empty());
}

inline ImageHandle *make_reader(const char *name, bool searched)
{
    ImageHandle *handle = standin_new_reader(path_of(FOLDERS[0], name, searched).c_str());
    handle->name_is_exact = searched ? 0 : 1;
    vyn__err = 0;
    return handle;
}

inline void close_image(ImageHandle *handle)
{
    CHECK(handle->close_proc(handle) == 0 && vyn__err == 0);
}
