// Runs inputs through the fuzz program: replay FILE...
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int count, char** arguments)
{
    std::for_each(arguments + 1, arguments + count, [](const char* path) {
        std::ifstream file(path, std::ios::binary);
        const std::string input{std::istreambuf_iterator<char>(file), {}};
        if (input.empty()) {
            throw std::runtime_error(path);
        }
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
    });
    return count > 1 ? 0 : 1;
}
