#include "live/proxy/front/response_head.h"

#include <boost/beast/http/status.hpp>
#include <ostream>  // the header above needs it
#include <string_view>

#include "host/http/connection_headers.h"
#include "host/http/header_block.h"
#include "net/http/header_text.h"

namespace live {
namespace {

std::string FirstLine(const net::HttpResponseHeaders& headers) {
  std::string_view line = http::StatusLine(headers.raw_headers());
  line = line.substr(0, line.find_first_of("\r\n"));
  const size_t blank = line.find(' ');
  return "HTTP/1.1" + std::string(blank == std::string_view::npos ? "" : line.substr(blank)) + "\r\n";
}

// Without those of one connection and without the length; and without what could be taken for another line.
std::string HeaderLinesFor(const net::HttpResponseHeaders& headers) {
  std::string lines;
  http::ForEachHeader(headers.raw_headers(), [&lines](std::string_view name, std::string_view value) {
    if (http::IsOfOneConnection(name) || net::EqualsIgnoringCase(name, "content-length")) return;
    if (name.find_first_of("\r\n") != std::string_view::npos) return;
    if (value.find_first_of("\r\n") != std::string_view::npos) return;
    lines.append(name).append(": ").append(value).append("\r\n");
  });
  return lines;
}

}  // namespace

ResponseHead MakeResponseHead(const net::HttpResponseHeaders& headers, const std::string& method, bool http10,
                              bool keepAlive) {
  const int status = headers.response_code();
  const int64_t length = headers.GetContentLength();
  const bool noContent = status == 204;
  ResponseHead head{.text = FirstLine(headers) + HeaderLinesFor(headers)};
  if (method == "HEAD" || noContent || status == 304) {
    head.framing = Framing::NoBody;
  } else if (length >= 0) {
    head.framing = Framing::Length;
    head.length = length;
  } else {
    head.framing = http10 ? Framing::UntilClose : Framing::Chunked;
  }
  if (length >= 0 && !noContent) head.text += "Content-Length: " + std::to_string(length) + "\r\n";
  if (head.framing == Framing::Chunked) head.text += "Transfer-Encoding: chunked\r\n";
  head.keepAlive = keepAlive && head.framing != Framing::UntilClose;
  if (!head.keepAlive) head.text += "Connection: close\r\n";
  if (head.keepAlive && http10) head.text += "Connection: keep-alive\r\n";
  head.text += "\r\n";
  return head;
}

std::string MakeInformationalHead(const net::HttpResponseHeaders& headers) {
  const int status = headers.response_code();
  // 100 is between two neighbours, and 101 answers what was not asked for.
  if (status < 102 || status > 199) return {};
  return FirstLine(headers) + HeaderLinesFor(headers) + "\r\n";
}

std::string MakeErrorPage(int status, const std::string& what, const std::string& method, bool keepAlive,
                          const std::string& headerLines) {
  const auto reason = boost::beast::http::obsolete_reason(static_cast<boost::beast::http::status>(status));
  const std::string title = std::to_string(status) + " " + std::string(reason.data(), reason.size());
  const std::string body = "The proxy on this machine: " + title + "\n\n" + what + "\n";
  std::string page = "HTTP/1.1 " + title + "\r\n" + headerLines;
  page += "Content-Type: text/plain; charset=utf-8\r\nX-Content-Type-Options: nosniff\r\n";
  page += "Cache-Control: no-store\r\nContent-Length: " + std::to_string(body.size()) + "\r\n";
  if (!keepAlive) page += "Connection: close\r\n";
  page += "\r\n";
  return method == "HEAD" ? page : page + body;
}

}  // namespace live
