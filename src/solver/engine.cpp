#include <tvx/solver/engine.h>

#include <algorithm>
#include <cassert>
#include <cstddef>

#include <tvx/core/error.h>

#include "solver/engines.h"

namespace tvx {

Engine::~Engine() = default;

char const* to_string(CheckResult result) {
  switch (result) {
    case CheckResult::Sat:
      return "sat";
    case CheckResult::Unsat:
      return "unsat";
    case CheckResult::Unknown:
      break;
  }
  return "unknown";
}

Term const* FunctionValue::at(std::vector<Term const*> const& args) const {
  for (Point const& p : points) {
    assert(std::any_of(p.args.begin(), p.args.end(), [](Term const* a) { return a != nullptr; }) &&
           "every point fixes at least one argument");
    bool match = p.args.size() == args.size();
    for (std::size_t i = 0; match && i < args.size(); ++i) {
      match = p.args[i] == nullptr || p.args[i] == args[i];
    }
    if (match) {
      return p.value;
    }
  }
  return otherwise;
}

std::vector<std::string> builtin_engine_names() {
  std::vector<std::string> names;
#ifdef TVX_HAVE_Z3
  names.emplace_back("z3");
#endif
#ifdef TVX_HAVE_CVC5
  names.emplace_back("cvc5");
#endif
  return names;
}

std::string builtin_engine_version(std::string const& name) {
#ifdef TVX_HAVE_Z3
  if (name == "z3") {
    return z3_library_version();
  }
#endif
#ifdef TVX_HAVE_CVC5
  if (name == "cvc5") {
    return cvc5_library_version();
  }
#endif
  (void)name;
  return "";
}

std::unique_ptr<Engine> make_engine(std::string const& name, TermManager& mgr,
                                    Configuration const& config) {
#ifdef TVX_HAVE_Z3
  if (name == "z3") {
    return make_z3_engine(mgr, config);
  }
#endif
#ifdef TVX_HAVE_CVC5
  if (name == "cvc5") {
    return make_cvc5_engine(mgr, config);
  }
#endif
  // Any other name is the command line of a solver process.
  if (name.find_first_not_of(" \t\n") == std::string::npos) {
    throw Error("unknown engine '" + name + "'");
  }
  return make_process_engine(name, mgr, config);
}

}  // namespace tvx
