// Runs the files of directories through a fuzz target, in builds without a fuzzer.
#include "fuzz/input.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

int main(int argc, char **argv)
{
    int inputs = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto &entry : std::filesystem::directory_iterator(argv[i])) {
            printf("%s\n", entry.path().c_str());
            std::ifstream file(entry.path(), std::ios::binary);
            const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
            ++inputs;
        }
    }
    printf("%d inputs\n", inputs);
    return inputs > 0 ? 0 : 1;
}
