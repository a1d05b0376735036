// Runs every file of a directory through the fuzz program once: replay DIRECTORY
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "fuzz/fuzz_request.h"

int main(int count, char** arguments)
{
    if (count != 2) {
        std::fprintf(stderr, "usage: replay DIRECTORY\n");
        return 2;
    }
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(arguments[1])) {
        std::printf("%s\n", entry.path().c_str());
        std::fflush(stdout);
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string input{std::istreambuf_iterator<char>(file), {}};
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
        ++files;
    }
    return files > 0 ? 0 : 1;
}
