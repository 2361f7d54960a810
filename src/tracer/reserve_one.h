// A growth helper of the tracer's scratch vectors, shared by its files.
#ifndef TVX_TRACER_RESERVE_ONE_H
#define TVX_TRACER_RESERVE_ONE_H

#include <vector>

namespace tvx {

// Makes room for one more entry without reallocating on every call.
template <class T>
void reserve_one(std::vector<T>& v) {
  if (v.size() == v.capacity()) {
    v.reserve(2 * v.capacity() + 1);
  }
}

}  // namespace tvx

#endif  // TVX_TRACER_RESERVE_ONE_H
