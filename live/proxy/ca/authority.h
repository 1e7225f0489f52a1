// A private certificate authority: what lets the proxy stand in for servers before one browser that was told
// to trust it. Any thread.
#ifndef LIVE_PROXY_CA_AUTHORITY_H_
#define LIVE_PROXY_CA_AUTHORITY_H_

#include <memory>
#include <string>
#include <vector>

struct evp_pkey_st;  // OpenSSL's EVP_PKEY and X509
struct x509_st;

namespace live {

// All keys are of ECDSA on P-256. Functions that make or read throw std::runtime_error with a message for the
// user.
using PrivateKey = std::shared_ptr<evp_pkey_st>;
using Certificate = std::shared_ptr<x509_st>;

struct Authority {
  PrivateKey key;
  Certificate root;
  // When not empty, browsers accept its certificates for these names and those below them, and for these
  // addresses alone: the root itself says so.
  std::vector<std::string> onlyHosts;
};

// A new one, valid for ten years, that exists in memory alone. Hosts are names or numeric addresses.
Authority MakeAuthority(const std::vector<std::string>& onlyHosts = {});

// Writes "authority.pem" (the key and the root, readable by nobody else) and "root.pem" (what browsers are
// told to trust) into the folder, which is made if need be. The first appears whole or not at all. An
// authority that is there already is not replaced: browsers may trust it.
void StoreAuthority(const Authority& authority, const std::string& folder);
// Reads "authority.pem". Refuses it when others may read it, when it belongs to another user, and when it is
// no authority, or one that has run out.
Authority LoadAuthority(const std::string& folder);

// The root as a PEM file's text.
std::string RootAsPem(const Authority& authority);
// The root's public key as Chromium's list of certificates to ignore errors of wants it: SHA-256, in base64.
std::string RootKeyHash(const Authority& authority);

struct Leaf {
  PrivateKey key;
  Certificate certificate;
};
// A new certificate for a server of that name or numeric address (of IPv6 without brackets), valid for a
// week.
Leaf MakeLeaf(const Authority& authority, const std::string& host);
// Whether a browser that trusts the root accepts such a leaf.
bool MayCertify(const Authority& authority, const std::string& host);

// "a.test" is below "a.test" and "test".
bool IsBelow(const std::string& host, const std::string& domain);

}  // namespace live

#endif  // LIVE_PROXY_CA_AUTHORITY_H_
