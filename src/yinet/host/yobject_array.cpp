#include <algorithm>

#include "yinet/host/text.h"
#include "yinet/host/yobject.h"

YObjectArray::YObjectArray() = default;
YObjectArray::~YObjectArray() = default;
YObjectArray::YObjectArray(YObjectArray&& other) noexcept = default;
YObjectArray& YObjectArray::operator=(YObjectArray&& other) noexcept = default;

YObjectArray::YObjectArray(const YObjectArray& other) {
  items_.reserve(other.items_.size());
  for (const auto& item : other.items_) items_.push_back(std::make_unique<YObject>(*item));
}

YObjectArray& YObjectArray::operator=(const YObjectArray& other) {
  if (this != &other) *this = YObjectArray(other);
  return *this;
}

YObject* YObjectArray::New() { return items_.emplace_back(std::make_unique<YObject>()).get(); }

void YObjectArray::Add(const YObject& item) { items_.push_back(std::make_unique<YObject>(item)); }

YObject* YObjectArray::ItemPtr(int index) const {
  return index < 0 || index >= Count() ? nullptr : items_[static_cast<std::size_t>(index)].get();
}

int YObjectArray::Count() const { return static_cast<int>(items_.size()); }

int YObjectArray::ContentCount() const {
  return static_cast<int>(
      std::count_if(items_.begin(), items_.end(), [](const auto& item) { return !item->IsEmpty(); }));
}

void YObjectArray::Delete(int index) {
  if (index >= 0 && index < Count()) items_.erase(items_.begin() + index);
}

void YObjectArray::Clear() { items_.clear(); }

void YObjectArray::Sort(std::string_view key, bool numeric, bool ascending) {
  const auto before = [&](const auto& a, const auto& b) {
    const YObject& low = ascending ? *a : *b;
    const YObject& high = ascending ? *b : *a;
    if (numeric) return low.GetInteger(key) < high.GetInteger(key);
    return yinet::compare_ignoring_case(low.GetString(key), high.GetString(key)) < 0;
  };
  std::stable_sort(items_.begin(), items_.end(), before);
}
