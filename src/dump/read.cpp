#include "dump/read.h"

#include <algorithm>
#include <map>

#include "dump/json_record.h"
#include "dump/parse.h"
#include "program/input.h"

namespace dump {
namespace {

using Entry = ecu::lapi::pb::SystemParameterEntry;

/// The parameters read so far, each once.
class Parameters {
public:
    /// The one of that OTAID; null when there is none. They are mostly in ascending order, so that
    /// they are looked up only behind one that is not.
    const Entry* find(std::uint32_t otaid) {
        if (entries.empty() || otaid > highest) return nullptr;
        for (; indexed < entries.size(); ++indexed) {
            position_of.emplace(entries[indexed].otaid(), indexed);
        }
        const auto found = position_of.find(otaid);
        return found == position_of.end() ? nullptr : &entries[found->second];
    }

    void add(Entry entry) {
        highest = std::max(highest, entry.otaid());
        entries.push_back(std::move(entry));
    }

    std::vector<Entry> entries;

private:
    std::uint32_t highest = 0;
    std::size_t indexed = 0;
    std::map<std::uint32_t, std::size_t> position_of;
};

std::optional<Entry> next_record(Scanner& scanner) {
    auto object = next_object(scanner);
    return object ? std::make_optional(record_of(std::move(*object))) : std::nullopt;
}

}  // namespace

std::vector<Entry> read_parameters(Source source, const std::string& name) {
    Scanner scanner(std::move(source), name);
    const bool is_json = scanner.first_character() == '{';
    Parameters parameters;
    for (;;) {
        const std::size_t line = scanner.line();
        auto entry = is_json ? next_record(scanner) : next_block(scanner);
        if (!entry) return std::move(parameters.entries);
        const Entry* const same = parameters.find(entry->otaid());
        if (same == nullptr) {
            parameters.add(std::move(*entry));
        } else if (entry->SerializeAsString() != same->SerializeAsString()) {
            scanner.fail_at(line, std::string(is_json ? "a second object" : "a second block") +
                                      " of OTAID " + std::to_string(entry->otaid()) +
                                      " says something else");
        }
    }
}

std::vector<Entry> read_file(const std::string& file) {
    program::Input input(file);
    const auto source = [&input](char* buffer, std::size_t size) {
        return input.read(buffer, size);
    };
    return read_parameters(source, program::input_name(file));
}

}  // namespace dump
