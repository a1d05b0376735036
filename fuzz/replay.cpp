// Runs inputs through the fuzz program, without libFuzzer: replay FILE...
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int count, char** paths)
{
    for (int number = 1; number < count; ++number) {
        std::cerr << paths[number] << std::endl;  // the last one printed is of an input that fails
        std::ifstream file(paths[number], std::ios::binary);
        const std::string input{std::istreambuf_iterator<char>(file), {}};
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
    }
    return count > 1 ? 0 : 1;
}
