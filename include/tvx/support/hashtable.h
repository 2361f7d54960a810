// hsh::Hashtable: a separately chained hash table whose bucket count is always one of `primes`,
// with nodes from a MemoryPool. Invariant: it only grows; nodes never move once inserted.
#ifndef TVX_SUPPORT_HASHTABLE_H
#define TVX_SUPPORT_HASHTABLE_H

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <new>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <tvx/support/memory_pool.h>

namespace tvx {
namespace hsh {

// The permitted bucket counts, each about twice the one before.
inline constexpr std::uint64_t primes[28] = {
    31ULL,        73ULL,         151ULL,        313ULL,       643ULL,       1291ULL,
    2593ULL,      5233ULL,       10501ULL,      21013ULL,     42073ULL,     84181ULL,
    168451ULL,    337219ULL,     674701ULL,     1349473ULL,   2699299ULL,   5398891ULL,
    10798093ULL,  21596719ULL,   43193641ULL,   86387383ULL,  172775299ULL, 345550609ULL,
    691101253ULL, 1382202559ULL, 2764405229ULL, 4294867387ULL};

// Hash functions return an unsigned 64-bit value. Specialisations for the term layer's key
// types live beside those types.
template <class Key, class Enable = void>
struct hash;

template <class Key>
struct hash<Key, std::enable_if_t<std::is_integral<Key>::value || std::is_enum<Key>::value>> {
  std::uint64_t operator()(Key k) const { return static_cast<std::uint64_t>(k); }
};

template <>
struct hash<std::string> {
  std::uint64_t operator()(std::string const& s) const {
    // FNV-1a: cheap and good enough for the short names the caches hold.
    std::uint64_t h = 14695981039346656037ULL;
    for (unsigned char c : s) {
      h = (h ^ c) * 1099511628211ULL;
    }
    return h;
  }
};

template <class T>
struct GetKey_identity {
  T const& operator()(T const& v) const { return v; }
};

template <class K, class V>
struct GetKey_pair {
  K const& operator()(std::pair<K, V> const& v) const { return v.first; }
};

template <class Value, class GetKey, class Key, class Hash, class Equal>
class Hashtable {
  struct Bucket {
    Bucket* next;
    Value value;
  };
  using Pool = MemoryPool<sizeof(Bucket), false>;

 public:
  class iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = Value;
    using difference_type = std::ptrdiff_t;
    using pointer = Value*;
    using reference = Value&;

    iterator() = default;
    // From a bucket index and a null node, moves forward to the head of the first non-empty
    // bucket at or after that index; past the last bucket it is the end iterator.
    iterator(Bucket* const* buckets, std::size_t count, std::size_t index, Bucket* node)
        : buckets_(buckets), count_(count), index_(index), node_(node) {
      if (node_ == nullptr) {
        skip_empty();
      }
    }

    Value& operator*() const { return node_->value; }
    Value* operator->() const { return &node_->value; }

    iterator& operator++() {
      node_ = node_->next;
      if (node_ == nullptr) {
        ++index_;
        skip_empty();
      }
      return *this;
    }
    iterator operator++(int) {
      iterator old = *this;
      ++*this;
      return old;
    }

    bool operator==(iterator const& other) const { return node_ == other.node_; }
    bool operator!=(iterator const& other) const { return node_ != other.node_; }

   private:
    void skip_empty() {
      while (index_ < count_ && buckets_[index_] == nullptr) {
        ++index_;
      }
      node_ = index_ < count_ ? buckets_[index_] : nullptr;
    }

    Bucket* const* buckets_ = nullptr;
    std::size_t count_ = 0;
    std::size_t index_ = 0;
    Bucket* node_ = nullptr;
  };

  // 31 buckets; the node pool starts with 16 nodes, doubles each chunk, caps at 8192.
  Hashtable() : pool_(16, 2.0f, 8192), buckets_(primes[0], nullptr) {}
  Hashtable(Hashtable const&) = delete;
  Hashtable& operator=(Hashtable const&) = delete;

  ~Hashtable() {
    for (Bucket* head : buckets_) {
      while (head != nullptr) {
        Bucket* next = head->next;
        head->value.~Value();
        pool_.deallocate(head);
        head = next;
      }
    }
  }

  std::size_t size() const { return count_; }
  std::size_t bucket_count() const { return buckets_.size(); }

  iterator begin() const { return iterator(buckets_.data(), buckets_.size(), 0, nullptr); }
  iterator end() const {
    return iterator(buckets_.data(), buckets_.size(), buckets_.size(), nullptr);
  }

  // Grows first when count / buckets > 0.7 (single precision, count before this insertion),
  // even if v turns out to be present; then links a new node at its chain's head.
  std::pair<iterator, bool> insert(Value const& v) {
    return find_or_insert(get_key_(v), [&v]() -> Value const& { return v; });
  }

  // Like insert, but the value is made by `make()` only when no value with key k is present:
  // one hash and one chain walk for a lookup that may add. `make()` must return a value whose
  // key equals k.
  template <class Make>
  std::pair<iterator, bool> find_or_insert(Key const& k, Make&& make) {
    if (static_cast<double>(static_cast<float>(count_) / static_cast<float>(buckets_.size())) >
        0.7) {
      rehash(buckets_.size() + 1);
    }
    std::size_t const index = hash_(k) % buckets_.size();
    for (Bucket* b = buckets_[index]; b != nullptr; b = b->next) {
      if (equal_(get_key_(b->value), k)) {
        return {make_iterator(index, b), false};
      }
    }
    void* memory = pool_.allocate();
    Bucket* node;
    try {
      node = new (memory) Bucket{buckets_[index], make()};
    } catch (...) {
      pool_.deallocate(memory);
      throw;
    }
    buckets_[index] = node;
    ++count_;
    assert(std::binary_search(std::begin(primes), std::end(primes), buckets_.size()) &&
           "the bucket count is one of the primes");
    return {make_iterator(index, node), true};
  }

  iterator find(Key const& k) const {
    if (count_ == 0) {
      return end();
    }
    std::size_t const index = hash_(k) % buckets_.size();
    for (Bucket* b = buckets_[index]; b != nullptr; b = b->next) {
      if (equal_(get_key_(b->value), k)) {
        return make_iterator(index, b);
      }
    }
    return end();
  }

  // Removes the value with key k, if any; returns whether one was removed. Used to undo
  // insertions when an operation that made them fails.
  bool erase(Key const& k) {
    if (count_ == 0) {
      return false;
    }
    std::size_t const index = hash_(k) % buckets_.size();
    for (Bucket** link = &buckets_[index]; *link != nullptr; link = &(*link)->next) {
      Bucket* b = *link;
      if (equal_(get_key_(b->value), k)) {
        *link = b->next;
        b->value.~Value();
        pool_.deallocate(b);
        --count_;
        return true;
      }
    }
    return false;
  }

  // Makes the bucket count the first prime not below n (the last prime at most); never
  // shrinks. Nodes are relinked in visiting order, so nodes that meet end up reversed.
  void rehash(std::size_t n) {
    if (buckets_.size() >= n) {
      return;
    }
    std::uint64_t const* const last = std::end(primes) - 1;
    std::uint64_t const* p = std::lower_bound(std::begin(primes), last, std::uint64_t{n});
    std::size_t const count = static_cast<std::size_t>(*p);
    if (count <= buckets_.size()) {
      return;
    }
    std::vector<Bucket*> old(count, nullptr);
    old.swap(buckets_);
    [[maybe_unused]] std::size_t relinked = 0;
    for (Bucket* head : old) {
      while (head != nullptr) {
        Bucket* next = head->next;
        std::size_t const index = hash_(get_key_(head->value)) % count;
        head->next = buckets_[index];
        buckets_[index] = head;
        head = next;
        ++relinked;
      }
    }
    // The nodes are relinked, never moved or lost.
    assert(relinked == count_ && "every node is relinked once");
  }

 private:
  iterator make_iterator(std::size_t index, Bucket* node) const {
    return iterator(buckets_.data(), buckets_.size(), index, node);
  }

  Pool pool_;
  std::vector<Bucket*> buckets_;
  std::size_t count_ = 0;

  // The function objects are stateless; they are made where they are used.
  static Key const& get_key_(Value const& v) { return GetKey()(v); }
  static std::uint64_t hash_(Key const& k) { return Hash()(k); }
  static bool equal_(Key const& a, Key const& b) { return Equal()(a, b); }
};

// The map form: values are (key, mapped) pairs, looked up by the key.
template <class Key, class Mapped, class Hash = hash<Key>, class Equal = std::equal_to<Key>>
using HashMap = Hashtable<std::pair<Key, Mapped>, GetKey_pair<Key, Mapped>, Key, Hash, Equal>;

}  // namespace hsh
}  // namespace tvx

#endif  // TVX_SUPPORT_HASHTABLE_H
