// Runs a fuzz target over the files of a corpus.
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int, char** argv) {
    int replayed = 0;
    for (const auto& file : std::filesystem::directory_iterator(argv[1])) {
        std::ifstream input(file.path(), std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(input), {}};
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
        ++replayed;
    }
    std::cout << replayed << " inputs replayed\n";
    return replayed > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
