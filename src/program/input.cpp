#include "program/input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "program/descriptor.h"

namespace program {
namespace {

constexpr std::size_t READ_SIZE = 1UL << 20;

/// The size of a regular file; 0 for everything else.
std::uint64_t size_of(int descriptor) {
    struct stat status {};
    if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) return 0;
    return static_cast<std::uint64_t>(status.st_size);
}

}  // namespace

std::string input_name(const std::string& argument) {
    return argument == "-" ? "standard input" : argument;
}

std::string read_input(
    const std::string& argument,
    const std::function<void(std::uint64_t done, std::uint64_t total)>& progress) {
    const auto fail = [&argument] {
        throw std::system_error(errno, std::generic_category(),
                                "cannot read " + input_name(argument));
    };
    const int opened = argument == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                                       : open(argument.c_str(), O_RDONLY | O_CLOEXEC);
    if (opened < 0) fail();
    const program::Descriptor input(opened);
    const std::uint64_t total = size_of(input.get());
    std::string text;
    text.reserve(static_cast<std::size_t>(total) + READ_SIZE);
    for (;;) {
        const std::size_t end = text.size();
        text.resize(end + READ_SIZE);
        const ssize_t count = read(input.get(), text.data() + end, READ_SIZE);
        text.resize(end + static_cast<std::size_t>(count > 0 ? count : 0));
        if (count == 0) return text;
        if (count < 0 && errno != EINTR) fail();
        progress(text.size(), total);
    }
}

}  // namespace program
