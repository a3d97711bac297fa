// Parameters that are accepted, from a dump or from JSON Lines, come back from both, as any value
// does. In which pieces a text arrives makes no difference.
#include <algorithm>
#include <stdexcept>

#include "dump/compose.h"
#include "dump/json_record.h"
#include "dump/read.h"
#include "fuzz/fuzz.h"

namespace {

using ecu::lapi::var::ParameterMap;

/// What is read from a text that arrives in pieces, or why it is refused.
std::pair<ParameterMap, std::string> read(const std::string& text, std::size_t piece) try {
    std::size_t done = 0;
    const auto source = [&](char* buffer, std::size_t size) {
        const std::size_t count = text.copy(buffer, std::min(size, piece), done);
        done += count;
        return count;
    };
    return {dump::read_parameters(source, "fuzz"), ""};
} catch (const std::runtime_error& error) {
    return {{}, error.what()};
}

bool are_same(const ParameterMap& some, const ParameterMap& others) {
    const auto is_same = [](const auto& one, const auto& other) {
        return one.second.SerializeAsString() == other.second.SerializeAsString();
    };
    return std::equal(some.begin(), some.end(), others.begin(), others.end(), is_same);
}

/// Texts that say the same twice name each once.
void require_each_once(const ParameterMap& expected, const std::string& text) {
    require(are_same(read(text + text, SIZE_MAX).first, expected));
}

void check(ParameterMap parameters) {
    std::string blocks, buffer, lines;
    for (auto& [otaid, entry] : parameters) {
        entry.set_did(entry.did());
        entry.set_xcpid(entry.xcpid());
        entry.set_data(entry.data());
        blocks += dump::compose(buffer, otaid, entry);
        lines += dump::json_line(entry);
    }
    require_each_once(parameters, blocks);
    require_each_once(parameters, lines);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(data, data + size);
    const auto [parameters, error] = read(text, SIZE_MAX);
    const auto in_bytes = read(text, 1);
    require(are_same(in_bytes.first, parameters) && in_bytes.second == error);
    check(parameters);
    ParameterMap of_value;
    const auto otaid = static_cast<std::uint32_t>(size);
    of_value[otaid].set_otaid(otaid);
    of_value[otaid].set_data(text);
    check(of_value);
    return 0;
}
