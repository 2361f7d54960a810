// get_local_time: thread-safe conversion of a calendar time to local broken-down time.
#ifndef TVX_CORE_LOCAL_TIME_H
#define TVX_CORE_LOCAL_TIME_H

#include <ctime>

namespace tvx {

// The local broken-down time of *t (all fields zero if the conversion fails).
std::tm get_local_time(std::time_t const* t);

}  // namespace tvx

#endif  // TVX_CORE_LOCAL_TIME_H
