#include "dump/parse.h"

#include "dump/compose.h"
#include "dump/hex.h"

namespace dump {
namespace {

using Entry = ecu::lapi::pb::SystemParameterEntry;

constexpr std::size_t HEX_PIECE = 4096;  // bytes of a value that are compared in one go

/// The value's bytes in hexadecimal, which are mostly as we write them.
void read_hex(Scanner& scanner, std::string_view value) {
    while (!value.empty()) {
        const std::string_view piece = value.substr(0, HEX_PIECE);
        value.remove_prefix(piece.size());
        if (begins_with_hex(scanner.ahead(SHOWN_BYTE_SIZE * piece.size()), piece)) {
            scanner.skip(SHOWN_BYTE_SIZE * piece.size());
            continue;
        }
        for (const char byte : piece) {
            scanner.expect("0x");
            if (scanner.number(16, 2) != static_cast<unsigned char>(byte)) {
                scanner.fail("the value's bytes differ from its characters");
            }
            scanner.expect(" ");
        }
    }
}

std::string read_value(Scanner& scanner) {
    scanner.expect("  data(char) [");
    const std::uint32_t size = scanner.number(16);
    scanner.expect("]: '");
    std::string value = scanner.bytes(size);
    scanner.expect("'");
    scanner.expect("\n");
    scanner.expect("  data(hex) [");
    if (scanner.number(16) != size) scanner.fail("the two sizes of the value differ");
    scanner.expect("]: ");
    read_hex(scanner, value);
    scanner.expect("\n");
    return value;
}

}  // namespace

std::optional<Entry> next_block(Scanner& scanner) {
    if (scanner.at_end()) return std::nullopt;
    Entry entry;
    scanner.expect("SysParam (");
    entry.set_otaid(scanner.number(10));
    scanner.expect("):");
    scanner.expect("\n");
    scanner.expect("  OTAID: ");
    if (scanner.number(10) != entry.otaid()) scanner.fail("the record has another OTAID");
    scanner.expect(" - 0x");
    if (scanner.number(16) != entry.otaid()) scanner.fail("the two forms of the OTAID differ");
    scanner.expect("\n");
    scanner.expect("  DID: ");
    entry.set_did(scanner.number(16));
    scanner.expect("\n");
    scanner.expect("  XCPID: ");
    entry.set_xcpid(scanner.number(16));
    scanner.expect("\n");
    entry.set_data(read_value(scanner));
    return entry;
}

}  // namespace dump
