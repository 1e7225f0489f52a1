// The private certificate authority: what it certifies, as OpenSSL's own verification sees it, and how it is
// kept on disk.
#include "live/proxy/ca/authority.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>

#include <ctime>
#include <filesystem>

#include "tests/support/temporary_folder.h"
#include "tests/support/text.h"

namespace live {
namespace {

using tests::ErrorOf;
using tests::TemporaryFolder;
using tests::TextOf;

// Whether a client that trusts the root takes the leaf for that host at that time.
bool Accepts(const Authority& authority, const Leaf& leaf, const std::string& host, std::time_t when) {
  const std::unique_ptr<X509_STORE, decltype(&X509_STORE_free)> store(X509_STORE_new(), X509_STORE_free);
  const std::unique_ptr<X509_STORE_CTX, decltype(&X509_STORE_CTX_free)> context(X509_STORE_CTX_new(),
                                                                                X509_STORE_CTX_free);
  X509_STORE_add_cert(store.get(), authority.root.get());
  X509_STORE_CTX_init(context.get(), store.get(), leaf.certificate.get(), nullptr);
  X509_VERIFY_PARAM* const how = X509_STORE_CTX_get0_param(context.get());
  if (X509_VERIFY_PARAM_set1_ip_asc(how, host.c_str()) != 1)
    X509_VERIFY_PARAM_set1_host(how, host.c_str(), 0);
  X509_VERIFY_PARAM_set_time(how, when);
  X509_VERIFY_PARAM_set_flags(how, X509_V_FLAG_X509_STRICT);
  X509_STORE_CTX_set_purpose(context.get(), X509_PURPOSE_SSL_SERVER);
  return X509_verify_cert(context.get()) == 1;
}

TEST(Authority, CertifiesWhatItMayAndNothingElse) {
  const std::time_t now = std::time(nullptr);
  const struct {
    std::vector<std::string> only;
    const char* host;
    bool may;
    const char* why;
  } rows[] = {
      {{}, "a.test", true, "any host"},
      {{}, "192.0.2.1", true, "an address"},
      {{}, "2001:db8::1", true, "of IPv6"},
      {{}, "xn--bcher-kva.test", true, "beyond ASCII"},
      {{"a.test"}, "a.test", true, "the one"},
      {{"a.test"}, "www.a.test", true, "below it"},
      {{"a.test"}, "xa.test", false, "only its end is the same"},
      {{"a.test"}, "test", false, "above it"},
      {{"a.test"}, "192.0.2.1", false, "no address, where names are listed"},
      {{"a.test"}, "2001:db8::1", false, "nor one of IPv6"},
      {{"b.test", "a.test"}, "a.test", true, "one of two"},
      {{"192.0.2.1"}, "192.0.2.1", true, "that address"},
      {{"192.0.2.1"}, "192.0.2.2", false, "another"},
      {{"192.0.2.1"}, "2001:db8::1", false, "another kind"},
      {{"192.0.2.1"}, "a.test", false, "no name, where addresses are listed"},
      {{"2001:db8::1", "a.test"}, "2001:db8::1", true, "both kinds"},
      {{"2001:db8::1", "a.test"}, "a.test", true, "both kinds"},
  };
  for (const auto& row : rows) {
    const Authority authority = MakeAuthority(row.only);
    const Leaf leaf = MakeLeaf(authority, row.host);
    EXPECT_EQ(MayCertify(authority, row.host), row.may) << row.host << ": " << row.why;
    EXPECT_EQ(Accepts(authority, leaf, row.host, now), row.may) << row.host << ": " << row.why;
    EXPECT_FALSE(Accepts(authority, leaf, "other.test", now)) << "it is for one host";
    EXPECT_FALSE(Accepts(MakeAuthority(), leaf, row.host, now)) << "another root";
  }
  for (const char* const host : {"", "A.test", "a test", ".a", "a,DNS:b", "a/b", "[::1]"}) {
    EXPECT_THROW(MakeAuthority({host}), std::runtime_error) << host;
    EXPECT_THROW(MakeLeaf(MakeAuthority(), host), std::runtime_error) << host;
  }
}

TEST(Authority, LeavesLastAWeekAndTheRootTenYears) {
  constexpr std::time_t kDay = 24 * 3600;
  const std::time_t now = std::time(nullptr);
  const Authority authority = MakeAuthority();
  const Leaf leaf = MakeLeaf(authority, "a.test");
  EXPECT_TRUE(Accepts(authority, leaf, "a.test", now - 1800)) << "a clock that is a little behind";
  EXPECT_TRUE(Accepts(authority, leaf, "a.test", now + 7 * kDay - 60));
  EXPECT_FALSE(Accepts(authority, leaf, "a.test", now + 7 * kDay + 60));
  int days = 0, seconds = 0;
  ASN1_TIME_diff(&days, &seconds, nullptr, X509_get0_notAfter(authority.root.get()));
  EXPECT_NEAR(days, 3652, 2);
  EXPECT_NE(RootKeyHash(authority), RootKeyHash(MakeAuthority()));
  EXPECT_EQ(RootKeyHash(authority).size(), 44U);
}

TEST(Authority, IsKeptWhereNobodyElseReadsIt) {
  const TemporaryFolder folder;
  const std::string place = folder.File("new/ca"), file = place + "/authority.pem";
  const Authority made = MakeAuthority({"a.test", "192.0.2.1"});
  StoreAuthority(made, place);
  struct stat state {};
  ASSERT_EQ(stat(file.c_str(), &state), 0);
  EXPECT_EQ(state.st_mode & 0777, 0600U);
  ASSERT_EQ(stat((place + "/root.pem").c_str(), &state), 0);
  EXPECT_EQ(state.st_mode & 0777, 0644U);
  const std::string rootText = TextOf(place + "/root.pem");
  EXPECT_EQ(rootText, RootAsPem(made));
  EXPECT_EQ(rootText.find("PRIVATE"), std::string::npos);

  const Authority loaded = LoadAuthority(place);
  EXPECT_EQ(RootKeyHash(loaded), RootKeyHash(made));
  EXPECT_EQ(loaded.onlyHosts, made.onlyHosts);
  EXPECT_TRUE(Accepts(made, MakeLeaf(loaded, "a.test"), "a.test", std::time(nullptr)));

  EXPECT_NE(ErrorOf([&] { StoreAuthority(MakeAuthority(), place); }).find("already"), std::string::npos);
  EXPECT_EQ(RootKeyHash(LoadAuthority(place)), RootKeyHash(made)) << "it is kept";
  size_t files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(place)) files += entry.exists();
  EXPECT_EQ(files, 2U) << "no drafts are left behind";

  for (const unsigned mode : {0640U, 0604U, 0666U, 0610U}) {
    chmod(file.c_str(), mode);
    EXPECT_NE(ErrorOf([&] { LoadAuthority(place); }).find("other users"), std::string::npos) << mode;
  }
}

TEST(Authority, OtherFilesAreRefused) {
  const TemporaryFolder folder, other;
  StoreAuthority(MakeAuthority(), other.Path());
  const std::string text = TextOf(other.File("authority.pem"));
  const size_t root = text.find("-----BEGIN CERTIFICATE");
  ASSERT_NE(root, std::string::npos);
  const struct {
    std::string text;
    const char* why;
  } rows[] = {
      {"", "empty"},
      {"no PEM", "something else"},
      {text.substr(0, root), "only a key"},
      {text.substr(root), "only a root"},
      {text.substr(0, text.size() / 2), "half a file"},
      {text.substr(0, root) + RootAsPem(MakeAuthority()), "another's root"},
  };
  EXPECT_NE(ErrorOf([&] { LoadAuthority(folder.Path()); }).find("make one first"), std::string::npos);
  for (const auto& row : rows) {
    chmod(folder.Write("authority.pem", row.text).c_str(), 0600);
    EXPECT_NE(ErrorOf([&] { LoadAuthority(folder.Path()); }).find("holds no certificate authority"),
              std::string::npos)
        << row.why;
  }
  EXPECT_NE(
      ErrorOf([&] { StoreAuthority(MakeAuthority(), folder.File("authority.pem")); }).find("cannot make"),
      std::string::npos);
}

}  // namespace
}  // namespace live
