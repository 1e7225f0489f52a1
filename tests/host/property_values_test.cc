#include "host/property_values.h"

#include <gtest/gtest.h>

#include "plugin/properties.h"
#include "tests/support/text.h"

namespace host {
namespace {

TEST(PropertySetting, TakesTheValuesOfItsRange) {
  for (const kiv::Property& property : kiv::property::kAll) {
    const std::string name = property.name;
    for (const int64_t value : {property.least, property.most}) {
      const auto setting = ParsePropertySetting(name + "=" + std::to_string(value));
      EXPECT_EQ(setting, (std::pair{name, std::to_string(value)}));
    }
    for (const int64_t value : {property.least - 1, property.most + 1}) {
      EXPECT_THROW(ParsePropertySetting(name + "=" + std::to_string(value)), std::runtime_error)
          << name << value;
    }
    EXPECT_NO_THROW(ParsePropertySetting(name + "=" + property.fallback)) << "the default makes sense";
  }
}

TEST(PropertySetting, SaysWhatIsWrong) {
  const std::string range = "net.cv.kiv.prlimit must be a whole number from 0 to 2147483647, got ";
  const struct {
    std::string text, error;
  } cases[] = {
      {"", "'' is not name=value"},
      {"net.cv.kiv.on", "'net.cv.kiv.on' is not name=value"},
      {"net.cv.kiv.prlimit=", range + "''"},
      {"net.cv.kiv.prlimit=four", range + "'four'"},
      {"net.cv.kiv.prlimit=4x", range + "'4x'"},
      {"net.cv.kiv.prlimit= 4", range + "' 4'"},
      {"net.cv.kiv.prlimit=+4", range + "'+4'"},
      {"net.cv.kiv.prlimit=4=5", range + "'4=5'"},
      {"net.cv.kiv.prlimit=9999999999999999999999", range + "'9999999999999999999999'"},
      {"net.cv.kiv.prlimit=" + std::string(92, '0'), range + "'" + std::string(92, '0') + "'"},
      {"net.cv.kiv.on=2", "net.cv.kiv.on must be a whole number from 0 to 1, got '2'"},
      {"net.cv.kiv.onn=1",
       "unknown property 'net.cv.kiv.onn'; known are net.cv.kiv.on, net.cv.kiv.bypassen, "
       "net.cv.kiv.bypassdl, "
       "net.cv.kiv.cslimit, net.cv.kiv.prlimit, net.cv.kiv.idlesock, net.cv.kiv.cacheen, "
       "net.cv.kiv.preloaderen"},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(tests::ErrorOf([&row] { ParsePropertySetting(row.text); }), row.error);
  }
}

}  // namespace
}  // namespace host
