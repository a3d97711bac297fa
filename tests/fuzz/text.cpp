// What is typed: OTAIDs, values, topic filters; and what of any text a terminal gets to see.
#include <mosquitto.h>

#include <algorithm>
#include <stdexcept>

#include "commands/interpretation.h"
#include "commands/otaid.h"
#include "fuzz/fuzz.h"
#include "lapi_mqtt/logging/printable.h"
#include "lapi_mqtt/mqtt/topic_filter.h"
#include "program/otaid.h"

namespace {

using commands::Interpretation;

std::string bytes_of(Interpretation interpretation, std::vector<std::string> values) {
    values.insert(values.begin(), commands::FIRST_VALUE, "");
    return commands::interpret_value(interpretation, values);
}

/// An OTAID is whole or may have more behind it; values have the bytes that their notation calls for.
void check_typed(const std::vector<std::string>& texts) try {
    const std::string& text = texts.front();
    require(bytes_of(Interpretation::STRING, texts) == text && bytes_of(Interpretation::DEC, texts).size() <= 8);
    require(bytes_of(Interpretation::HEX, texts).size() == std::min<std::size_t>(8, (text.size() + 1) / 2));
    require(bytes_of(Interpretation::BYTES, texts).size() == texts.size());
    const auto whole = program::parse_whole_otaid(text);
    const auto first = whole ? commands::otaid_of_argument(text) : std::nullopt;
    require(!first || *whole == static_cast<std::uint32_t>(*first));
} catch (const std::logic_error&) {
    return;  // refused
}

void check_filter(const std::string& filter, const std::string& topic) {
    using namespace lapi_mqtt;
    if (shared_prefix_length(filter) != 0) return;
    require(topic_matches("$share/g/" + filter, topic) == topic_matches(filter, topic));
}

void check_shown(const std::string& text) {
    const std::string shown = lapi_mqtt::printable(text);
    require(lapi_mqtt::printable(shown) == shown && shown.size() >= text.size());
    require(mosquitto_validate_utf8(shown.data(), static_cast<int>(shown.size())) == MOSQ_ERR_SUCCESS);
    const bool is_utf8 = mosquitto_validate_utf8(text.data(), static_cast<int>(text.size())) == MOSQ_ERR_SUCCESS;
    require(lapi_mqtt::is_text(text) == is_utf8);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    auto texts = texts_of(data, size);
    check_shown(std::string(data, data + size));
    check_typed(texts);
    texts.resize(2);
    check_filter(texts[0].data(), texts[1].data());
    return 0;
}
