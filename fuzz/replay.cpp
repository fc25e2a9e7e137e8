// Runs the files of a directory through a fuzz target, in builds without a fuzzer.
#include "fuzz/harness.h"

#include <fstream>

int main(int, char **argv)
{
    for (const auto &entry : std::filesystem::directory_iterator(argv[1])) {
        puts(entry.path().c_str());
        std::ifstream file(entry.path(), std::ios::binary);
        const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(file), {}};
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    return std::filesystem::is_empty(argv[1]) ? 1 : 0;
}
