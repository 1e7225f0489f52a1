// GURL: a URL as text, and its host and port.
#ifndef URL_GURL_H_
#define URL_GURL_H_

#include <string>

class GURL {
 public:
  // The empty, invalid URL.
  GURL();
  explicit GURL(const std::string& url);
  GURL(const GURL&);
  ~GURL();
  GURL& operator=(const GURL&);

  // The text that the URL was made from; empty if it is invalid.
  const std::string& spec() const;
  // True for an absolute URL with a scheme, and with a host if the scheme requires one.
  bool is_valid() const;

  // Resolves a reference relative to this URL ("/a", "../b?c", "//server/d", "https://..."), and removes the
  // fragment. The result is invalid if this URL has no host.
  GURL Resolve(const std::string& reference) const;

  // The host in lower case, without user, port and path ("[::1]" with brackets); empty if there is none.
  const std::string& host() const;
  // The port in the URL, else the scheme's default (http and ws 80, https and wss 443), else -1.
  int EffectiveIntPort() const;

 private:
  std::string spec_;
  std::string host_;
  int port_ = -1;
};

#endif  // URL_GURL_H_
