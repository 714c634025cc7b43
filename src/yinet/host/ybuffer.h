#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

#include "yinet/host/export.h"
#include "yinet/host/ystring.h"

// Growable byte buffer. Owns its bytes; grows without a second copy of a large content (realloc), so a buffer of a
// gigabyte needs little more than a gigabyte. Throws std::bad_alloc when memory runs out. One thread at a time.
class YINET_API YBuffer {
 public:
  YBuffer() = default;
  explicit YBuffer(std::string_view bytes) { Add(bytes); }
  YBuffer(const YBuffer& other);
  YBuffer(YBuffer&& other) noexcept;
  YBuffer& operator=(const YBuffer& other);
  YBuffer& operator=(YBuffer&& other) noexcept;
  ~YBuffer() = default;

  [[nodiscard]] long Size() const { return static_cast<long>(size_); }
  // New bytes are zero. Without `keep` the old content counts as lost and every byte is zero.
  void SetSize(long size, bool keep = true);
  void Reserve(long capacity);
  [[nodiscard]] unsigned char* Ptr() { return bytes_.get(); }  // null while nothing was ever stored
  [[nodiscard]] const unsigned char* Ptr() const { return bytes_.get(); }
  [[nodiscard]] std::string_view view() const { return {reinterpret_cast<const char*>(bytes_.get()), size_}; }

  void Add(const void* bytes, long count);
  void Add(std::string_view bytes) { Add(bytes.data(), static_cast<long>(bytes.size())); }
  void Add(const YBuffer& other) { Add(other.view()); }
  void AddChar(char character) { Add(&character, 1); }
  [[nodiscard]] char GetChar(long position) const;  // NUL outside the content
  // Position of the bytes at or after `from`, -1 when they do not occur.
  [[nodiscard]] long Find(std::string_view what, long from = 0) const;
  void Move(YBuffer& source);                 // takes over the content of `source`, which is empty afterwards
  void Move(long to, long from, long count);  // moves bytes inside the buffer, overlapping allowed, ranges clipped
  void Copy(const YBuffer& source) { *this = source; }
  // The bytes `from` to `to`, both included, -1 for the end.
  [[nodiscard]] YString toString(long from = 0, long to = -1) const;
  void Clear();  // frees the memory

  friend bool operator==(const YBuffer& a, const YBuffer& b) { return a.view() == b.view(); }

 private:
  struct Free {
    void operator()(unsigned char* bytes) const noexcept;
  };
  void grow_to(std::size_t capacity);

  std::unique_ptr<unsigned char, Free> bytes_;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};
