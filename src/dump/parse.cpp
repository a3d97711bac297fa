#include "dump/parse.h"

#include <cstring>

#include "dump/hex.h"

namespace dump {
namespace {

using Entry = ecu::lapi::pb::SystemParameterEntry;

constexpr std::size_t HEX_PIECE = 4096;  // bytes of a value that are compared in one go

/// True when `text` begins with the bytes of `data` as a block shows them.
bool begins_with_hex(std::string_view text, std::string_view data) {
    if (text.size() / SHOWN_BYTE_SIZE < data.size()) return false;
    const char* shown = text.data();
    for (const char byte : data) {
        if (std::memcmp(shown, shown_byte(byte).data(), SHOWN_BYTE_SIZE) != 0) return false;
        shown += SHOWN_BYTE_SIZE;
    }
    return true;
}

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

}  // namespace

std::optional<Entry> next_block(Scanner& scanner) {
    if (scanner.at_end()) return std::nullopt;
    Entry entry;
    scanner.expect("SysParam (");
    entry.set_otaid(scanner.number(10));
    scanner.expect("):\n  OTAID: ");
    if (scanner.number(10) != entry.otaid()) scanner.fail("the record has another OTAID");
    scanner.expect(" - 0x");
    if (scanner.number(16) != entry.otaid()) scanner.fail("the two forms of the OTAID differ");
    scanner.expect("\n  DID: ");
    entry.set_did(scanner.number(16));
    scanner.expect("\n  XCPID: ");
    entry.set_xcpid(scanner.number(16));
    scanner.expect("\n  data(char) [");
    const std::uint32_t size = scanner.number(16);
    scanner.expect("]: '");
    entry.set_data(scanner.bytes(size));
    scanner.expect("'\n  data(hex) [");
    if (scanner.number(16) != size) scanner.fail("the two sizes of the value differ");
    scanner.expect("]: ");
    read_hex(scanner, entry.data());
    scanner.expect("\n");
    return entry;
}

}  // namespace dump
