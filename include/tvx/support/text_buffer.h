// TextBuffer: a growable byte buffer for composing text with plain pointer writes. A writer asks
// for room for at most n more bytes, writes through the returned pointer and commits the end it
// reached; nothing is zero-filled and no call checks capacity per byte.
#ifndef TVX_SUPPORT_TEXT_BUFFER_H
#define TVX_SUPPORT_TEXT_BUFFER_H

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

namespace tvx {

class TextBuffer {
 public:
  // A pointer to the end of the text, with room for n bytes after it.
  char* room(std::size_t n) {
    if (capacity_ - size_ < n) {
      grow(n);
    }
    return data_.get() + size_;
  }
  // Makes everything up to end (a pointer into the room last asked for) part of the text.
  void commit(char const* end) {
    assert(end >= data_.get() && end <= data_.get() + capacity_ && "the end lies in the buffer");
    size_ = static_cast<std::size_t>(end - data_.get());
  }

  char const* data() const { return data_.get(); }
  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  void clear() { size_ = 0; }

  // The writers: each copies its text to p and returns the end of what it wrote.
  static char* put(char* p, char c) {
    *p = c;
    return p + 1;
  }
  static char* put(char* p, std::string const& s) {
    std::memcpy(p, s.data(), s.size());
    return p + s.size();
  }
  template <std::size_t N>
  static char* put(char* p, char const (&literal)[N]) {
    std::memcpy(p, literal, N - 1);
    return p + N - 1;
  }
  // Decimal digits, two at a time from the right; room for kMaxDigits is enough.
  static char* put_number(char* p, std::uint64_t n) {
    std::size_t length = 1;
    for (std::uint64_t bound = 10; length < kMaxDigits && n >= bound; bound *= 10) {
      ++length;
    }
    char* q = p + length;
    while (n >= 100) {
      q -= 2;
      std::memcpy(q, kDigitPairs + 2 * (n % 100), 2);
      n /= 100;
    }
    if (n >= 10) {
      std::memcpy(q - 2, kDigitPairs + 2 * n, 2);
    } else {
      q[-1] = static_cast<char>('0' + n);
    }
    return p + length;
  }
  static constexpr std::size_t kMaxDigits = 20;
  static constexpr char kDigitPairs[] =
      "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
      "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
      "8081828384858687888990919293949596979899";

 private:
  void grow(std::size_t n) {
    std::size_t capacity = capacity_ == 0 ? 256 : 2 * capacity_;
    while (capacity - size_ < n) {
      capacity *= 2;
    }
    std::unique_ptr<char[]> bigger(new char[capacity]);
    if (size_ != 0) {
      std::memcpy(bigger.get(), data_.get(), size_);
    }
    data_ = std::move(bigger);
    capacity_ = capacity;
  }

  std::unique_ptr<char[]> data_;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

}  // namespace tvx

#endif  // TVX_SUPPORT_TEXT_BUFFER_H
