// Runs a target that makes files: in a directory that is empty and private, with the module ready
// and silent.
#include "fuzz/harness.h"

#include <stdlib.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (directory.empty()) {
        directory = std::filesystem::temp_directory_path() / "vorla-fuzz-XXXXXX";
        assert(mkdtemp(directory.data()) && imageInit() == 1);
        atexit([] { std::filesystem::remove_all(directory); });
        for (const char *folder : FOLDERS) {
            std::filesystem::create_directory(directory + folder);
        }
        setenv("KV_IMG_DIR", (directory + ":" + directory + "/none").c_str(), 1);
        standin_set_sink([](const StandinMessage &, void *) {}, nullptr);
    }
    const auto descriptors = open_descriptors();
    try_image({data, size});
    assert(open_descriptors() == descriptors);
    for (const auto &entry : std::filesystem::recursive_directory_iterator(directory)) {
        entry.is_directory() ? void() : (void)std::filesystem::remove(entry);
    }
    return 0;
}
