// Runs a fuzz target over single files, and over those that lie in folders.
#include <filesystem>
#include <fstream>
#include <iterator>

#include "fuzz/fuzz.h"

namespace {

void replay(const std::filesystem::path& path) {
    if (is_directory(path)) {
        for (const auto& file : std::filesystem::directory_iterator(path)) replay(file);
        return;
    }
    std::ifstream input(path, std::ios::binary);
    const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(input), {}};
    require(input.good());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

}  // namespace

int main(int, char** paths) {
    require(*++paths != nullptr);
    for (; *paths != nullptr; ++paths) replay(*paths);
}
