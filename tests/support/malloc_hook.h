// Test hook on the C allocator for executables linked with -Wl,--wrap=malloc,--wrap=free: while
// a MallocRecording is alive, every malloc and free of the program's own objects is recorded,
// and mallocs can be made to fail. Global operator new is routed through malloc as well.
#ifndef TVX_TESTS_SUPPORT_MALLOC_HOOK_H
#define TVX_TESTS_SUPPORT_MALLOC_HOOK_H

#include <cstddef>
#include <vector>

namespace tvx {
namespace test {

struct MallocCall {
  std::size_t size;
  void* result;  // null when the call was made to fail
};

// Records allocator calls for its lifetime; only one may be alive at a time. The accessors copy
// the records out without recording their own allocations.
class MallocRecording {
 public:
  MallocRecording();
  ~MallocRecording();
  MallocRecording(MallocRecording const&) = delete;
  MallocRecording& operator=(MallocRecording const&) = delete;

  // The next `count` mallocs return null.
  void fail_next(int count);
  // Every malloc of more than `size` bytes returns null (0: none).
  void fail_above(std::size_t size);
  // Ends recording early; the records stay readable.
  void stop();

  std::vector<MallocCall> mallocs() const;
  std::vector<std::size_t> malloc_sizes() const;
  std::vector<void*> frees() const;
  void clear();
};

}  // namespace test
}  // namespace tvx

#endif  // TVX_TESTS_SUPPORT_MALLOC_HOOK_H
