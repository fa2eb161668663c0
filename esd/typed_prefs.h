// Typed preferences: one element of a preferences file with its value type
// and default, read and written through the file's PrefsWriter.
//
// A map preference is stored as one element with a "MapPrefEntry" child per
// entry, in key order, each carrying its key in the attribute "MapPrefKey"
// and its value as text ("1"/"0" for bools).
#ifndef ORU_ESD_TYPED_PREFS_H
#define ORU_ESD_TYPED_PREFS_H

#include "esd/change_type.h"
#include "esd/expat_dom_builder.h"
#include "esd/prefs_writer.h"
#include "esd/xml_node.h"

#include <boost/noncopyable.hpp>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

namespace esd {

template <typename T> class BasicPref : private boost::noncopyable {
public:
  BasicPref() = default;
  BasicPref(std::string pref_key, T default_value)
      : key(std::move(pref_key)), defaultValue(std::move(default_value)) {}
  virtual ~BasicPref() = default;

  // The stored value, or the default when the element is missing or empty.
  virtual bool Get(T& out) { return prefs && prefs->GetPref<T>(key, out, defaultValue); }
  // Stores the value and saves the file.
  virtual bool Set(const T& value) { return prefs && prefs->SetPref<T>(key, value); }
  // Compares with the default only; the file is not read.
  virtual bool IsDefault(const T& value) { return value == defaultValue; }

  PrefsWriter* prefs = nullptr;
  std::string key;
  T defaultValue{};
};

template <typename K, typename V> class MapPref : private boost::noncopyable {
  static_assert(std::is_same_v<K, std::string>, "map preferences have string keys");
  static_assert(std::is_same_v<V, bool> || std::is_same_v<V, std::string>,
                "map preferences hold bools or strings");

public:
  static constexpr const char* kEntryName = "MapPrefEntry";
  static constexpr const char* kKeyAttribute = "MapPrefKey";

  MapPref() = default;
  explicit MapPref(std::string pref_key) : key(std::move(pref_key)) {}
  virtual ~MapPref() = default;

  // A missing element is an empty map. An entry without a key, or with a
  // value that does not convert, makes the whole map empty and false.
  virtual bool Get(std::map<K, V>& out) {
    out.clear();
    XMLDocumentNode* element = nullptr;
    if (!prefs || !prefs->GetPref(key, element) || !element) {
      return true;
    }
    return EntriesOf(element, out);
  }

  // The entries of a map's element, as Get reads them.
  static bool EntriesOf(const XMLDocumentNode* element, std::map<K, V>& out) {
    out.clear();
    if (!element) {
      return true;
    }
    for (const auto& entry : element->children) {
      const std::optional<std::string_view> entry_key = entry->AttributeValue(kKeyAttribute);
      V value{};
      if (!entry_key || !FromText(entry->GetData(), value)) {
        out.clear();
        return false;
      }
      out[std::string(*entry_key)] = value;
    }
    return true;
  }

  // Replaces the whole element (it moves to the end of the root) and saves.
  virtual bool Set(const std::map<K, V>& value) {
    if (!prefs) {
      return false;
    }
    // A key is an attribute value, and goes in a tag the reader takes whole:
    // it must stay well within the longest markup the reader accepts.
    constexpr size_t kMaxKeyBytes = ExpatDOMBuilder<XMLDocumentNode>::kMaxMarkupBytes / 4;
    if (value.size() >= ExpatDOMBuilder<XMLDocumentNode>::kMaxNodes / 2) {
      return false;
    }
    for (const auto& [entry_key, entry_value] : value) {
      if (!IsStorableText(entry_key) || entry_key.size() > kMaxKeyBytes) {
        return false;
      }
      if constexpr (std::is_same_v<V, std::string>) {
        if (!IsStorableText(entry_value)) {
          return false;
        }
      }
    }
    PrefsWriter::ScopedLock lock(*prefs);
    if (!lock.held()) {
      return false;
    }
    auto element = std::make_unique<XMLDocumentNode>(key);
    for (const auto& [entry_key, entry_value] : value) {
      std::string text;
      if (!ToText(entry_value, text)) {
        return false;
      }
      auto entry = std::make_unique<XMLDocumentNode>(kEntryName);
      entry->SetAttributeData(kKeyAttribute, entry_key);
      entry->SetData(text);
      element->AddChild(entry.release());
    }
    return prefs->SetPref(key, std::move(element));
  }

  PrefsWriter* prefs = nullptr;
  std::string key;

private:
  static bool FromText(const std::string& text, V& value) {
    if constexpr (std::is_same_v<V, std::string>) {
      value = text;
      return true;
    } else {
      return ChangeDiffTypeImpl<std::string, V>::ChangeType(text, value);
    }
  }

  static bool ToText(const V& value, std::string& text) {
    if constexpr (std::is_same_v<V, std::string>) {
      text = value;
      return true;
    } else {
      return ChangeDiffTypeImpl<V, std::string>::ChangeType(value, text);
    }
  }
};

} // namespace esd

#endif // ORU_ESD_TYPED_PREFS_H
