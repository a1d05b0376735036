// Runs inputs through the fuzz program: replay FILE...
// Prints the name of each before it runs: the last one is that of an input that ends the process.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int count, char** arguments)
{
    bool are_read = count > 1;
    std::for_each(arguments + 1, arguments + count, [&](const char* path) {
        std::fprintf(stderr, "%s\n", path);
        std::ifstream file(path, std::ios::binary);
        const std::string input{std::istreambuf_iterator<char>(file), {}};
        are_read = are_read && !input.empty();
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
    });
    return are_read ? 0 : 1;
}
