// Uses the installed headers and library: the term manager, a term-pointer set of the hash
// table, a string map and the string helper. Prints "tvx consumer ok" when all behave.
#include <cstdint>
#include <functional>
#include <iostream>
#include <string>

#include "core/term.h"
#include "core/term_manager.h"
#include "support/hashtable.h"
#include "support/sort.h"
#include "support/str.h"

namespace {

using TermSet = tvx::hsh::Hashtable<tvx::Term const*, tvx::hsh::GetKey_identity<tvx::Term const*>,
                                    tvx::Term const*, tvx::hsh::hash<tvx::Term const*>,
                                    std::equal_to<tvx::Term const*>>;

int failures = 0;

void check(bool ok, char const* what) {
  if (!ok) {
    std::cout << "failed: " << what << "\n";
    ++failures;
  }
}

bool int_lt(int const& a, int const& b) {
  return a < b;
}

}  // namespace

int main() {
  tvx::TermManager tm;
  tvx::DataType const* boolean = tm.get_bool_type();
  tvx::Term const* p = tm.make_constant(tm.make_symbol("p", boolean));
  tvx::Term const* q = tm.make_constant(tm.make_symbol("q", boolean));
  tvx::Term const* both = tm.make_and(p, q);
  check(tm.make_and(p, q) == both, "terms are shared");

  TermSet defined;
  check(defined.bucket_count() == 31, "a new set has 31 buckets");
  check(defined.insert(both).second, "first insertion adds");
  check(!defined.insert(both).second, "second insertion finds");
  check(defined.find(both) != defined.end(), "find sees the term");
  check(defined.find(p) == defined.end(), "find misses another term");

  tvx::hsh::HashMap<std::uint64_t, std::string> names;
  names.insert({both->get_id(), "both"});
  check(names.find(both->get_id())->second == "both", "map lookup");

  int values[] = {3, 1, 2};
  tvx::sort(values, std::size_t{3}, &int_lt);
  check(values[0] == 1 && values[1] == 2 && values[2] == 3, "sort");

  check(tvx::str::replace('"', "\\\"", "a \"b\"") == "a \\\"b\\\"", "str::replace");

  if (failures == 0) {
    std::cout << "tvx consumer ok\n";
  }
  return failures == 0 ? 0 : 1;
}
