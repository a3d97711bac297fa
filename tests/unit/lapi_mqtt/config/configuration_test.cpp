#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>

#include "ecu/lapi/config.h"
#include "ecu/lapi/logging.h"
#include "lapi_mqtt/config/configuration_reader.h"
#include "lapi_mqtt/config/settings.h"

namespace {

using ecu::lapi::config::Configuration;
using testing::ElementsAre;
using testing::HasSubstr;

std::vector<std::string> errors_of(const Configuration& configuration) {
    return lapi_mqtt::ConfigurationReader(configuration).errors();
}

/// A configuration file of its own, and nothing else of the environment.
class ConfigurationOf : public testing::Test {
protected:
    ConfigurationOf() { setenv("ECU_LAPI_CONFIG", path.c_str(), 1); }
    ~ConfigurationOf() override {
        for (const auto* name : {"ECU_LAPI_CONFIG", "ECU_LAPI_PORT", "ECU_LAPI_PROT"})
            unsetenv(name);
        std::remove(path.c_str());
    }
    Configuration load(const std::string& content) {
        std::ofstream(path) << content;
        Configuration configuration;
        configuration["client_name"] = "korvid";
        return configuration;
    }
    const std::string path = testing::TempDir() + "korvid-lapi.conf";
};

TEST_F(ConfigurationOf, ReadsFileThenEnvironmentThenTheProgram) {
    setenv("ECU_LAPI_PORT", "1885", 1);
    auto configuration =
        load("# unit\n\n host =  unit.local \r\nport=1884\nrequest_timeout_ms = 70\n");
    EXPECT_TRUE(configuration.verify());
    const auto settings = lapi_mqtt::read_settings(configuration);
    EXPECT_EQ(settings.place(), "unit.local:1885");
    EXPECT_EQ(settings.request_timeout.count(), 70);
    EXPECT_EQ(settings.connect_timeout.count(), 3000);
    configuration["host"] = "[::1]";
    EXPECT_EQ(lapi_mqtt::read_settings(configuration).place(), "[::1]:1885");
    EXPECT_EQ(lapi_mqtt::read_settings(configuration).host, "::1");
    std::ofstream(path) << "secret\r\nsecond line";
    EXPECT_EQ(lapi_mqtt::read_password(path), "secret");
    std::ofstream(path) << "cut" << '\0' << "off";
    EXPECT_THROW(lapi_mqtt::read_password(path), std::runtime_error);
}

TEST_F(ConfigurationOf, NamesThePlaceOfEachFault) {
    const std::pair<const char*, const char*> table[] = {
        {"host", ":1: no '=' in 'host'"},
        {"host = unit # the bench", ":1: 'unit # the bench' holds a '#'; a comment stands on"},
        {"host = unit:1883", "holds a colon; the port is a setting of its own (-p)"},
        {"topic_prefix = units/7", "topic_prefix: 'units/7' does not end with '/'"},
        {"topic_prefix = units/+/", "topic_prefix: 'units/+/' holds one of the characters + # $"},
        {"cert_file = /dev/null\nkey_file = /dev/null", "cert_file: needs a value for ca_file"},
        {"host =", ":1: host: missing value"},
        {"host = a b", ":1: host: 'a b' is not a host name or address"},
        {"port = 65536", ":1: port: '65536' is not a number from 1 to 65535"},
        {"port = 1883x", ":1: port: '1883x' is not a number from 1 to 65535"},
        {"connect_timeout_ms = 0", "'0' is not a number from 1 to 3600000"},
        {"ca_file = /nowhere/ca.pem", "cannot read '/nowhere/ca.pem': No such file or directory"},
        {"password_file = /", "cannot read '/': Is a directory"},
        {"username = J\xfcrgen",
         ":1: username: 'J\xfcrgen' is not UTF-8 text without control characters"},
    };
    for (const auto& [content, complaint] : table) {
        EXPECT_THAT(errors_of(load(content)), testing::Contains(HasSubstr(complaint)));
    }
    setenv("ECU_LAPI_PORT", "x", 1);
    setenv("ECU_LAPI_PROT", "1", 1);
    auto configuration = load("");
    EXPECT_THAT(errors_of(configuration),
                ElementsAre("ECU_LAPI_PROT: unknown key 'prot'",
                            "ECU_LAPI_PORT: port: 'x' is not a number from 1 to 65535"));
    configuration["port"] = "y";
    configuration["client_name"] = "a/b";
    EXPECT_THAT(errors_of(configuration),
                ElementsAre("ECU_LAPI_PROT: unknown key 'prot'",
                            "client_name: 'a/b' holds one of the characters / + #",
                            "port: 'y' is not a number from 1 to 65535"));
    setenv("ECU_LAPI_CONFIG", "/nowhere/lapi.conf", 1);
    EXPECT_THAT(errors_of(Configuration()).front(),
                HasSubstr("/nowhere/lapi.conf: cannot read the configuration: No such file"));
    EXPECT_FALSE(Configuration().verify());
}

}  // namespace
