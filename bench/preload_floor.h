// The floor's side of held preloads: the records that the plugin makes on the way from an order to a finished
// response, made in the same order so that both sides lie in memory alike. One thread.
#ifndef BENCH_PRELOAD_FLOOR_H_
#define BENCH_PRELOAD_FLOOR_H_

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bench/floor_records.h"
#include "bench/plugin_driver.h"

namespace bench {

struct PreloadFloor {
  KnownUrls known;
  HeldPreloads preloads;

  HeldPreload& Launch(const std::string& url, uint32_t pageHash) {
    const uint32_t urlHash = CorvaneHash(url.c_str());
    known.try_emplace(urlHash, KnownUrl{.url = url, .mainUrlHash = pageHash});
    auto made = std::make_unique<HeldPreload>();
    made->url = url;
    made->urlHash = urlHash;
    made->requestHeaders = PageHeaders();
    return *preloads.emplace(urlHash, std::move(made)).first->second;
  }

  void Hold(const std::vector<std::string>& urls, uint32_t pageHash, const net::HttpResponseHeaders& headers,
            const std::string& body) {
    for (const std::string& url : urls) {
      HeldPreload& preload = Launch(url, pageHash);
      preload.responseHeaders = headers.raw_headers();
      preload.data = std::make_unique_for_overwrite<char[]>(body.size());
      std::memcpy(preload.data.get(), body.data(), body.size());
    }
  }
};

}  // namespace bench

#endif  // BENCH_PRELOAD_FLOOR_H_
