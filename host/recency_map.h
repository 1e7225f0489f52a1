// A bounded map: when it is full, the least recently used entry is removed. One thread.
#ifndef HOST_RECENCY_MAP_H_
#define HOST_RECENCY_MAP_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <utility>

namespace host {

template <typename Key, typename Value>
class RecencyMap {
 public:
  explicit RecencyMap(size_t capacity) : capacity_(capacity) {}

  // Does not count as a use. Valid until the entry is removed.
  const Value* Peek(const Key& key) const {
    const auto found = entries_.find(key);
    return found != entries_.end() ? &found->second.value : nullptr;
  }

  // Returns the value of the key, which is created if it does not exist and becomes the most recently used
  // one. Valid until the entry is removed.
  Value& Use(const Key& key) {
    const auto [place, isNew] = entries_.try_emplace(key);
    if (!isNew) byUse_.erase(place->second.use);
    place->second.use = ++lastUse_;
    byUse_.emplace(lastUse_, &place->first);
    return place->second.value;
  }

  bool Erase(const Key& key) {
    const auto found = entries_.find(key);
    if (found == entries_.end()) return false;
    byUse_.erase(found->second.use);
    entries_.erase(found);
    return true;
  }

  // Removes the least recently used entry if there are more than the capacity, and returns its key.
  std::optional<Key> DropExcess() {
    if (entries_.size() <= capacity_) return std::nullopt;
    const auto oldest = byUse_.begin();
    Key key = *oldest->second;
    byUse_.erase(oldest);
    entries_.erase(key);
    return key;
  }

  size_t Size() const { return entries_.size(); }

 private:
  struct Entry {
    Value value{};
    uint64_t use = 0;
  };

  const size_t capacity_;
  uint64_t lastUse_ = 0;
  std::map<Key, Entry> entries_;
  std::map<uint64_t, const Key*> byUse_;
};

}  // namespace host

#endif  // HOST_RECENCY_MAP_H_
