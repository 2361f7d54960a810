// Counting and failing replacements of global operator new/delete and of malloc/free. The state
// is plain globals: the executables that link this run their allocation tests on one thread.
#include "failing_allocator.h"

#include <cstdlib>
#include <new>

extern "C" void* __real_malloc(std::size_t size);
extern "C" void __real_free(void* p);

namespace {

long live = 0;
bool armed = false;
bool fired = false;
std::size_t calls = 0;
std::size_t fail_at = 0;

// Counts one allocation attempt; true when this one is to fail.
bool next_fails() {
  if (!armed) {
    return false;
  }
  ++calls;
  if (calls == fail_at) {
    fired = true;
    return true;
  }
  return false;
}

void* allocate(std::size_t size) {
  if (next_fails()) {
    return nullptr;
  }
  void* p = __real_malloc(size == 0 ? 1 : size);
  if (p != nullptr) {
    ++live;
  }
  return p;
}

void* allocate_aligned(std::size_t size, std::size_t align) {
  if (next_fails()) {
    return nullptr;
  }
  if (align < sizeof(void*)) {
    align = sizeof(void*);
  }
  void* p = nullptr;
  if (posix_memalign(&p, align, size == 0 ? 1 : size) != 0) {
    return nullptr;
  }
  ++live;
  return p;
}

void release(void* p) {
  if (p != nullptr) {
    --live;
    __real_free(p);
  }
}

}  // namespace

namespace tvx {
namespace test {

long live_allocations() {
  return live;
}

void arm_allocation_failure(std::size_t k) {
  calls = 0;
  fail_at = k;
  fired = false;
  armed = true;
}

bool disarm_allocation_failure() {
  armed = false;
  return fired;
}

}  // namespace test
}  // namespace tvx

extern "C" void* __wrap_malloc(std::size_t size) {
  return allocate(size);
}
extern "C" void __wrap_free(void* p) {
  release(p);
}

void* operator new(std::size_t size) {
  if (void* p = allocate(size)) {
    return p;
  }
  throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
  return operator new(size);
}
void* operator new(std::size_t size, std::nothrow_t const&) noexcept {
  return allocate(size);
}
void* operator new[](std::size_t size, std::nothrow_t const&) noexcept {
  return allocate(size);
}
void* operator new(std::size_t size, std::align_val_t align) {
  if (void* p = allocate_aligned(size, static_cast<std::size_t>(align))) {
    return p;
  }
  throw std::bad_alloc();
}
void* operator new[](std::size_t size, std::align_val_t align) {
  return operator new(size, align);
}
void* operator new(std::size_t size, std::align_val_t align, std::nothrow_t const&) noexcept {
  return allocate_aligned(size, static_cast<std::size_t>(align));
}
void* operator new[](std::size_t size, std::align_val_t align, std::nothrow_t const&) noexcept {
  return allocate_aligned(size, static_cast<std::size_t>(align));
}

void operator delete(void* p) noexcept {
  release(p);
}
void operator delete[](void* p) noexcept {
  release(p);
}
void operator delete(void* p, std::size_t) noexcept {
  release(p);
}
void operator delete[](void* p, std::size_t) noexcept {
  release(p);
}
void operator delete(void* p, std::nothrow_t const&) noexcept {
  release(p);
}
void operator delete[](void* p, std::nothrow_t const&) noexcept {
  release(p);
}
void operator delete(void* p, std::align_val_t) noexcept {
  release(p);
}
void operator delete[](void* p, std::align_val_t) noexcept {
  release(p);
}
void operator delete(void* p, std::size_t, std::align_val_t) noexcept {
  release(p);
}
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept {
  release(p);
}
void operator delete(void* p, std::align_val_t, std::nothrow_t const&) noexcept {
  release(p);
}
void operator delete[](void* p, std::align_val_t, std::nothrow_t const&) noexcept {
  release(p);
}
