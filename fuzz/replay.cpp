// Runs inputs through the fuzz program: replay FILE...
#include <algorithm>
#include <fstream>
#include <iterator>

#include "fuzz/fuzz_request.h"

int main(int count, char** arguments)
{
    std::for_each(arguments + 1, arguments + count, [](const char* path) {
        std::ifstream file(path, std::ios::binary);
        const std::string input{std::istreambuf_iterator<char>(file), {}};
        require(!input.empty(), "an input can be read");
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
    });
    return count > 1 ? 0 : 1;
}
