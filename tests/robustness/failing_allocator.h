// Test allocator for executables linked with -Wl,--wrap=malloc,--wrap=free: global operator new
// and delete (every standard form) and the wrapped malloc/free count live blocks, and the k-th
// allocation after arming fails (operator new throws std::bad_alloc, malloc returns null).
#ifndef TVX_TESTS_ROBUSTNESS_FAILING_ALLOCATOR_H
#define TVX_TESTS_ROBUSTNESS_FAILING_ALLOCATOR_H

#include <cstddef>

namespace tvx {
namespace test {

// Blocks handed out by operator new or malloc and not yet given back.
long live_allocations();
// From now on count allocations; the k-th one (k >= 1) fails, all others succeed.
void arm_allocation_failure(std::size_t k);
// Stops counting; returns whether the armed failure happened.
bool disarm_allocation_failure();

}  // namespace test
}  // namespace tvx

#endif  // TVX_TESTS_ROBUSTNESS_FAILING_ALLOCATOR_H
