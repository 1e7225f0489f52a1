#include "live/proxy/ca/authority.h"

#include <arpa/inet.h>
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <array>
#include <stdexcept>

namespace live {
namespace {

constexpr long kDay = 24 * 3600;
constexpr long kRootDays = 3653;
constexpr long kLeafDays = 7;
constexpr long kClockSkew = 3600;  // of browsers in virtual machines, say

[[noreturn]] void Fail(const char* what) {
  throw std::runtime_error(std::string("OpenSSL cannot ") + what);
}

void Check(bool ok, const char* what) {
  if (!ok) Fail(what);
}

PrivateKey MakeKey() {
  PrivateKey key(EVP_EC_gen("P-256"), EVP_PKEY_free);
  Check(key != nullptr, "make a key");
  return key;
}

// 4 or 16 bytes; empty for a name.
std::string AddressBytes(const std::string& host) {
  std::array<char, 16> bytes;
  if (inet_pton(AF_INET, host.c_str(), bytes.data()) == 1) return {bytes.data(), 4};
  if (inet_pton(AF_INET6, host.c_str(), bytes.data()) == 1) return {bytes.data(), 16};
  return {};
}

void AddExtension(X509& certificate, X509& issuer, int kind, const std::string& value) {
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, &issuer, &certificate, nullptr, nullptr, 0);
  const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> extension(
      X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str()), X509_EXTENSION_free);
  Check(extension != nullptr && X509_add_ext(&certificate, extension.get(), -1) == 1, "make a certificate");
}

std::string RandomHex(size_t count) {
  std::string bytes(count, '\0');
  Check(RAND_bytes(reinterpret_cast<unsigned char*>(bytes.data()), static_cast<int>(count)) == 1,
        "find randomness");
  std::string text;
  for (const char byte : bytes) {
    text += "0123456789abcdef"[static_cast<unsigned char>(byte) >> 4];
    text += "0123456789abcdef"[byte & 15];
  }
  return text;
}

// All but its extensions and its signature.
Certificate BeginCertificate(const PrivateKey& key, const std::string& name, long days) {
  Certificate certificate(X509_new(), X509_free);
  Check(certificate != nullptr, "make a certificate");
  X509* const raw = certificate.get();
  BIGNUM* serial = nullptr;
  Check(BN_hex2bn(&serial, ("1" + RandomHex(15)).c_str()) > 0, "make a certificate");
  const std::unique_ptr<BIGNUM, decltype(&BN_free)> owner(serial, BN_free);
  X509_NAME* const subject = X509_get_subject_name(raw);
  const auto* const text = reinterpret_cast<const unsigned char*>(name.c_str());
  Check(X509_set_version(raw, X509_VERSION_3) == 1 &&
            BN_to_ASN1_INTEGER(serial, X509_get_serialNumber(raw)) != nullptr &&
            X509_gmtime_adj(X509_getm_notBefore(raw), -kClockSkew) != nullptr &&
            X509_gmtime_adj(X509_getm_notAfter(raw), days * kDay) != nullptr &&
            X509_NAME_add_entry_by_NID(subject, NID_commonName, MBSTRING_UTF8, text, -1, -1, 0) == 1 &&
            X509_set_pubkey(raw, key.get()) == 1,
        "make a certificate");
  return certificate;
}

void Sign(X509& certificate, const PrivateKey& key) {
  Check(X509_sign(&certificate, key.get(), EVP_sha256()) > 0, "sign a certificate");
}

// Names and addresses are constrained each by themselves, so that the kind that is not listed is shut out
// whole.
std::string NameConstraints(const std::vector<std::string>& hosts) {
  std::string text = "critical";
  bool names = false, addresses = false;
  for (const std::string& host : hosts) {
    const std::string bytes = AddressBytes(host);
    if (bytes.empty()) {
      text += ",permitted;DNS:" + host;
      names = true;
    } else {
      text += ",permitted;IP:" + host +
              (bytes.size() == 4 ? "/255.255.255.255" : "/ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff");
      addresses = true;
    }
  }
  if (!addresses)
    text +=
        ",excluded;IP:0.0.0.0/0.0.0.0,excluded;IP:0:0:0:0:0:0:0:0/"
        "0:0:0:0:0:0:0:0";
  // A permitted name that nobody can have.
  if (!names) text += ",permitted;DNS:name.invalid";
  return text;
}

void CheckHost(const std::string& host) {
  const bool isName =
      !host.empty() && host.front() != '.' && std::all_of(host.begin(), host.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.' || c == '_';
      });
  if (!isName && AddressBytes(host).empty()) {
    throw std::runtime_error("'" + host + "' is neither a host name in lower case nor a numeric address");
  }
}

}  // namespace

Authority MakeAuthority(const std::vector<std::string>& onlyHosts) {
  for (const std::string& host : onlyHosts) CheckHost(host);
  Authority authority{.key = MakeKey(), .onlyHosts = onlyHosts};
  authority.root = BeginCertificate(authority.key, "kiv_proxy on this machine " + RandomHex(4), kRootDays);
  X509& root = *authority.root;
  Check(X509_set_issuer_name(&root, X509_get_subject_name(&root)) == 1, "make a certificate");
  AddExtension(root, root, NID_basic_constraints, "critical,CA:TRUE,pathlen:0");
  AddExtension(root, root, NID_key_usage, "critical,keyCertSign,cRLSign");
  AddExtension(root, root, NID_subject_key_identifier, "hash");
  if (!onlyHosts.empty()) AddExtension(root, root, NID_name_constraints, NameConstraints(onlyHosts));
  Sign(root, authority.key);
  return authority;
}

Leaf MakeLeaf(const Authority& authority, const std::string& host) {
  CheckHost(host);
  Leaf leaf{.key = MakeKey()};
  leaf.certificate = BeginCertificate(leaf.key, "intercepted by kiv_proxy", kLeafDays);
  X509& certificate = *leaf.certificate;
  X509& root = *authority.root;
  Check(X509_set_issuer_name(&certificate, X509_get_subject_name(&root)) == 1, "make a certificate");
  AddExtension(certificate, root, NID_basic_constraints, "critical,CA:FALSE");
  AddExtension(certificate, root, NID_key_usage, "critical,digitalSignature");
  AddExtension(certificate, root, NID_ext_key_usage, "serverAuth");
  AddExtension(certificate, root, NID_subject_key_identifier, "hash");
  AddExtension(certificate, root, NID_authority_key_identifier, "keyid:always");
  AddExtension(certificate, root, NID_subject_alt_name, (AddressBytes(host).empty() ? "DNS:" : "IP:") + host);
  Sign(certificate, authority.key);
  return leaf;
}

bool IsBelow(const std::string& host, const std::string& domain) {
  if (host == domain) return true;
  return host.size() > domain.size() && host.ends_with(domain) &&
         host[host.size() - domain.size() - 1] == '.';
}

bool MayCertify(const Authority& authority, const std::string& host) {
  const std::string address = AddressBytes(host);
  return authority.onlyHosts.empty() ||
         std::any_of(authority.onlyHosts.begin(), authority.onlyHosts.end(), [&](const std::string& only) {
           return address.empty() ? IsBelow(host, only) : AddressBytes(only) == address;
         });
}

std::string RootKeyHash(const Authority& authority) {
  unsigned char* encoded = nullptr;
  const int size = i2d_X509_PUBKEY(X509_get_X509_PUBKEY(authority.root.get()), &encoded);
  Check(size > 0, "encode a key");
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest;
  unsigned int digestSize = 0;
  const bool ok =
      EVP_Digest(encoded, static_cast<size_t>(size), digest.data(), &digestSize, EVP_sha256(), nullptr) == 1;
  OPENSSL_free(encoded);
  Check(ok, "hash a key");
  std::array<unsigned char, 4 * EVP_MAX_MD_SIZE> text;
  const int length = EVP_EncodeBlock(text.data(), digest.data(), static_cast<int>(digestSize));
  return {reinterpret_cast<const char*>(text.data()), static_cast<size_t>(length)};
}

}  // namespace live
