// The wrapped allocator behind MallocRecording. Records go into fixed arrays so that recording
// itself never allocates.
#include "malloc_hook.h"

#include <cstdlib>
#include <new>

extern "C" void* __real_malloc(std::size_t size);
extern "C" void __real_free(void* p);

namespace {

constexpr std::size_t kMaxRecords = 4096;

struct HookState {
  bool active = false;
  int fail_next = 0;
  std::size_t fail_above = 0;
  std::size_t num_mallocs = 0;
  tvx::test::MallocCall mallocs[kMaxRecords];
  std::size_t num_frees = 0;
  void* frees[kMaxRecords];
};

HookState state;

bool should_fail(std::size_t size) {
  if (state.fail_next > 0) {
    --state.fail_next;
    return true;
  }
  return state.fail_above != 0 && size > state.fail_above;
}

// Suspends recording while the hook's own bookkeeping allocates.
class Pause {
 public:
  Pause() : was_active_(state.active) { state.active = false; }
  ~Pause() { state.active = was_active_; }
  Pause(Pause const&) = delete;
  Pause& operator=(Pause const&) = delete;

 private:
  bool was_active_;
};

}  // namespace

extern "C" void* __wrap_malloc(std::size_t size) {
  if (!state.active) {
    return __real_malloc(size);
  }
  void* result = should_fail(size) ? nullptr : __real_malloc(size);
  if (state.num_mallocs < kMaxRecords) {
    state.mallocs[state.num_mallocs] = tvx::test::MallocCall{size, result};
  }
  ++state.num_mallocs;
  return result;
}

extern "C" void __wrap_free(void* p) {
  if (state.active && p != nullptr) {
    if (state.num_frees < kMaxRecords) {
      state.frees[state.num_frees] = p;
    }
    ++state.num_frees;
  }
  __real_free(p);
}

// Global operator new goes through malloc so that container allocations are seen too.
void* operator new(std::size_t size) {
  if (void* p = std::malloc(size == 0 ? 1 : size)) {
    return p;
  }
  throw std::bad_alloc();
}

void operator delete(void* p) noexcept {
  std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
  std::free(p);
}

namespace tvx {
namespace test {

MallocRecording::MallocRecording() {
  clear();
  state.fail_next = 0;
  state.fail_above = 0;
  state.active = true;
}

MallocRecording::~MallocRecording() {
  state.active = false;
  state.fail_next = 0;
  state.fail_above = 0;
}

void MallocRecording::fail_next(int count) {
  state.fail_next = count;
}

void MallocRecording::fail_above(std::size_t size) {
  state.fail_above = size;
}

void MallocRecording::stop() {
  state.active = false;
}

std::vector<MallocCall> MallocRecording::mallocs() const {
  Pause pause;
  std::size_t const n = state.num_mallocs < kMaxRecords ? state.num_mallocs : kMaxRecords;
  return std::vector<MallocCall>(state.mallocs, state.mallocs + n);
}

std::vector<std::size_t> MallocRecording::malloc_sizes() const {
  Pause pause;
  std::vector<std::size_t> out;
  std::size_t const n = state.num_mallocs < kMaxRecords ? state.num_mallocs : kMaxRecords;
  for (std::size_t i = 0; i < n; ++i) {
    out.push_back(state.mallocs[i].size);
  }
  return out;
}

std::vector<void*> MallocRecording::frees() const {
  Pause pause;
  std::size_t const n = state.num_frees < kMaxRecords ? state.num_frees : kMaxRecords;
  return std::vector<void*>(state.frees, state.frees + n);
}

void MallocRecording::clear() {
  state.num_mallocs = 0;
  state.num_frees = 0;
}

}  // namespace test
}  // namespace tvx
