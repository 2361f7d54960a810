#include <tvx/core/local_time.h>

namespace tvx {

std::tm get_local_time(std::time_t const* t) {
  std::tm result{};
  if (localtime_r(t, &result) == nullptr) {
    result = std::tm{};
  }
  return result;
}

}  // namespace tvx
