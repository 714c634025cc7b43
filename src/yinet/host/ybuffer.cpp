#include "yinet/host/ybuffer.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "yinet/host/huge_pages.h"

namespace {

std::size_t clipped(long value) { return value < 0 ? 0 : static_cast<std::size_t>(value); }

}  // namespace

void YBuffer::Free::operator()(unsigned char* bytes) const noexcept { std::free(bytes); }

YBuffer::YBuffer(const YBuffer& other) { Add(other.view()); }

YBuffer::YBuffer(YBuffer&& other) noexcept
    : bytes_(std::move(other.bytes_)),
      size_(std::exchange(other.size_, 0)),
      capacity_(std::exchange(other.capacity_, 0)) {}

YBuffer& YBuffer::operator=(const YBuffer& other) {
  if (this != &other) *this = YBuffer(other);
  return *this;
}

YBuffer& YBuffer::operator=(YBuffer&& other) noexcept {
  bytes_ = std::move(other.bytes_);
  size_ = std::exchange(other.size_, 0);
  capacity_ = std::exchange(other.capacity_, 0);
  return *this;
}

// realloc and not a new block: the system moves the pages of a large block instead of copying them.
void YBuffer::grow_to(std::size_t capacity) {
  if (capacity <= capacity_) return;
  auto* grown = static_cast<unsigned char*>(std::realloc(bytes_.get(), capacity));
  if (grown == nullptr) throw std::bad_alloc();
  static_cast<void>(bytes_.release());
  bytes_.reset(grown);
  yinet::prefer_huge_pages(grown, capacity);
  capacity_ = capacity;
}

void YBuffer::SetSize(long size, bool keep) {
  const std::size_t wanted = clipped(size);
  if (!keep) size_ = 0;
  if (wanted > size_) {
    if (wanted > capacity_) grow_to(std::max(wanted, capacity_ + capacity_ / 2));
    std::memset(bytes_.get() + size_, 0, wanted - size_);
  }
  size_ = wanted;
}

void YBuffer::Reserve(long capacity) { grow_to(clipped(capacity)); }

void YBuffer::Add(const void* bytes, long count) {
  if (count <= 0) return;
  const auto added = static_cast<std::size_t>(count);
  if (capacity_ - size_ < added) {
    // The source may be part of this buffer, which moves when it grows.
    const auto* source = static_cast<const unsigned char*>(bytes);
    const bool inside = size_ > 0 && source >= bytes_.get() && source < bytes_.get() + size_;
    const std::size_t offset = inside ? static_cast<std::size_t>(source - bytes_.get()) : 0;
    grow_to(std::max({size_ + added, capacity_ + capacity_ / 2, std::size_t{64}}));
    if (inside) bytes = bytes_.get() + offset;
  }
  std::memmove(bytes_.get() + size_, bytes, added);
  size_ += added;
}

char YBuffer::GetChar(long position) const {
  return position < 0 || clipped(position) >= size_ ? '\0' : static_cast<char>(bytes_.get()[position]);
}

long YBuffer::Find(std::string_view what, long from) const {
  if (what.empty()) return -1;
  const std::size_t hit = view().find(what, clipped(from));
  return hit == std::string_view::npos ? -1 : static_cast<long>(hit);
}

void YBuffer::Move(YBuffer& source) {
  if (this != &source) *this = std::move(source);
}

void YBuffer::Move(long to, long from, long count) {
  const std::size_t target = clipped(to);
  const std::size_t origin = clipped(from);
  if (target >= size_ || origin >= size_) return;
  std::memmove(bytes_.get() + target, bytes_.get() + origin,
               std::min({clipped(count), size_ - target, size_ - origin}));
}

YString YBuffer::toString(long from, long to) const {
  const std::size_t begin = clipped(from);
  const std::size_t end = to < 0 ? size_ : std::min(size_, clipped(to) + 1);
  return begin < end ? YString(view().substr(begin, end - begin)) : YString();
}

void YBuffer::Clear() { *this = YBuffer(); }
