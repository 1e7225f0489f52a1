// A private certificate authority, with which the proxy can act as a server for one browser that was told to
// trust it. Any thread.
#ifndef LIVE_PROXY_CA_AUTHORITY_H_
#define LIVE_PROXY_CA_AUTHORITY_H_

#include <memory>
#include <string>
#include <vector>

struct evp_pkey_st;  // OpenSSL's EVP_PKEY and X509
struct x509_st;

namespace live {

// All keys are ECDSA keys on P-256. Functions that make or read something throw std::runtime_error with a
// message for the user.
using PrivateKey = std::shared_ptr<evp_pkey_st>;
using Certificate = std::shared_ptr<x509_st>;

struct Authority {
  PrivateKey key;
  Certificate root;
  // If not empty, browsers accept its certificates only for these names, the names below them, and these
  // addresses. The root certificate itself contains this restriction.
  std::vector<std::string> onlyHosts;
};

// Makes a new authority in memory, valid for ten years. Hosts are names or numeric addresses.
Authority MakeAuthority(const std::vector<std::string>& onlyHosts = {});

// Writes "authority.pem" (the key and the root, which only the user can read) and "root.pem" (what browsers
// are told to trust) into the folder, which is made if necessary. The first file is written completely or not
// at all. An existing authority is not replaced, because browsers may trust it.
void StoreAuthority(const Authority& authority, const std::string& folder);
// Reads "authority.pem". Refuses it if other users may read it, if it belongs to another user, or if it is
// not an authority or has expired.
Authority LoadAuthority(const std::string& folder);

// The root as text of a PEM file.
std::string RootAsPem(const Authority& authority);
// The hash of the root's public key for Chromium's --ignore-certificate-errors-spki-list: SHA-256, in base64.
std::string RootKeyHash(const Authority& authority);

struct Leaf {
  PrivateKey key;
  Certificate certificate;
};
// Makes a new certificate for a server with that name or numeric address (IPv6 without brackets), valid for a
// week.
Leaf MakeLeaf(const Authority& authority, const std::string& host);
// Whether a browser that trusts the root accepts a certificate for this host.
bool MayCertify(const Authority& authority, const std::string& host);

// "a.test" is below "a.test" and "test".
bool IsBelow(const std::string& host, const std::string& domain);

}  // namespace live

#endif  // LIVE_PROXY_CA_AUTHORITY_H_
