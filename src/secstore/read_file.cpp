#include <exception>
#include <fstream>
#include <ios>
#include <vector>

#include "ecu/lapi/logging.h"
#include "secstore/sec_store.h"

namespace {

namespace logging = ecu::lapi::logging;

constexpr std::size_t READ_SIZE = 256UL * 1024;

/// Makes room for a file's content if `size` is one to make room for: it is -1 for a pipe and
/// absurd for a directory.
void reserve(std::string& content, std::streamoff size) {
    try {
        content.reserve(static_cast<std::size_t>(size));
    } catch (const std::exception&) {
        // The content then grows as it is read.
    }
}

/// Appends what is left in `buffer`, a read at a time.
void append_rest(std::string& content, std::streambuf& buffer) {
    while (buffer.sgetc() != std::streambuf::traits_type::eof()) {
        const auto available = buffer.in_avail();
        const auto end = content.size();
        content.resize(end + static_cast<std::size_t>(available));
        buffer.sgetn(&content[end], available);
    }
}

}  // namespace

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
    reserve(content, end);
    file.seekg(0, std::ios::beg);
    try {
        append_rest(content, *file.rdbuf());
    } catch (const std::ios_base::failure&) {
        // A read error ends the content, as the end of the file does.
    }
    logging::write(logging::INFO, "Read ", content.size(), " bytes from file: ", path);
    return content;
}
