// Runs one input through the fuzz program: replay FILE
#include <fstream>
#include <iterator>

#include "fuzz/fuzz_request.h"

int main(int count, char** arguments)
{
    std::ifstream file(arguments[count - 1], std::ios::binary);
    const std::string input{std::istreambuf_iterator<char>(file), {}};
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
    return input.empty() ? 1 : 0;
}
