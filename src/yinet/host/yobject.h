#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "yinet/host/export.h"
#include "yinet/host/ybuffer.h"
#include "yinet/host/ydatetime.h"
#include "yinet/host/ystring.h"

class YObjectArray;

namespace yinet {

// Type codes of the values in a YObject.
inline constexpr std::uint8_t kTypeAny = 0;  // reading: no check; stored: a key without a value
inline constexpr std::uint8_t kTypeBool = 1;
inline constexpr std::uint8_t kTypeInteger = 2;
inline constexpr std::uint8_t kTypeString = 9;
inline constexpr std::uint8_t kTypeBuffer = 10;
inline constexpr std::uint8_t kTypeDateTime = 13;
inline constexpr std::uint8_t kTypeObject = 14;
inline constexpr std::uint8_t kTypeObjectArray = 15;

class RecordEntries;

}  // namespace yinet

// Dynamic record of typed values, the common currency of the library: script parameters, HTTP headers, mails.
//
// Three kinds of content live side by side: entries under string keys, entries under integer keys, and flags (one byte
// per entry, 0 by default, and one for the record itself, 1 by default). String keys are compared without regard to
// case (ASCII and the Windows-1252 letters), keep the spelling they were first stored with and their order of arrival;
// replacing a value keeps its place, deleting closes the gap. Finding a key costs the same however many there are.
//
// The record owns its values and copies deeply. A pointer to a value stays valid while other entries are added,
// replaced or deleted, and while the same entry is stored again with the same type. Moving a record keeps them valid
// too. A record belongs to one thread at a time; several threads may read one that nobody changes.
class YINET_API YObject {
 public:
  YObject();
  YObject(const YObject& other);
  YObject(YObject&& other) noexcept;
  YObject& operator=(const YObject& other);
  YObject& operator=(YObject&& other) noexcept;
  ~YObject();

  // --- The host's untyped forms -------------------------------------------------------------------------------------
  // Stores a copy of `*value`, which must point to the type of `code` (bool, std::int32_t, YString, YBuffer,
  // YDateAndTime, YObject, YObjectArray); null stores the type's empty value. Gives the stored value, null for an
  // unknown code. Code 0 stores a key without a value.
  void* Set(std::string_view key, std::uint8_t code, const void* value, std::uint8_t flags);
  void* Set(int key, std::uint8_t code, const void* value, std::uint8_t flags);
  // The stored value when the key exists with exactly that type (any type for code 0), otherwise null.
  [[nodiscard]] void* _GetValuePtr(std::string_view key, std::uint8_t code) const;
  [[nodiscard]] void* _GetValuePtr(int key, std::uint8_t code) const;
  // The same by position among the string-keyed entries.
  [[nodiscard]] void* _GetValuePtrByStringKeyIndex(int index, std::uint8_t code) const;

  // --- Converting readers: integer and decimal text, bool and 0/1, buffer bytes as text; empty, 0 and false when absent
  //     or not convertible (objects, arrays) ---------------------------------------------------------------------------
  [[nodiscard]] YString GetString(std::string_view key) const;
  [[nodiscard]] YString GetString(int key) const;
  [[nodiscard]] int GetInteger(std::string_view key) const;
  [[nodiscard]] int GetInteger(int key) const;
  [[nodiscard]] bool GetBool(std::string_view key) const;
  [[nodiscard]] bool GetBool(int key) const;

  [[nodiscard]] bool Exist(std::string_view key) const;
  [[nodiscard]] bool Exist(int key) const;
  [[nodiscard]] std::uint8_t GetType(std::string_view key) const;  // 0 when absent
  [[nodiscard]] std::uint8_t GetType(int key) const;
  bool Delete(std::string_view key);  // false when there was none
  bool Delete(int key);
  void Clear();                        // all entries; the record's own flag stays
  [[nodiscard]] bool IsEmpty() const;  // neither string-keyed nor integer-keyed entries
  [[nodiscard]] int GetStringKeyCount() const;
  [[nodiscard]] YString GetStringKey(int index) const;  // as first spelled; empty outside
  // Copies all entries of `other` into this record, string and integer keys alike; equal keys are replaced.
  void Add(const YObject& other);
  void Add(YObject&& other);  // the same without copying where this record is empty

  void SetFlags(std::uint8_t flags) { flags_ = flags; }  // the record's own flag
  [[nodiscard]] std::uint8_t GetFlags() const { return flags_; }
  void SetFlags(std::string_view key, std::uint8_t flags);  // nothing happens when there is no such entry
  void SetFlags(int key, std::uint8_t flags);
  [[nodiscard]] std::uint8_t GetFlags(std::string_view key) const;  // 0 when absent
  [[nodiscard]] std::uint8_t GetFlags(int key) const;

  // --- Typed forms, for code inside the library -----------------------------------------------------------------------
  // Key is text or int. T is one of the stored types.
  template <typename T, typename Key>
  [[nodiscard]] T* Find(const Key& key) const {  // null when absent or of another type
    return static_cast<T*>(_GetValuePtr(as_key(key), code_of<T>()));
  }
  template <typename T>
  [[nodiscard]] T* FindAt(int index) const {
    return static_cast<T*>(_GetValuePtrByStringKeyIndex(index, code_of<T>()));
  }
  // The live value; created with its empty value when absent or of another type.
  template <typename T, typename Key>
  T& Ensure(const Key& key) {
    if (T* found = Find<T>(key)) return *found;
    return *static_cast<T*>(Set(as_key(key), code_of<T>(), nullptr, 0));
  }
  // Stores without copying. The flag of the entry becomes `flags`.
  template <typename T, typename Key>
  T& Store(const Key& key, T value, std::uint8_t flags = 0) {
    T& stored = Ensure<T>(key);
    stored = std::move(value);
    SetFlags(as_key(key), flags);
    return stored;
  }
  template <typename Key>
  YString& StoreText(const Key& key, std::string_view text, std::uint8_t flags = 0) {
    return Store<YString>(key, YString(text), flags);
  }

  template <typename T>
  static constexpr std::uint8_t code_of() {
    using namespace yinet;
    if constexpr (std::is_same_v<T, bool>) return kTypeBool;
    else if constexpr (std::is_same_v<T, std::int32_t>) return kTypeInteger;
    else if constexpr (std::is_same_v<T, YString>) return kTypeString;
    else if constexpr (std::is_same_v<T, YBuffer>) return kTypeBuffer;
    else if constexpr (std::is_same_v<T, YDateAndTime>) return kTypeDateTime;
    else if constexpr (std::is_same_v<T, YObject>) return kTypeObject;
    else {
      static_assert(std::is_same_v<T, YObjectArray>, "no such type in a record");
      return kTypeObjectArray;
    }
  }

 private:
  template <typename Key>
  static auto as_key(const Key& key) {
    if constexpr (std::is_integral_v<Key>) return static_cast<int>(key);
    else return std::string_view(key);
  }

  std::unique_ptr<yinet::RecordEntries> entries_;  // null while empty
  std::uint8_t flags_ = 1;
};

// Array of records, which it owns; copies deeply. Pointers to items stay valid while items are added.
class YINET_API YObjectArray {
 public:
  YObjectArray();
  YObjectArray(const YObjectArray& other);
  YObjectArray(YObjectArray&& other) noexcept;
  YObjectArray& operator=(const YObjectArray& other);
  YObjectArray& operator=(YObjectArray&& other) noexcept;
  ~YObjectArray();

  YObject* New();  // appends an empty record
  void Add(const YObject& item);
  [[nodiscard]] YObject* ItemPtr(int index) const;  // null outside
  [[nodiscard]] int Count() const;
  [[nodiscard]] int ContentCount() const;  // records that hold at least one entry
  void Delete(int index);
  void Clear();
  // Stable sort by one key: as integers (`numeric`) or as text without regard to case, ascending unless told otherwise.
  void Sort(std::string_view key, bool numeric, bool ascending = true);

 private:
  std::vector<std::unique_ptr<YObject>> items_;
};
