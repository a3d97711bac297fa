#include <cstdlib>
#include <iostream>
#include <stdexcept>

#include "dump/json_record.h"
#include "dump/parse.h"
#include "program/input.h"
#include "program/options.h"
#include "program/process.h"

namespace {

constexpr char PROGRAM_NAME[] = "korvid-json";

constexpr program::Help HELP{
    PROGRAM_NAME, "[FILE]",
    R"(Prints the parameters in FILE (default "-": standard input), the text that `korvid get`
prints, as JSON Lines: an object a parameter and line. Needs no broker.
)",
    ""};

std::string parse_file(int argc, char** argv) {
    const auto arguments = program::parse_command_line(argc, argv, HELP, {}, nullptr);
    if (arguments.size() > 1) throw program::UsageError("one FILE at most can be named");
    return arguments.empty() ? "-" : arguments.front();
}

/// One parameter after the other, as they arrive.
int convert(const std::string& file) {
    program::Input input(file);
    const auto source = [&input](char* buffer, std::size_t size) {
        program::flush_standard_output();  // reading may have to wait
        return input.read(buffer, size);
    };
    dump::Scanner scanner(source, program::input_name(file));
    if (scanner.at_end()) {
        // What a `korvid get` that failed leaves behind.
        throw std::runtime_error(program::input_name(file) + " holds no parameter");
    }
    while (const auto entry = dump::next_block(scanner)) std::cout << dump::json_line(*entry);
    program::flush_standard_output();
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
    program::secure_standard_streams();
    program::widen_standard_output();
    return program::attempt(PROGRAM_NAME, [&] { return convert(parse_file(argc, argv)); });
}
