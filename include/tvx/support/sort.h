// tvx::sort: in-place sort of an array under a caller's strict weak ordering: selection for
// short arrays, median-of-three quicksort to ranges under 16 with a heap-sort fallback after
// 32 levels, then one insertion pass over the whole array.
#ifndef TVX_SUPPORT_SORT_H
#define TVX_SUPPORT_SORT_H

#include <algorithm>
#include <utility>

namespace tvx {
namespace sortimpl {

// Leaves array[0..count) as consecutive ranges, each sorted or shorter than 16 elements, with no
// element of a range ordered after an element of a later range.
template <class T, class Size, class Compare>
void do_sort(T* array, Size count, Compare less, int depth) {
  using std::swap;
  if (count < 16) {
    return;
  }
  if (depth == 0) {
    std::make_heap(array, array + count, less);
    std::sort_heap(array, array + count, less);
    return;
  }
  Size const mid = count / 2;
  Size const last = count - 1;
  T const* chosen;
  if (less(array[0], array[mid])) {
    if (less(array[mid], array[last])) {
      chosen = &array[mid];
    } else if (less(array[0], array[last])) {
      chosen = &array[last];
    } else {
      chosen = &array[0];
    }
  } else {
    if (less(array[0], array[last])) {
      chosen = &array[0];
    } else if (less(array[mid], array[last])) {
      chosen = &array[last];
    } else {
      chosen = &array[mid];
    }
  }
  T const pivot = *chosen;

  // Elements equal to the pivot stop both scans and are exchanged, which splits runs of
  // equal elements between the two sides.
  Size i = 0;
  Size j = last;
  for (;;) {
    while (less(array[i], pivot)) {
      ++i;
    }
    while (less(pivot, array[j])) {
      --j;
    }
    if (!(i < j)) {
      break;
    }
    swap(array[i], array[j]);
    ++i;
    --j;
  }
  do_sort(array, i, less, depth - 1);
  do_sort(array + i, count - i, less, depth - 1);
}

}  // namespace sortimpl

template <class T, class Size, class Compare>
void sort(T* array, Size count, Compare less) {
  using std::swap;
  if (count < 2) {
    return;
  }
  if (count < 16) {
    for (Size i = 0; i + 1 < count; ++i) {
      Size m = i;
      for (Size k = i + 1; k < count; ++k) {
        if (less(array[k], array[m])) {
          m = k;
        }
      }
      swap(array[i], array[m]);
    }
    return;
  }
  sortimpl::do_sort(array, count, less, 32);
  for (Size i = 1; i < count; ++i) {
    T copy = array[i];
    Size j = i;
    while (j > 0 && less(copy, array[j - 1])) {
      array[j] = array[j - 1];
      --j;
    }
    array[j] = copy;
  }
}

}  // namespace tvx

#endif  // TVX_SUPPORT_SORT_H
