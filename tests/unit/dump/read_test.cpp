#include "dump/read.h"

#include <gmock/gmock.h>

namespace {

using Entries = std::vector<ecu::lapi::pb::SystemParameterEntry>;

/// Reads a text that arrives in pieces of a size.
Entries read_in_pieces(std::string text, std::size_t piece) {
    const auto source = [&text, piece](char* buffer, std::size_t size) {
        const std::size_t count = text.copy(buffer, std::min(size, piece));
        text.erase(0, count);
        return count;
    };
    return dump::read_parameters(source, "x");
}

void expect_refused(const std::string& text, const std::string& complaint) {
    for (const std::size_t piece : {1U, 5U, 100'000U}) {
        EXPECT_THAT([&] { read_in_pieces(text, piece); },
                    testing::ThrowsMessage<std::runtime_error>(testing::StartsWith(complaint)))
            << text;
    }
}

TEST(Dump, IsRefusedWithTheLineOfTheFault) {
    const std::string good =
        "SysParam (1):\n  OTAID: 1 - 0x001\n  DID: f190\n  XCPID: 0\n"
        "  data(char) [3]: 'a\nb'\n  data(hex) [3]: 0x61 0x0a 0x62 \n";
    const auto changed = [&good](const std::string& from, const std::string& to) {
        return std::string(good).replace(good.find(from), from.size(), to);
    };
    const std::pair<std::string, const char*> table[] = {
        {"OTAID has to be a number, ignore 'abc'\n", "x:1: expected \"SysParam (\""},
        {" " + good, "x:1: expected \"SysParam (\""},
        {changed("(1)", "(-1)"), "x:1: expected a decimal number of 32 bits"},
        {changed("(1)", "(4294967296)"), "x:1: expected a decimal number of 32 bits"},
        {changed("OTAID: 1", "OTAID: 2"), "x:2: the record has another OTAID"},
        {changed("0x001", "0x002"), "x:2: the two forms of the OTAID differ"},
        {changed("f190", "F190g"), "x:3: expected the end of the line"},
        {changed("char) [3]", "char) [2]"), "x:6: expected \"'\""},
        {changed("char) [3]", "char) [ffff]"), "x:5: the value is longer than the rest"},
        {changed("hex) [3]", "hex) [4]"), "x:7: the two sizes of the value differ"},
        {changed("0x0a", "0x0b"), "x:7: the value's bytes differ from its characters"},
        {good + good.substr(0, good.size() - 1), "x:14: expected the end of the line"},
        {good + changed("f190", "f191"), "x:8: a second block of OTAID 1 says something else"},
        {changed("\n", "\r\n"), "x:1: expected the end of the line: the file has CRLF"},
        {changed("62 \n", "62\n"), "x:7: expected \" \": the blank at the end of the line was"},
        {changed("]: 0x61 0x0a 0x62 \n", "]:\n"), "x:7: expected \"]: \": the blank at the end"},
    };
    EXPECT_EQ(read_in_pieces(good + good, 1).size(), 1U);
    EXPECT_TRUE(read_in_pieces("", 1).empty());
    for (const auto& [text, complaint] : table) expect_refused(text, complaint);
}

TEST(JsonLines, AreRefusedWithTheLineOfTheFault) {
    const std::pair<const char*, const char*> table[] = {
        {"[1]", "expected an object"},
        {"SysParam (1):", "column 1: Invalid value."},
        {R"({"did":1})", "\"otaid\" is missing"},
        {R"({"otaid":4294967296})", "\"otaid\" has to be an OTAID"},
        {R"({"otaid":-1})", "\"otaid\" has to be an OTAID"},
        {R"({"otaid":1.0})", "\"otaid\" has to be an OTAID"},
        {R"({"otaid":"0x12z"})", "\"otaid\" has to be an OTAID"},
        {R"({"otaid":"1\u0000"})", "\"otaid\" has to be an OTAID"},
        {R"({"otaid":01})", "column 11: "},
        {R"({"otaid":1,"did":"1"})", "\"did\" has to be a whole number of 32 bits"},
        {R"({"otaid":1,"did":true})", "\"did\" has to be a whole number"},
        {R"({"otaid":1,"data":4869})", "\"data\" has to be a text of two hexadecimal digits"},
        {R"({"otaid":1,"data":"486"})", "\"data\" has to be a text of two hexadecimal digits"},
        {R"({"otaid":1,"data":"0x48"})", "\"data\" has to be a text of two hexadecimal digits"},
        {R"({"otaid":1,"data":"4869","text":"Ho"})", "\"data\" and \"text\" differ"},
        {R"({"otaid":1,"text":"\udc00"})", "\"text\" has to be valid text"},
        {R"({"otaid":1,"text":"\ud800"})", "column 20: "},
        {"{\"otaid\":1,\"text\":\"\xff\"}", "column 20: Invalid encoding"},
        {R"({"otaid":1,"did":{"otaid":1}})", "\"did\" has to be a whole number"},
        {"{\"otaid\":1,\"d\\u001b\":1}", "unknown key \"d?\""},
        {R"({"otaid":1,"otaid":1})", "\"otaid\" stands twice"},
        {R"({"otaid":1} {"otaid":2})", "column 13: "},
        {R"({"otaid":1)",
         "column 11: Missing a comma or '}' after an object member. An object has to"},
        {R"({"otaid":1,})", "column 12: "},
        {R"({"otaid":7,"did":2})", "a second object of OTAID 7 says something else"},
    };
    const std::string good = " \n\t{\"otaid\":7,\"did\":1}\r\n";
    for (const auto& [line, complaint] : table) {
        expect_refused(good + line + "\n" + good, std::string("x:3: ") + complaint);
    }
    expect_refused("{\"otaid\":1}" + std::string("\0garbage", 8), "x:1: there is more behind");
    for (const char* const nesting : {"{\"a\":", "[", "{\"did\":["}) {
        std::string deep;
        for (int depth = 0; depth < 100'000; ++depth) deep += nesting;
        EXPECT_THROW(read_in_pieces(good + deep, 100'000), std::runtime_error) << nesting;
    }
}

}  // namespace
