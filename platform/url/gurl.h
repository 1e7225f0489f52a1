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

  // The text that it was made from; empty when invalid.
  const std::string& spec() const;
  // True for an absolute URL with a scheme, and with a host where the scheme asks for one.
  bool is_valid() const;

  // What a reference found at this URL stands for ("/a", "../b?c", "//server/d", "https://..."); invalid when
  // this URL has no host. The fragment goes.
  GURL Resolve(const std::string& reference) const;

  // Lower-case host without user, port or path ("[::1]" with its brackets); empty when there is none.
  const std::string& host() const;
  // The port written, else the scheme's default (http and ws 80, https and wss 443), else -1.
  int EffectiveIntPort() const;

 private:
  std::string spec_;
  std::string host_;
  int port_ = -1;
};

#endif  // URL_GURL_H_
