// The eight properties: their texts, their values as the report shows them, and when the report is written.
#include <fstream>
#include <iterator>

#include "cutils/properties.h"
#include "plugin/properties.h"
#include "tests/support/scripted_host.h"

namespace tests {
namespace {

using ConfigurationTest = PluginTest;

constexpr const char* kDefaultReport =
    "I Enabled\n"
    "I Bypass: Disabled\n"
    "I Bypass Delay: 50\n"
    "I Cache Size Limit: 2097152\n"
    "I Preloading Limit: 5\n"
    "I Idle Sockets: 1\n"
    "I Cache: Enabled\n"
    "I Preloader: Enabled\n";

TEST_F(ConfigurationTest, PropertyTextsBecomeValues) {
  host.verbosity = 0;  // not the report's gate
  EXPECT_EQ(host.plugin.OnInit(0xFFFFFFFF), 1);
  EXPECT_EQ(host.Take(), kDefaultReport);
  const std::string longest = std::string(90, '0') + "7";  // as long as a property may be
  const struct {
    const char* property;
    std::string text;
    const char* line;  // of the report
    const char* why;
  } rows[] = {
      {"on", "0", "I Disabled", "zero is off"},
      {"on", "yes", "I Disabled", "a word is no number"},
      {"on", "-1", "I Enabled", "any other number is on"},
      {"on", "2on", "I Enabled", "the leading digits count"},
      {"on", "0x1", "I Disabled", "decimal alone"},
      {"bypassen", " \t+1", "I Bypass: Enabled", "blanks and a sign are skipped"},
      {"bypassdl", "-5", "I Bypass Delay: -5", "no range check"},
      {"bypassdl", "- 5", "I Bypass Delay: 0", "no digit after the sign"},
      {"cslimit", "3M", "I Cache Size Limit: 3", "a unit is ignored"},
      {"cslimit", longest, "I Cache Size Limit: 7", "91 characters fit the buffer"},
      {"cslimit", "2147483647", "I Cache Size Limit: 2147483647", "largest"},
      {"cslimit", "2147483648", "I Cache Size Limit: 2147483647", "one more stops at the limit"},
      {"cslimit", "-99999999999", "I Cache Size Limit: -2147483648", ""},
      {"prlimit", "", "I Preloading Limit: 5", "empty is unset"},
      {"prlimit", "-1", "I Preloading Limit: -1", ""},
      {"idlesock", "0", "I Idle Sockets: 0", ""},
      {"cacheen", "off", "I Cache: Disabled", ""},
      {"preloaderen", "0", "I Preloader: Disabled", ""},
  };
  for (const auto& row : rows) {
    const std::string name = std::string("net.cv.kiv.") + row.property;
    ASSERT_EQ(property_set(name.c_str(), row.text.c_str()), 0);
    host.plugin.OnInit(0);
    EXPECT_NE(host.Take().find(std::string(row.line) + "\n"), std::string::npos)
        << row.property << "='" << row.text << "': " << row.why;
    property_set(name.c_str(), nullptr);
  }
  host.plugin.OnInit(0);
  EXPECT_EQ(host.Take(), kDefaultReport) << "each call reads everything again";
}

TEST_F(ConfigurationTest, PreloaderEnabledNeedsBothSwitchesAndNotTheMainOne) {
  host.verboseEnabled = false;  // no report, but the values
  for (const std::string values : {"000", "001", "010", "011", "100", "101", "110", "111"}) {
    property_set("net.cv.kiv.on", values.substr(0, 1).c_str());
    property_set("net.cv.kiv.cacheen", values.substr(1, 1).c_str());
    property_set("net.cv.kiv.preloaderen", values.substr(2).c_str());
    host.plugin.OnInit(0);
    EXPECT_EQ(host.plugin.IsPreloaderEnabled(), values.ends_with("11") ? 1 : 0) << values;
    EXPECT_EQ(host.Take(), "");
  }
}

TEST(PropertiesTest, TheDocumentationListsThemAsTheyAre) {
  std::ifstream file(KIV_SOURCE_DIR "/docs/integration.md");
  const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  std::string table;
  for (const kiv::Property& row : kiv::property::kAll) {
    const std::string range = row.most == 1 ? "0 or 1" : "0 to " + std::to_string(row.most);
    table +=
        std::string("| `") + row.name + "` | " + row.fallback + " | " + range + " | " + row.meaning + " |\n";
  }
  EXPECT_NE(text.find("\n" + table + "\n"), std::string::npos) << table;
}

}  // namespace
}  // namespace tests
