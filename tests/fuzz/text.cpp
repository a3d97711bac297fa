// What is typed: OTAIDs, values, topic filters; and what of any text a terminal gets to see.
#include <mosquitto.h>

#include <stdexcept>

#include "commands/interpretation.h"
#include "commands/otaid.h"
#include "fuzz/fuzz.h"
#include "lapi_mqtt/logging/printable.h"
#include "lapi_mqtt/mqtt/topic_filter.h"
#include "program/otaid.h"

namespace {

void check_typed(std::vector<std::string> values) try {
    const std::string text = values.front();
    const auto whole = program::parse_whole_otaid(text);
    const auto first = whole ? commands::otaid_of_argument(text) : std::nullopt;
    require(!first || *whole == static_cast<std::uint32_t>(*first));
    values.insert(values.begin(), commands::FIRST_VALUE, "");
    using commands::Interpretation;
    for (const auto as : {Interpretation::BYTES, Interpretation::DEC, Interpretation::HEX}) {
        commands::interpret_value(as, values);
    }
} catch (const std::logic_error&) {
    return;  // refused
}

void check_filter(const std::string& filter, const std::string& topic) {
    using namespace lapi_mqtt;
    if (shared_prefix_length(filter) != 0) return;
    require(topic_matches("$share/g/" + filter, topic) == topic_matches(filter, topic));
}

bool is_utf8(const std::string& text) {
    return mosquitto_validate_utf8(text.data(), static_cast<int>(text.size())) == MOSQ_ERR_SUCCESS;
}

void check_shown(const std::string& text) {
    const std::string shown = lapi_mqtt::printable(text);
    require(lapi_mqtt::printable(shown) == shown && is_utf8(shown));
    require(lapi_mqtt::is_text(text) == is_utf8(text));
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
