// A page database with damage: bytes that are another's, or values that no run has written. Whatever it
// holds, the program begins, believes nothing that it would not write itself, and stores what it learns.
#include <stdlib.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "fuzz/check.h"
#include "fuzz/fuzz_input.h"
#include "host/page_database.h"
#include "live/state/page_store.h"
#include "live/state/privacy_rules.h"
#include "live/state/sqlite.h"

namespace {

namespace fs = std::filesystem;

constexpr size_t kMaxPages = 3;
const std::string kPages[] = {"https://a.test/", "https://b.test/?q=1"};

struct Folder {
  Folder() {
    std::string made = (fs::temp_directory_path() / "state-fuzz-XXXXXX").string();
    if (mkdtemp(made.data()) == nullptr) throw std::runtime_error("no folder can be made");
    path = made;
  }
  ~Folder() { fs::remove_all(path); }
  fs::path path;
};

// One run of the program.
struct Run {
  explicit Run(const std::string& path)
      : store(path, kMaxPages, [this](const std::string& message) { told.push_back(message); }) {
    store.Attach(pages);
  }
  void Visit(const std::string& url) {
    host::PageVisit visit(url, settings);
    for (const char* const name : {"https://cdn.test/a.css", "https://cdn.test/b.js"}) {
      visit.ResourceSeen({.url = name, .headers = "Accept: */*\r\n"});
    }
    pages.Remember(std::move(visit));
  }

  host::HostSettings settings{.maxPages = kMaxPages, .maxResourcesPerPage = 5};
  std::vector<std::string> told;
  live::PageStore store;
  host::PageDatabase pages{settings};
};

std::string Bytes(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// A small database that earlier runs have written, without anything beside it.
const std::string& GoodFile(const std::string& path) {
  static const std::string bytes = [&path] {
    for (int visit = 0; visit < 3; ++visit) {
      Run run(path);
      for (const std::string& page : kPages) run.Visit(page);
    }
    live::SqliteFile(path, 0).Run("PRAGMA journal_mode=DELETE; VACUUM");
    return Bytes(path);
  }();
  return bytes;
}

void ChangeBytes(FuzzInput& input, const std::string& path) {
  std::string bytes = GoodFile(path);
  while (!input.Empty()) {
    const size_t at = input.Number() % bytes.size();
    bytes[at] = static_cast<char>(bytes[at] ^ input.Byte());
  }
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

void ChangeValues(FuzzInput& input, const std::string& path) {
  const char* const columns[] = {
      "resources SET url",        "resources SET kind",      "resources SET get",
      "resources SET asked_us",   "resources SET waited_us", "resources SET visits_seen",
      "resources SET last_visit", "resources SET status",    "resources SET declared_length",
      "resources SET headers",    "resources SET html",      "pages SET url",
      "pages SET host",           "pages SET visits",        "pages SET saved",
      "groups SET name",          "groups SET visits_seen",  "groups SET last_visit"};
  std::ofstream(path, std::ios::binary | std::ios::trunc) << GoodFile(path);
  live::SqliteFile file(path, 0);
  while (!input.Empty()) {
    const std::string column = input.OneOf(columns);
    const std::string where = " WHERE rowid % 2 = " + std::to_string(input.Byte() % 2);
    std::string value;
    if (input.Flag()) {
      value = std::to_string(static_cast<int64_t>(uint64_t{input.Number()} << 32 | input.Number()));
    } else {
      constexpr char kHex[] = "0123456789abcdef";
      for (const char c : input.Bytes(input.Byte())) {
        value += kHex[static_cast<uint8_t>(c) >> 4];
        value += kHex[c & 15];
      }
      value = input.Flag() ? "x'" + value + "'" : "CAST(x'" + value + "' AS TEXT)";
    }
    try {
      file.Run(("UPDATE OR IGNORE " + column + " = " + value +
                (column.starts_with("pages") ? where : " WHERE page % 2 = 1"))
                   .c_str());
    } catch (const live::SqliteError&) {
      // A type or a rule of the table's.
    }
  }
}

void CheckPage(const host::PageDatabase& pages, const std::string& url) {
  const host::KnownPage* const page = pages.Find(url);
  if (page == nullptr) return;
  FUZZ_CHECK(page->resources.size() <= 5 && page->groups.size() <= 5);
  for (const host::KnownResource& resource : page->resources) {
    FUZZ_CHECK(live::MayStoreUrl(resource.url) && live::MayStoreHeaders(resource.headersToRepeat));
    FUZZ_CHECK(resource.status >= -1 && resource.status <= 999 && resource.declaredLength >= -1);
    FUZZ_CHECK(resource.askedUs >= 0 && resource.waitedUs >= 0);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const Folder folder;
  const std::string path = folder.path / "pages.db";
  GoodFile(path);
  FuzzInput input(data, size);
  input.Flag() ? ChangeBytes(input, path) : ChangeValues(input, path);
  {
    Run run(path);
    FUZZ_CHECK(run.pages.PageCount() <= kMaxPages && run.told.size() <= 1);
    for (const std::string& page : kPages) CheckPage(run.pages, page);
    run.Visit(kPages[0]);
    run.Visit(kPages[0]);
    FUZZ_CHECK(run.pages.Find(kPages[0])->resources.size() >= 2);
    FUZZ_CHECK(run.told.size() <= 2);
    for (const std::string& message : run.told) FUZZ_CHECK(message.find('\n') == std::string::npos);
  }
  Run next(path);
  FUZZ_CHECK(next.told.size() <= 1);
  if (!next.told.empty()) return 0;  // another program's, or a later format's: it is left alone
  FUZZ_CHECK(next.pages.Find(kPages[0]) != nullptr);
  FUZZ_CHECK(next.pages.Find(kPages[0])->resources[0].url == "https://cdn.test/a.css");
  return 0;
}
