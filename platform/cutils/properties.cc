#include "cutils/properties.h"

#include <cstring>
#include <map>
#include <mutex>
#include <string>

namespace {

struct Store {
  std::mutex mutex;
  std::map<std::string, std::string, std::less<>> values;
};

Store& GetStore() {
  static Store store;
  return store;
}

}  // namespace

extern "C" int property_get(const char* key, char* value, const char* default_value) {
  const char* text = default_value != nullptr ? default_value : "";
  Store& store = GetStore();
  const std::lock_guard hold(store.mutex);
  const auto found = store.values.find(key);
  if (found != store.values.end()) text = found->second.c_str();
  const size_t length = strnlen(text, PROPERTY_VALUE_MAX - 1);
  memcpy(value, text, length);
  value[length] = '\0';
  return static_cast<int>(length);
}

extern "C" int property_set(const char* key, const char* value) {
  if (key == nullptr || *key == '\0') return -1;
  const std::string text = value != nullptr ? value : "";
  if (text.size() >= PROPERTY_VALUE_MAX) return -1;
  Store& store = GetStore();
  const std::lock_guard hold(store.mutex);
  if (text.empty()) {
    store.values.erase(key);
  } else {
    store.values[key] = text;
  }
  return 0;
}
