#include "yinet/host/yobject.h"

#include <sys/random.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "yinet/host/record_index.h"
#include "yinet/host/text.h"

namespace yinet {

// The value of one entry and its flag. Values stay at their address for the life of the entry as long as their type
// stays the same; records and arrays are held by pointer because their types are not complete inside themselves.
class RecordValue {
 public:
  [[nodiscard]] std::uint8_t code() const;
  [[nodiscard]] void* address();
  // Stores a copy of `*source` (null: the empty value); assigns in place when the type is the same. Null for an unknown
  // code.
  void* assign(std::uint8_t code, const void* source);
  // Moves the value and flags of another; assigns in place like assign().
  void take(RecordValue& other);
  [[nodiscard]] std::string as_text() const;
  [[nodiscard]] std::int32_t as_integer() const;
  [[nodiscard]] bool as_bool() const;

  RecordValue() = default;
  RecordValue(const RecordValue& other) : flags(other.flags) {
    assign(other.code(), const_cast<RecordValue&>(other).address());
  }
  RecordValue& operator=(const RecordValue&) = delete;

  std::uint8_t flags = 0;

 private:
  template <typename T>
  void* assign_as(const void* source);
  template <typename T>
  void* assign_boxed(const void* source);

  std::variant<std::monostate, bool, std::int32_t, YString, YBuffer, YDateAndTime, std::unique_ptr<YObject>,
               std::unique_ptr<YObjectArray>>
      value_;
};

namespace {

constexpr std::uint8_t kCodes[] = {kTypeAny,    kTypeBool,     kTypeInteger, kTypeString,
                                   kTypeBuffer, kTypeDateTime, kTypeObject,  kTypeObjectArray};

}  // namespace

std::uint8_t RecordValue::code() const { return kCodes[value_.index()]; }

void* RecordValue::address() {
  return std::visit(
      [this](auto& value) -> void* {
        using T = std::decay_t<decltype(value)>;
        if constexpr (std::is_same_v<T, std::monostate>) return &value_;
        else if constexpr (requires { value.get(); }) return value.get();
        else return &value;
      },
      value_);
}

template <typename T>
void* RecordValue::assign_as(const void* source) {
  T* held = std::get_if<T>(&value_);
  if (held == nullptr) {
    // The source may live inside the value that is about to go.
    value_ = source == nullptr ? T{} : T(*static_cast<const T*>(source));
    return std::get_if<T>(&value_);
  }
  if (source == nullptr) *held = T{};
  else if (source != held) *held = *static_cast<const T*>(source);
  return held;
}

template <typename T>
void* RecordValue::assign_boxed(const void* source) {
  auto copy = source == nullptr ? std::make_unique<T>() : std::make_unique<T>(*static_cast<const T*>(source));
  auto* held = std::get_if<std::unique_ptr<T>>(&value_);
  if (held == nullptr) {
    T* stored = copy.get();
    value_ = std::move(copy);
    return stored;
  }
  if (source != held->get()) **held = std::move(*copy);
  return held->get();
}

void* RecordValue::assign(std::uint8_t code, const void* source) {
  switch (code) {
    case kTypeAny: value_ = std::monostate{}; return &value_;
    case kTypeBool: return assign_as<bool>(source);
    case kTypeInteger: return assign_as<std::int32_t>(source);
    case kTypeString: return assign_as<YString>(source);
    case kTypeBuffer: return assign_as<YBuffer>(source);
    case kTypeDateTime: return assign_as<YDateAndTime>(source);
    case kTypeObject: return assign_boxed<YObject>(source);
    case kTypeObjectArray: return assign_boxed<YObjectArray>(source);
    default: return nullptr;
  }
}

void RecordValue::take(RecordValue& other) {
  std::visit(
      [this](auto& value) {
        using T = std::decay_t<decltype(value)>;
        if constexpr (requires { value.get(); }) {
          if (T* held = std::get_if<T>(&value_)) **held = std::move(*value);
          else value_ = std::move(value);
        } else {
          value_ = std::move(value);
        }
      },
      other.value_);
  flags = other.flags;
}

std::string RecordValue::as_text() const {
  if (const auto* text = std::get_if<YString>(&value_)) return text->str();
  if (const auto* number = std::get_if<std::int32_t>(&value_)) return std::to_string(*number);
  if (const auto* truth = std::get_if<bool>(&value_)) return *truth ? "1" : "0";
  if (const auto* bytes = std::get_if<YBuffer>(&value_)) return std::string(bytes->view());
  if (const auto* instant = std::get_if<YDateAndTime>(&value_)) return instant->toIso().str();
  return {};
}

std::int32_t RecordValue::as_integer() const {
  if (const auto* text = std::get_if<YString>(&value_)) return leading_int32(*text);
  if (const auto* number = std::get_if<std::int32_t>(&value_)) return *number;
  if (const auto* truth = std::get_if<bool>(&value_)) return *truth ? 1 : 0;
  if (const auto* bytes = std::get_if<YBuffer>(&value_)) return leading_int32(bytes->view());
  return 0;
}

bool RecordValue::as_bool() const { return as_integer() != 0; }

namespace {

// Chosen anew by every process: keys come from the network, and must not be made to share one place in the index.
std::uint64_t hash_seed() {
  std::uint64_t seed = 14695981039346656037U;
  static_cast<void>(!getrandom(&seed, sizeof seed, GRND_NONBLOCK));  // without it the usual start of FNV-1a serves
  return seed;
}

// FNV-1a over the lower-case form, its high bits mixed into the low ones that choose the place.
std::uint64_t key_hash(std::string_view key) {
  static const std::uint64_t seed = hash_seed();
  std::uint64_t hash = seed;
  for (const char c : key) hash = (hash ^ kLowerCase[static_cast<unsigned char>(c)]) * 1099511628211U;
  return hash ^ (hash >> 32);
}

}  // namespace

// The entries of one record.
//
// String-keyed entries are nodes of their own, so that their addresses stay. `order_` holds them in order of arrival.
// Deleting leaves a hole, and `ranks_` finds positions among holes; entries move together once less than half of the
// slots hold one. So no pattern of deletions costs more than a few steps each, and reading changes nothing.
class RecordEntries {
 public:
  struct Node {
    std::string key;
    RecordValue value;
    std::size_t slot = 0;  // place in order_
    Node(std::string_view text, std::size_t at) : key(text), slot(at) {}
  };

  RecordEntries() = default;
  RecordEntries(const RecordEntries& other) { add_all(other); }
  RecordEntries& operator=(const RecordEntries&) = delete;

  [[nodiscard]] RecordValue* find(std::string_view key) const {
    Node* node = find_node(key, index_.empty() ? 0 : key_hash(key));
    return node == nullptr ? nullptr : &node->value;
  }
  [[nodiscard]] RecordValue* find(int key) const {
    const auto found = numbered_.find(key);
    return found == numbered_.end() ? nullptr : const_cast<RecordValue*>(&found->second);
  }
  RecordValue& get_or_add(int key) { return numbered_[key]; }
  RecordValue& get_or_add(std::string_view key) {
    const std::uint64_t hash = index_.empty() ? 0 : key_hash(key);
    if (Node* node = find_node(key, hash)) return node->value;
    order_.push_back(std::make_unique<Node>(key, order_.size()));
    if (!ranks_.empty()) ranks_.append();
    Node* node = order_.back().get();
    ++count_;
    if (!index_.empty()) index_.add(hash, node);
    else if (count_ > kLinearLimit) build_index();
    return node->value;
  }

  bool erase(int key) { return numbered_.erase(key) > 0; }
  bool erase(std::string_view key) {
    const std::uint64_t hash = index_.empty() ? 0 : key_hash(key);
    Node* node = find_node(key, hash);
    if (node == nullptr) return false;
    const std::size_t slot = node->slot;
    if (ranks_.empty() && slot + 1 < order_.size()) ranks_.fill(order_.size());
    if (!index_.empty()) index_.remove(hash, node);
    order_[slot].reset();
    --count_;
    while (!order_.empty() && order_.back() == nullptr) order_.pop_back();
    if (!ranks_.empty()) update_ranks(slot);
    return true;
  }

  [[nodiscard]] int count() const { return static_cast<int>(count_); }
  [[nodiscard]] bool empty() const { return count_ == 0 && numbered_.empty(); }
  [[nodiscard]] Node* at(int index) const {
    if (index < 0 || static_cast<std::size_t>(index) >= count_) return nullptr;
    const auto rank = static_cast<std::size_t>(index);
    return order_[count_ == order_.size() ? rank : ranks_.slot_of(rank)].get();
  }

  // Moves the values of `other` here; what had an entry keeps its address.
  void take_all(RecordEntries& other) {
    for (const auto& node : other.order_) {
      if (node != nullptr) get_or_add(std::string_view(node->key)).take(node->value);
    }
    for (auto& [key, value] : other.numbered_) get_or_add(key).take(value);
  }
  void add_all(const RecordEntries& other) {
    for (const auto& node : other.order_) {
      if (node != nullptr) copy_value(node->value, get_or_add(std::string_view(node->key)));
    }
    for (const auto& [key, value] : other.numbered_) copy_value(value, get_or_add(key));
  }

 private:
  static constexpr std::size_t kLinearLimit = 12;  // below it a walk beats a hash table

  static void copy_value(const RecordValue& from, RecordValue& to) {
    to.assign(from.code(), const_cast<RecordValue&>(from).address());
    to.flags = from.flags;
  }

  // `hash` counts only while there is an index.
  [[nodiscard]] Node* find_node(std::string_view key, std::uint64_t hash) const {
    if (!index_.empty()) return index_.find(hash, key);
    for (const auto& node : order_) {
      if (node != nullptr && equal_ignoring_case(node->key, key)) return node.get();
    }
    return nullptr;
  }

  void build_index() {
    for (const auto& node : order_) {
      if (node != nullptr) index_.add(key_hash(node->key), node.get());
    }
  }

  // After the entry in `slot` has gone.
  void update_ranks(std::size_t slot) {
    if (count_ * 2 >= order_.size()) {
      ranks_.remove(slot);
      ranks_.cut(order_.size());
      return;
    }
    std::erase(order_, nullptr);
    for (std::size_t i = 0; i < order_.size(); ++i) order_[i]->slot = i;
    ranks_.fill(order_.size());
  }

  std::vector<std::unique_ptr<Node>> order_;
  std::size_t count_ = 0;
  KeyIndex<Node> index_;  // empty for small records
  SlotRanks ranks_;       // empty until there has been a hole
  std::map<int, RecordValue> numbered_;
};

namespace {

template <typename Key>
void* set_value(std::unique_ptr<RecordEntries>& entries, const Key& key, std::uint8_t code, const void* value,
                std::uint8_t flags) {
  if (std::find(std::begin(kCodes), std::end(kCodes), code) == std::end(kCodes)) return nullptr;
  if (entries == nullptr) entries = std::make_unique<RecordEntries>();
  RecordValue& entry = entries->get_or_add(key);
  entry.flags = flags;
  return entry.assign(code, value);
}

template <typename Key>
RecordValue* find_value(const std::unique_ptr<RecordEntries>& entries, const Key& key) {
  return entries == nullptr ? nullptr : entries->find(key);
}

void* typed_address(RecordValue* value, std::uint8_t code) {
  if (value == nullptr || (code != kTypeAny && value->code() != code)) return nullptr;
  return value->address();
}

}  // namespace
}  // namespace yinet

using yinet::find_value;
using yinet::RecordEntries;
using yinet::RecordValue;
using yinet::typed_address;

YObject::YObject() = default;
YObject::~YObject() = default;
YObject::YObject(YObject&& other) noexcept = default;

YObject::YObject(const YObject& other)
    : entries_(other.entries_ == nullptr ? nullptr : std::make_unique<RecordEntries>(*other.entries_)),
      flags_(other.flags_) {}

YObject& YObject::operator=(YObject&& other) noexcept {
  YObject taken(std::move(other));  // `other` may be inside of what this holds
  entries_.swap(taken.entries_);
  flags_ = taken.flags_;
  return *this;
}

YObject& YObject::operator=(const YObject& other) {
  if (this != &other) *this = YObject(other);
  return *this;
}

void* YObject::Set(std::string_view key, std::uint8_t code, const void* value, std::uint8_t flags) {
  return yinet::set_value(entries_, key, code, value, flags);
}
void* YObject::Set(int key, std::uint8_t code, const void* value, std::uint8_t flags) {
  return yinet::set_value(entries_, key, code, value, flags);
}

void* YObject::_GetValuePtr(std::string_view key, std::uint8_t code) const {
  return typed_address(find_value(entries_, key), code);
}
void* YObject::_GetValuePtr(int key, std::uint8_t code) const { return typed_address(find_value(entries_, key), code); }

void* YObject::_GetValuePtrByStringKeyIndex(int index, std::uint8_t code) const {
  RecordEntries::Node* node = entries_ == nullptr ? nullptr : entries_->at(index);
  return node == nullptr ? nullptr : typed_address(&node->value, code);
}

namespace {

YString text_of(const RecordValue* value) { return value == nullptr ? YString() : YString(value->as_text()); }
int integer_of(const RecordValue* value) { return value == nullptr ? 0 : value->as_integer(); }
bool bool_of(const RecordValue* value) { return value != nullptr && value->as_bool(); }
std::uint8_t type_of(const RecordValue* value) { return value == nullptr ? yinet::kTypeAny : value->code(); }
std::uint8_t flags_of(const RecordValue* value) { return value == nullptr ? std::uint8_t{0} : value->flags; }
void set_flags_of(RecordValue* value, std::uint8_t flags) {
  if (value != nullptr) value->flags = flags;
}

}  // namespace

YString YObject::GetString(std::string_view key) const { return text_of(find_value(entries_, key)); }
YString YObject::GetString(int key) const { return text_of(find_value(entries_, key)); }
int YObject::GetInteger(std::string_view key) const { return integer_of(find_value(entries_, key)); }
int YObject::GetInteger(int key) const { return integer_of(find_value(entries_, key)); }
bool YObject::GetBool(std::string_view key) const { return bool_of(find_value(entries_, key)); }
bool YObject::GetBool(int key) const { return bool_of(find_value(entries_, key)); }

bool YObject::Exist(std::string_view key) const { return find_value(entries_, key) != nullptr; }
bool YObject::Exist(int key) const { return find_value(entries_, key) != nullptr; }
std::uint8_t YObject::GetType(std::string_view key) const { return type_of(find_value(entries_, key)); }
std::uint8_t YObject::GetType(int key) const { return type_of(find_value(entries_, key)); }
bool YObject::Delete(std::string_view key) { return entries_ != nullptr && entries_->erase(key); }
bool YObject::Delete(int key) { return entries_ != nullptr && entries_->erase(key); }
void YObject::Clear() { entries_.reset(); }

bool YObject::IsEmpty() const { return entries_ == nullptr || entries_->empty(); }

int YObject::GetStringKeyCount() const { return entries_ == nullptr ? 0 : entries_->count(); }

YString YObject::GetStringKey(int index) const {
  RecordEntries::Node* node = entries_ == nullptr ? nullptr : entries_->at(index);
  return node == nullptr ? YString() : YString(node->key);
}

void YObject::Add(const YObject& other) {
  if (this == &other || other.entries_ == nullptr) return;
  if (entries_ == nullptr) entries_ = std::make_unique<RecordEntries>();
  YObject copy(other);  // `other` may be inside of a value that is replaced
  entries_->take_all(*copy.entries_);
}

void YObject::Add(YObject&& other) {
  if (IsEmpty()) entries_.swap(other.entries_);
  else Add(std::as_const(other));
}

void YObject::SetFlags(std::string_view key, std::uint8_t flags) { set_flags_of(find_value(entries_, key), flags); }
void YObject::SetFlags(int key, std::uint8_t flags) { set_flags_of(find_value(entries_, key), flags); }
std::uint8_t YObject::GetFlags(std::string_view key) const { return flags_of(find_value(entries_, key)); }
std::uint8_t YObject::GetFlags(int key) const { return flags_of(find_value(entries_, key)); }
