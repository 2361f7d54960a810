// SmtLib2ApiTracerTestAccess: read-only views of a tracer's private record for the tests, and
// the record's own invariant (marks clear, each declaration stack in step with its set).
#ifndef TVX_TESTS_TRACER_TRACER_TEST_ACCESS_H
#define TVX_TESTS_TRACER_TRACER_TEST_ACCESS_H

#include <algorithm>
#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include <tvx/tracer/smtlib2_api_tracer.h>

namespace tvx {

class SmtLib2ApiTracerTestAccess {
 public:
  static std::vector<Symbol const*> const& symbol_stack(SmtLib2ApiTracer const& t) {
    return t.symbol_decl_stack_;
  }
  static std::vector<DataType const*> const& type_stack(SmtLib2ApiTracer const& t) {
    return t.type_decl_stack_;
  }
  static std::size_t marks_size(SmtLib2ApiTracer const& t) { return t.visit_marks_.size(); }
  static int itp_group(SmtLib2ApiTracer const& t) { return t.itp_group_; }
  // Empty when the record is sound, else what is wrong with it.
  static std::string record_fault(SmtLib2ApiTracer const& t) {
    if (std::find(t.visit_marks_.begin(), t.visit_marks_.end(), true) != t.visit_marks_.end()) {
      return "a visit mark is left set";
    }
    auto const& syms = t.symbol_decl_stack_;
    auto const& types = t.type_decl_stack_;
    if (t.global_decls_) {
      return syms.empty() && types.empty() ? "" : "a declaration stack in global mode";
    }
    std::multiset<Symbol const*> on_stack(syms.begin(), syms.end());
    std::multiset<DataType const*> types_on_stack(types.begin(), types.end());
    std::size_t const markers = on_stack.erase(nullptr);
    if (markers != types_on_stack.erase(nullptr)) {
      return "the stacks hold different numbers of markers";
    }
    std::size_t const bits = static_cast<std::size_t>(
        std::count(t.declared_symbols_.begin(), t.declared_symbols_.end(), true));
    bool const symbols_agree =
        bits == on_stack.size() &&
        std::all_of(on_stack.begin(), on_stack.end(), [&t, &on_stack](Symbol const* s) {
          return on_stack.count(s) == 1 && t.is_symbol_declared(s);
        });
    if (!symbols_agree ||
        types_on_stack !=
            std::multiset<DataType const*>(t.declared_types_.begin(), t.declared_types_.end())) {
      return "a declaration stack differs from its set";
    }
    return "";
  }
};

}  // namespace tvx

#endif  // TVX_TESTS_TRACER_TRACER_TEST_ACCESS_H
