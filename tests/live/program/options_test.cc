#include "live/program/options.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <sstream>

#include "live/program/hosts_file.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/text.h"

namespace live {
namespace {

class ProxyOptionsTest : public testing::Test {
 protected:
  ProxyOptionsTest() { chmod(password.c_str(), 0600); }

  static ProxyOptions Parsed(const std::string& words) {
    std::ostringstream out;
    return ParseProxyOptions(tests::Words(words), out).value();
  }

  const tests::TemporaryFolder folder;
  const std::string password = folder.Write("password", "rose\r\nnot this\n");
};

TEST_F(ProxyOptionsTest, DefaultsSuitABrowserOnThisMachine) {
  setenv("XDG_STATE_HOME", "/var/state", 1);
  const ProxyOptions options = Parsed("");
  EXPECT_EQ(options.task, Task::Browse);
  EXPECT_EQ(options.address, "127.0.0.1");
  EXPECT_EQ(options.port, 8080);
  EXPECT_TRUE(options.preload && options.preconnect);
  EXPECT_FALSE(options.intercept || options.listenAnywhere || options.allowPrivate || options.mark ||
               options.logLevel);
  EXPECT_EQ(options.properties, (std::map<std::string, std::string>{{"net.cv.kiv.prlimit", "4"}}));
  EXPECT_EQ(options.statePath, "/var/state/kiv_proxy/pages.db");
  setenv("XDG_STATE_HOME", "not/absolute", 1);
  setenv("HOME", "/home/ann", 1);
  EXPECT_EQ(Parsed("").statePath, "/home/ann/.local/state/kiv_proxy/pages.db");
  unsetenv("XDG_STATE_HOME");
  EXPECT_EQ(Parsed("").statePath, "/home/ann/.local/state/kiv_proxy/pages.db");
}

TEST_F(ProxyOptionsTest, ReadsWhatIsGiven) {
  const std::string hosts = folder.Write("hosts",
                                         "# where the sites are\n\n127.0.0.1 Shop.test www.shop.test # both\n"
                                         "::1\tsix.test\r\n");
  const ProxyOptions options = Parsed(
      "--listen [::1]:0 --preload off --preconnect off --prop net.cv.kiv.prlimit=8 --prop net.cv.kiv.on=0 "
      "--hosts " +
      hosts +
      " --connect-port 8443 --log 4 --json - --har day.har --state pages.db --allow-private --mark --plugin "
      "p.so");
  EXPECT_EQ(options.address, "::1");
  EXPECT_EQ(options.port, 0);
  EXPECT_FALSE(options.preload || options.preconnect);
  EXPECT_EQ(options.properties,
            (std::map<std::string, std::string>{{"net.cv.kiv.on", "0"}, {"net.cv.kiv.prlimit", "8"}}));
  EXPECT_EQ(options.connectTo,
            (std::vector<std::string>{"shop.test::127.0.0.1:8443", "www.shop.test::127.0.0.1:8443",
                                      "six.test::[::1]:8443"}));
  EXPECT_EQ(ReadHostsFile(hosts)[0], "shop.test::127.0.0.1:");
  EXPECT_EQ(options.logLevel, 4);
  EXPECT_EQ(options.jsonPath, "-");
  EXPECT_EQ(options.harPath, "day.har");
  EXPECT_EQ(options.statePath, "pages.db");
  EXPECT_TRUE(options.allowPrivate && options.mark);
  EXPECT_EQ(options.pluginPath, "p.so");
  EXPECT_EQ(Parsed("--listen localhost:1").address, "127.0.0.1");

  const ProxyOptions open = Parsed("--listen 0.0.0.0:8080 --listen-anywhere --password-file " + password);
  EXPECT_EQ(open.address, "0.0.0.0");
  EXPECT_EQ(open.password, "rose");
}

TEST_F(ProxyOptionsTest, ReadsItsCommands) {
  const ProxyOptions all = Parsed("forget --state pages.db");
  EXPECT_EQ(all.task, Task::Forget);
  EXPECT_EQ(all.forgetHost, "");
  EXPECT_EQ(all.statePath, "pages.db");
  EXPECT_EQ(Parsed("--state pages.db forget Shop.test").forgetHost, "shop.test");
  EXPECT_EQ(Parsed("forget https://shop.test:8443/a?b").forgetHost, "shop.test");

  const ProxyOptions ca = Parsed("ca --ca-dir own --only shop.test cdn.test");
  EXPECT_EQ(ca.task, Task::MakeCa);
  EXPECT_EQ(ca.caFolder, "own");
  EXPECT_EQ(ca.onlyHosts, (std::vector<std::string>{"shop.test", "cdn.test"}));
  const ProxyOptions intercepting = Parsed("--intercept --ca-dir own");
  EXPECT_TRUE(intercepting.intercept);
  EXPECT_EQ(intercepting.caFolder, "own");
}

TEST_F(ProxyOptionsTest, SaysWhatIsWrongAndWhatToDo) {
  const std::string readable = folder.Write("readable", "rose\n");
  chmod(readable.c_str(), 0640);
  const std::string empty = folder.Write("empty", "\nrose\n");
  chmod(empty.c_str(), 0600);
  const std::string badAddress = folder.Write("hosts1", "127.0.0.1 a.test\n127.0.0.256 b.test\n");
  const std::string badName = folder.Write("hosts2", "127.0.0.1 a.test:80\n");
  const std::string noName = folder.Write("hosts3", "::1\n");
  const std::string listen =
      "--listen must be an address and a port, such as 127.0.0.1:8080 or [::1]:0, got ";
  const std::string reachable =
      " can be reached from other machines; add --listen-anywhere and --password-file, or listen on "
      "127.0.0.1";
  const struct {
    std::string words, error;
  } cases[] = {
      {"--colour", "The following argument was not expected: --colour (see --help)"},
      {"--json", "--json: 1 required FILE missing (see --help)"},
      {"browse", "The following argument was not expected: browse (see --help)"},
      {"--listen 8080", listen + "'8080'"},
      {"--listen 127.0.0.1", listen + "'127.0.0.1'"},
      {"--listen 127.0.0.1:", listen + "'127.0.0.1:'"},
      {"--listen 127.0.0.1:65536", listen + "'127.0.0.1:65536'"},
      {"--listen 127.0.0.1:80x", listen + "'127.0.0.1:80x'"},
      {"--listen shop.test:80", listen + "'shop.test:80'"},
      {"--listen ::1:80", listen + "'::1:80'"},
      {"--listen [127.0.0.1]:80", listen + "'[127.0.0.1]:80'"},
      {"--listen 0.0.0.0:80", "--listen: 0.0.0.0" + reachable},
      {"--listen [::]:80", "--listen: ::" + reachable},
      {"--listen 0.0.0.0:80 --listen-anywhere", "--listen-anywhere needs a --password-file"},
      {"--password-file " + password, "--password-file can be used only with --listen-anywhere"},
      {"--listen-anywhere --password-file /nowhere",
       "--password-file: /nowhere: no password can be read from its first line"},
      {"--listen-anywhere --password-file " + empty,
       "--password-file: " + empty + ": its first line is empty"},
      {"--listen-anywhere --password-file " + readable,
       "--password-file: " + readable + ": other users can read it; run chmod 600 on it first"},
      {"--preload yes", "--preload must be on or off, got 'yes'"},
      {"--preconnect 1", "--preconnect must be on or off, got '1'"},
      {"--prop net.cv.kiv.on=2", "--prop: net.cv.kiv.on must be a whole number from 0 to 1, got '2'"},
      {"--log 10", "--log must be a whole number from 0 to 9, got '10'"},
      {"--log x", "--log must be a whole number from 0 to 9, got 'x'"},
      {"--hosts /nowhere", "--hosts: /nowhere: cannot be read"},
      {"--hosts " + folder.Path(), "--hosts: " + folder.Path() + ": cannot be read"},
      {"--hosts " + badAddress, "--hosts: " + badAddress + ":2: '127.0.0.256' is not an IP address"},
      {"--hosts " + badName, "--hosts: " + badName + ":1: 'a.test:80' is not a host name"},
      {"--hosts " + noName, "--hosts: " + noName + ":1: no name follows '::1'"},
      {"--tunnel-port 443 --tunnel-port 65536",
       "--tunnel-port must be a whole number from 1 to 65535, got '65536'"},
      {"--connect-port 8443", "--connect-port can be used only with --hosts"},
      {"--hosts " + password + " --connect-port 0",
       "--connect-port must be a whole number from 1 to 65535, got '0'"},
      {"--upstream-ca /nowhere", "--upstream-ca: /nowhere: cannot be read"},
      {"--har -", "--har must be a file, because its end is overwritten with each write"},
      {"--har x --json x", "--har: 'x' is already the file of --json"},
      {"--intercept", "--intercept needs a --ca-dir, the folder of the certificate authority"},
      {"--ca-dir own", "--ca-dir can be used only with --intercept and the command ca"},
      {"ca", "ca needs a --ca-dir, the folder of the certificate authority"},
      {"ca --ca-dir own --only a/b", "--only must be followed by host names, got 'a/b'"},
      {"forget shop.test/page", "SITE must be a host name or a URL, got 'shop.test/page'"},
      {"forget file:///", "SITE must be a host name or a URL, got 'file:///'"},
      {"forget a.test b.test", "The following argument was not expected: b.test (see --help)"},
  };
  for (const auto& row : cases) EXPECT_EQ(tests::ErrorOf([&] { Parsed(row.words); }), row.error) << row.words;
}

TEST_F(ProxyOptionsTest, HelpAndVersionEndIt) {
  for (const char* const word : {"--help", "--version"}) {
    std::ostringstream out;
    EXPECT_FALSE(ParseProxyOptions({word}, out).has_value());
    EXPECT_NE(out.str().find("kiv_proxy"), std::string::npos) << out.str();
  }
}

}  // namespace
}  // namespace live
