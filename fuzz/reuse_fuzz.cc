// The rules by which a preload may answer a request, against a slow model of them. The model takes the two
// requests and the response as records and never reads a header; the rules get them as text.
#include <algorithm>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/check.h"
#include "fuzz/fuzz_input.h"
#include "host/http/conditions.h"
#include "host/http/dates.h"
#include "host/reuse_rules.h"

namespace {

using host::NotServed;
using Items =
    std::optional<std::vector<std::string>>;  // of a header that is a list; nothing when it is absent

struct Tag {
  char opaque;
  bool weak;
};

struct Ask {
  std::string method = "GET";
  bool hasBody = false, withCredentials = true;
  std::set<NotServed> refusals;  // by further headers
  std::vector<std::string> cookies;
  Items a, b;
  std::optional<std::vector<std::pair<std::string, bool>>> codings;  // whether each is accepted
  bool anyTag = false;
  std::vector<Tag> tags;  // of If-None-Match
  std::optional<int> since;
};

struct Answer {
  bool variesByA = false, variesByB = false, variesByAll = false;
  std::vector<std::string> codings;
  std::optional<Tag> tag;
  std::optional<int> modified;
};

// --- As text, in one of many ways to write it.

class Writer {
 public:
  Writer(FuzzInput& input, std::string end) : input_(input), end_(std::move(end)) {}

  void Line(std::string name, const std::string& value) {
    for (char& c : name) {
      if (input_.Flag()) c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
    }
    text += name + ":" + Blanks() + value + Blanks() + end_;
  }
  // Over one or more lines.
  void List(const char* name, const std::vector<std::string>& items, const char* separator = ",") {
    std::string value;
    for (const std::string& item : items) {
      const bool first = value.empty();
      if (!first && input_.Byte() % 4 == 0) {
        Line(name, std::exchange(value, item));
      } else {
        value += (first ? "" : Blanks() + separator + Blanks()) + item;
      }
    }
    Line(name, value);
  }
  void Noise() {
    if (input_.Byte() % 4 == 0) Line("x-noise", "\"range: bytes=0-1, no-cache");
  }

  std::string text;

 private:
  std::string Blanks() { return std::string(input_.Byte() % 3, input_.Flag() ? ' ' : '\t'); }

  FuzzInput& input_;
  const std::string end_;
};

std::string Date(int day) {
  return http::FormatHttpDate(784111777e3 + 86'400e3 * day);
}

std::string Text(const Tag& tag) {
  return std::string(tag.weak ? "W/" : "") + "\"," + tag.opaque + "\"";
}

// --- What the fuzzer chooses.

Items MakeItems(FuzzInput& input) {
  if (input.Flag()) return std::nullopt;
  Items items(std::in_place);
  for (int more = input.Byte() % 3; more > 0; --more) items->push_back(input.Flag() ? "x" : "\"y,z\"");
  return items;
}

Tag MakeTag(FuzzInput& input) {
  return {static_cast<char>('a' + input.Byte() % 3), input.Flag()};
}

std::string MakeAsk(FuzzInput& input, Ask& ask) {
  const char* const methods[] = {"GET", "GET", "GET", "GET", "POST", "HEAD", "get"};
  const struct {
    const char *name, *value;
    NotServed why;
  } refusals[] = {{"range", "bytes=0-", NotServed::Range},
                  {"if-match", "*", NotServed::Precondition},
                  {"if-range", "\"a\"", NotServed::Precondition},
                  {"if-unmodified-since", "x", NotServed::Precondition},
                  {"authorization", "Basic eA==", NotServed::Authorization},
                  {"transfer-encoding", "chunked", NotServed::HasRequestBody},
                  {"cache-control", "max-age=0, no-cache", NotServed::AsksForNewCopy},
                  {"cache-control", "a=\"b, c\",NO-STORE", NotServed::AsksForNewCopy},
                  {"pragma", "x, no-cache", NotServed::AsksForNewCopy}};
  Writer writer(input, "\r\n");
  ask.method = input.OneOf(methods);
  ask.hasBody = input.Byte() % 8 == 1;
  ask.withCredentials = input.Byte() % 8 != 1;
  while (input.Byte() % 4 == 1) {
    const auto& refusal = input.OneOf(refusals);
    ask.refusals.insert(refusal.why);
    writer.Line(refusal.name, refusal.value);
    writer.Noise();
  }
  for (int more = input.Byte() % 4; more > 0; --more) {
    ask.cookies.push_back(input.Flag() ? "a=1" : input.Flag() ? "b" : "a=");
  }
  if (!ask.cookies.empty()) writer.List("cookie", ask.cookies, ";");
  if ((ask.a = MakeItems(input))) writer.List("a", *ask.a);
  if ((ask.b = MakeItems(input))) writer.List("b", *ask.b);
  if (input.Flag()) {
    ask.codings.emplace();
    std::vector<std::string> list;
    for (const char* const coding : {"br", "gzip", "identity", "*"}) {
      const uint8_t how = input.Byte() % 4;
      if (how == 0) continue;
      ask.codings->emplace_back(coding, how != 3);
      list.push_back(std::string(coding) + (how == 1 ? "" : how == 2 ? ";a=\"q=0\";q=0.001" : " ; Q=0.000"));
    }
    writer.List("accept-encoding", list);
  }
  if (input.Flag()) {
    std::vector<std::string> list;
    if ((ask.anyTag = input.Byte() % 8 == 0)) list.push_back("*");
    for (int more = ask.anyTag ? 0 : input.Byte() % 3 + 1; more > 0; --more) {
      ask.tags.push_back(MakeTag(input));
      list.push_back(Text(ask.tags.back()));
    }
    writer.List("if-none-match", list);
  }
  if (input.Flag()) writer.Line("if-modified-since", Date(*(ask.since = input.Byte() % 4)));
  return writer.text;
}

std::string MakeAnswer(FuzzInput& input, Answer& answer) {
  Writer writer(input, std::string(1, '\0'));
  writer.text = std::string("HTTP/1.1 200 OK\0", 16);
  writer.Noise();
  std::vector<std::string> names;
  if ((answer.variesByA = input.Flag())) names.push_back(input.Flag() ? "a" : "A");
  if ((answer.variesByB = input.Flag())) names.push_back("B");
  if ((answer.variesByAll = input.Byte() % 16 == 1)) names.push_back("*");
  if (!names.empty()) writer.List("vary", names);
  for (int more = input.Byte() % 3; more > 0; --more) answer.codings.push_back(input.Flag() ? "br" : "gzip");
  if (!answer.codings.empty()) writer.List("content-encoding", answer.codings);
  if (input.Flag()) writer.Line("etag", Text(*(answer.tag = MakeTag(input))));
  if (input.Flag()) writer.Line("last-modified", Date(*(answer.modified = input.Byte() % 4)));
  return writer.text + '\0';
}

// --- The rules.

bool Accepts(const Ask& ask, const std::string& coding) {
  if (!ask.codings) return true;
  for (const char* const name : {coding.c_str(), "*"}) {
    for (const auto& [listed, accepted] : *ask.codings) {
      if (listed == name) return accepted;
    }
  }
  return coding == "identity";
}

bool ClientHas(const Ask& ask, const Answer& answer) {
  if (ask.anyTag) return true;
  if (!ask.tags.empty()) {
    return answer.tag && std::any_of(ask.tags.begin(), ask.tags.end(),
                                     [&](const Tag& tag) { return tag.opaque == answer.tag->opaque; });
  }
  return ask.since && answer.modified && *answer.modified <= *ask.since;
}

std::set<NotServed> WhyNot(const Ask& ask, const Ask& sent, const Answer& answer) {
  std::set<NotServed> why;
  if (ask.withCredentials != sent.withCredentials) why.insert(NotServed::OtherCredentials);
  if (!std::is_permutation(ask.cookies.begin(), ask.cookies.end(), sent.cookies.begin(),
                           sent.cookies.end())) {
    why.insert(NotServed::OtherCookies);
  }
  const bool sameA = ask.a == sent.a || !answer.variesByA, sameB = ask.b == sent.b || !answer.variesByB;
  if (answer.variesByAll || !sameA || !sameB) why.insert(NotServed::OtherVariant);
  std::vector<std::string> codings = answer.codings;
  if (codings.empty()) codings.push_back("identity");
  for (const std::string& coding : codings) {
    if (!Accepts(ask, coding)) why.insert(NotServed::CodingNotAccepted);
  }
  return why;
}

// Any of the reasons will do.
void Check(NotServed said, const std::set<NotServed>& why) {
  FUZZ_CHECK(why.empty() ? said == NotServed::None : why.contains(said));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput input(data, size);
  Ask ask, sent;
  Answer answer;
  const std::string askText = MakeAsk(input, ask), sentText = MakeAsk(input, sent);
  const std::string block = MakeAnswer(input, answer);
  const host::RequestFacts asked{ask.method, askText, ask.hasBody, ask.withCredentials};
  const host::RequestFacts before{sent.method, sentText, sent.hasBody, sent.withCredentials};

  std::set<NotServed> refusals = ask.refusals;
  if (ask.method != "GET") refusals.insert(NotServed::NotGet);
  if (ask.hasBody) refusals.insert(NotServed::HasRequestBody);
  Check(host::WhyNotReusable(asked), refusals);
  Check(host::WhyNotAnswer(asked, before, block), WhyNot(ask, sent, answer));
  FUZZ_CHECK(http::IsNotModified(askText, block) == ClientHas(ask, answer));
  // What is repeated has nothing that would be refused, and answers itself but for the cookies.
  const std::string repeated = host::HeadersToRepeat(askText);
  FUZZ_CHECK(host::WhyNotReusable({.method = "GET", .headers = repeated}) == NotServed::None);
  FUZZ_CHECK(host::HeadersToRepeat(repeated) == repeated);
  return 0;
}
