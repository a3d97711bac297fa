#include <fstream>
#include <ios>
#include <vector>

#include "ecu/lapi/logging.h"
#include "secstore/sec_store.h"

namespace logging = ecu::lapi::logging;

constexpr std::size_t READ_SIZE = 256UL * 1024;

std::string SecStore::read_file_to_str(const std::string& path) {
    std::vector<char> read_buffer(READ_SIZE);
    std::ifstream file;
    file.rdbuf()->pubsetbuf(read_buffer.data(), READ_SIZE);
    file.open(path);
    if (!file.is_open()) {
        logging::write(logging::INFO, "The file ", path, " could not be open!");
        return {};
    }

    std::string content;
    file.seekg(0, std::ios::end);
    const std::streamoff end = file.tellg();
    logging::write(logging::DEBUG, "Tellg size for provided file: ", end);
    // The size is -1 for a pipe and absurd for a directory.
    const auto size = static_cast<std::size_t>(end);
    if (size < content.max_size()) content.reserve(size);
    file.seekg(0, std::ios::beg);
    std::streambuf& buffer = *file.rdbuf();
    try {
        while (buffer.sgetc() != std::streambuf::traits_type::eof()) {
            const auto available = buffer.in_avail();
            const auto read = content.size();
            content.resize(read + static_cast<std::size_t>(available));
            buffer.sgetn(&content[read], available);
        }
    } catch (const std::ios_base::failure&) {
        // A read error ends the content, as the end of the file does.
    }
    logging::write(logging::INFO, "Read ", content.size(), " bytes from file: ", path);
    return content;
}
