// One preference of the updater's set seen through what does not depend on
// its type, so that tools list, read, write and reset every key the same
// way. Values go in and out as text: bools "1" or "0", numbers in decimal,
// strings as they are, maps as KEY=VALUE pairs joined by ",".
#ifndef ORU_ESD_UPDATER_PREF_SLOT_H
#define ORU_ESD_UPDATER_PREF_SLOT_H

#include "esd/change_type.h"
#include "esd/prefs_writer.h"
#include "esd/typed_prefs.h"

#include <map>
#include <string>
#include <type_traits>

namespace esd {

class UpdaterPrefSlot {
public:
  virtual ~UpdaterPrefSlot() = default;
  virtual const char* key() const = 0;
  // "bool", "int", "unsigned long", "string", "map of bool" or "map of string".
  virtual const char* type() const = 0;
  virtual std::string DefaultText() const = 0;
  virtual void Attach(PrefsWriter* writer) = 0;
  // The stored value; false when the stored text does not convert.
  virtual bool ReadText(std::string& text, bool& is_default) = 0;
  // The same, read from the key's element in a document already in hand
  // (null when the key is missing): a look that takes no lock.
  virtual bool ReadTextFrom(const XMLDocumentNode* element, std::string& text,
                            bool& is_default) const = 0;
  // Stores a value given as text; `converted` is false when the text is no
  // value of the type (and then nothing is stored).
  virtual bool StoreText(const std::string& text, bool& converted) = 0;
  virtual bool Reset() = 0;
};

namespace slot_text {

template <typename T> std::string From(const T& value) {
  if constexpr (std::is_same_v<T, std::string>) {
    return value;
  } else if constexpr (std::is_same_v<T, bool>) {
    return value ? "1" : "0";
  } else {
    return std::to_string(value);
  }
}

template <typename T> bool To(const std::string& text, T& value) {
  if constexpr (std::is_same_v<T, std::string>) {
    value = text;
    return true;
  } else if constexpr (std::is_unsigned_v<T>) {
    // A stream reads "-1" as the largest number; a sign is refused instead.
    return text.find('-') == std::string::npos &&
           ChangeDiffTypeImpl<std::string, T>::ChangeType(text, value);
  } else {
    return ChangeDiffTypeImpl<std::string, T>::ChangeType(text, value);
  }
}

template <typename V> std::string FromMap(const std::map<std::string, V>& map) {
  std::string text;
  for (const auto& [key, value] : map) {
    text += (text.empty() ? "" : ",") + key + "=" + From(value);
  }
  return text;
}

template <typename V> bool ToMap(const std::string& text, std::map<std::string, V>& map) {
  size_t start = 0;
  while (start < text.size()) {
    const size_t end = std::min(text.find(',', start), text.size());
    const std::string pair = text.substr(start, end - start);
    const size_t equals = pair.find('=');
    V value{};
    if (equals == std::string::npos || equals == 0 || !To(pair.substr(equals + 1), value)) {
      return false;
    }
    map[pair.substr(0, equals)] = value;
    start = end + 1;
  }
  return true;
}

template <typename T> constexpr const char* TypeName() {
  if constexpr (std::is_same_v<T, bool>) {
    return "bool";
  } else if constexpr (std::is_same_v<T, int>) {
    return "int";
  } else if constexpr (std::is_same_v<T, unsigned long>) {
    return "unsigned long";
  } else {
    return "string";
  }
}

} // namespace slot_text

template <typename T> class ScalarSlot : public UpdaterPrefSlot {
public:
  explicit ScalarSlot(BasicPref<T>& pref) : pref_(pref) {}
  const char* key() const override { return pref_.key.c_str(); }
  const char* type() const override { return slot_text::TypeName<T>(); }
  std::string DefaultText() const override { return slot_text::From(pref_.defaultValue); }
  void Attach(PrefsWriter* writer) override { pref_.prefs = writer; }
  bool ReadText(std::string& text, bool& is_default) override {
    T value{};
    const bool read = pref_.Get(value);
    text = slot_text::From(value);
    is_default = read && pref_.IsDefault(value);
    return read;
  }
  bool ReadTextFrom(const XMLDocumentNode* element, std::string& text,
                    bool& is_default) const override {
    T value{};
    const bool read = ValueOfElement(element, value, pref_.defaultValue);
    text = slot_text::From(value);
    is_default = read && value == pref_.defaultValue;
    return read;
  }
  bool StoreText(const std::string& text, bool& converted) override {
    T value{};
    converted = slot_text::To(text, value);
    return converted && pref_.Set(value);
  }
  bool Reset() override { return pref_.Set(pref_.defaultValue); }

private:
  BasicPref<T>& pref_;
};

template <typename V> class MapSlot : public UpdaterPrefSlot {
public:
  explicit MapSlot(MapPref<std::string, V>& pref) : pref_(pref) {}
  const char* key() const override { return pref_.key.c_str(); }
  const char* type() const override {
    return std::is_same_v<V, bool> ? "map of bool" : "map of string";
  }
  std::string DefaultText() const override { return std::string(); }
  void Attach(PrefsWriter* writer) override { pref_.prefs = writer; }
  bool ReadText(std::string& text, bool& is_default) override {
    std::map<std::string, V> map;
    const bool read = pref_.Get(map);
    text = slot_text::FromMap(map);
    is_default = false; // a map has no default but the empty map
    return read;
  }
  bool ReadTextFrom(const XMLDocumentNode* element, std::string& text,
                    bool& is_default) const override {
    std::map<std::string, V> map;
    const bool read = MapPref<std::string, V>::EntriesOf(element, map);
    text = slot_text::FromMap(map);
    is_default = false;
    return read;
  }
  bool StoreText(const std::string& text, bool& converted) override {
    std::map<std::string, V> map;
    converted = slot_text::ToMap(text, map);
    return converted && pref_.Set(map);
  }
  bool Reset() override { return pref_.Set({}); }

private:
  MapPref<std::string, V>& pref_;
};

} // namespace esd

#endif // ORU_ESD_UPDATER_PREF_SLOT_H
