#include "dump/parse.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <map>
#include <stdexcept>

#include "dump/compose.h"

namespace dump {
namespace {

using Entry = ecu::lapi::pb::SystemParameterEntry;

/// Reads a dump piece by piece and knows its line.
class Reader {
public:
    Reader(std::string_view dump, const std::string& dump_name) : left(dump), name(dump_name) {}

    bool at_end() const { return left.empty(); }
    std::string_view rest() const { return left; }

    [[noreturn]] void fail(const std::string& cause) const {
        throw std::runtime_error(name + ":" + std::to_string(line) + ": " + cause);
    }

    void expect(std::string_view literal) {
        if (left.substr(0, literal.size()) != literal) {
            if (literal == "\n") fail("expected the end of the line");
            fail("expected \"" + std::string(literal) + "\"");
        }
        take(literal.size());
    }

    /// A number in the given base, at most `most_digits` of them.
    std::uint32_t number(int base, std::size_t most_digits = 10) {
        std::uint32_t value = 0;
        const std::string_view digits = left.substr(0, most_digits);
        const auto [stopped, error] =
            std::from_chars(digits.data(), digits.data() + digits.size(), value, base);
        if (error != std::errc()) {
            fail(base == 10 ? "expected a decimal number of 32 bits"
                            : "expected a hexadecimal number of 32 bits");
        }
        take(static_cast<std::size_t>(stopped - digits.data()));
        return value;
    }

    /// Any bytes.
    std::string_view bytes(std::size_t count) {
        if (count > left.size()) fail("the value is longer than the rest of the file");
        return take(count);
    }

private:
    std::string_view take(std::size_t count) {
        const std::string_view taken = left.substr(0, count);
        line += std::count(taken.begin(), taken.end(), '\n');
        left.remove_prefix(count);
        return taken;
    }

    std::string_view left;
    const std::string& name;
    std::ptrdiff_t line = 1;
};

/// The value's bytes in hexadecimal, which are mostly as we write them.
void read_hex(Reader& reader, const std::string& value) {
    if (begins_with_hex(reader.rest(), value)) {
        reader.bytes(SHOWN_BYTE_SIZE * value.size());
        return;
    }
    for (const char byte : value) {
        reader.expect("0x");
        if (reader.number(16, 2) != static_cast<unsigned char>(byte)) {
            reader.fail("the value's bytes differ from its characters");
        }
        reader.expect(" ");
    }
}

std::string read_value(Reader& reader) {
    reader.expect("  data(char) [");
    const std::uint32_t size = reader.number(16);
    reader.expect("]: '");
    std::string value(reader.bytes(size));
    reader.expect("'");
    reader.expect("\n");
    reader.expect("  data(hex) [");
    if (reader.number(16) != size) reader.fail("the two sizes of the value differ");
    reader.expect("]: ");
    read_hex(reader, value);
    reader.expect("\n");
    return value;
}

Entry read_block(Reader& reader) {
    Entry entry;
    reader.expect("SysParam (");
    entry.set_otaid(reader.number(10));
    reader.expect("):");
    reader.expect("\n");
    reader.expect("  OTAID: ");
    if (reader.number(10) != entry.otaid()) reader.fail("the record has another OTAID");
    reader.expect(" - 0x");
    if (reader.number(16) != entry.otaid()) reader.fail("the two forms of the OTAID differ");
    reader.expect("\n");
    reader.expect("  DID: ");
    entry.set_did(reader.number(16));
    reader.expect("\n");
    reader.expect("  XCPID: ");
    entry.set_xcpid(reader.number(16));
    reader.expect("\n");
    entry.set_data(read_value(reader));
    return entry;
}

bool equal(const Entry& one, const Entry& other) {
    return one.did() == other.did() && one.xcpid() == other.xcpid() && one.data() == other.data();
}

/// The parameters read so far, each once.
class Parameters {
public:
    /// The one of that OTAID; null when there is none. A dump is mostly in ascending order, so that
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

}  // namespace

std::vector<Entry> parse(
    std::string_view text, const std::string& name,
    const std::function<void(std::uint64_t done, std::uint64_t total)>& progress) {
    Parameters parameters;
    Reader reader(text, name);
    while (!reader.at_end()) {
        if (progress) progress(text.size() - reader.rest().size(), text.size());
        const Reader at_block = reader;
        Entry entry = read_block(reader);
        const Entry* const same = parameters.find(entry.otaid());
        if (same == nullptr) {
            parameters.add(std::move(entry));
        } else if (!equal(entry, *same)) {
            at_block.fail("a second block of OTAID " + std::to_string(entry.otaid()) +
                          " says something else");
        }
    }
    return std::move(parameters.entries);
}

}  // namespace dump
