#include "unit/import.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <stdexcept>

#include "dump/parse.h"
#include "program/descriptor.h"
#include "program/progress_line.h"
#include "unit/options.h"

namespace unit {
namespace {

constexpr std::size_t READ_SIZE = 256UL * 1024;

std::string shown(const std::string& name) {
    return name == "-" ? "standard input" : name;
}

[[noreturn]] void fail(const std::string& name) {
    throw std::runtime_error("cannot read '" + shown(name) + "': " + std::strerror(errno));
}

/// A pipe in the file system is opened without waiting for its writer: the wait is `end_signal`'s.
int open_import(const std::string& name) {
    const int opened = name == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                                   : open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (opened < 0) fail(name);
    return opened;
}

std::optional<std::string> read_all(const std::string& name, EndSignal& end_signal,
                                    ProgressLine& progress) {
    const program::Descriptor input(open_import(name));
    std::vector<char> buffer(READ_SIZE);
    std::string text;
    for (;;) {
        if (end_signal.wait(input.get(), POLLIN)) return std::nullopt;
        const ssize_t size = read(input.get(), buffer.data(), buffer.size());
        if (size == 0) return text;
        if (size > 0) {
            text.append(buffer.data(), static_cast<std::size_t>(size));
            progress.advance(text.size(), 0);
        } else if (errno != EAGAIN && errno != EINTR) {
            fail(name);
        }
    }
}

}  // namespace

std::optional<std::vector<Entry>> read_import(const std::string& name, EndSignal& end_signal) {
    ProgressLine progress(PROGRAM_NAME);
    progress.begin("reading the import");
    const auto text = read_all(name, end_signal, progress);
    if (!text) return std::nullopt;
    progress.begin("parsing the import");
    return dump::parse(*text, shown(name), progress.hook());
}

void import_into(Store& store, const std::vector<Entry>& entries, const std::string& name,
                 bool replace) {
    if (replace && entries.empty()) {
        throw std::runtime_error(shown(name) + " holds no parameters: the store was not replaced");
    }
    ProgressLine progress(PROGRAM_NAME);
    progress.begin("storing the import");
    const ImportResult result = store.import(entries, replace);
    std::cerr << PROGRAM_NAME << ": imported " << entries.size() << " parameters from "
              << shown(name) << ": " << result.added << " added, " << result.changed << " changed, "
              << result.unchanged << " unchanged; " << (replace ? "removed " : "the store holds ")
              << result.others << " others" << std::endl;
}

}  // namespace unit
