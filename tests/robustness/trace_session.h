// A traced session for the robustness tests: a term manager, a configuration, a fixed-capacity
// stream that never allocates after construction, a tracer, and a small vocabulary of sorts,
// symbols and terms. Term ids depend only on the order of creation, so two sessions that make
// the same calls number their terms alike.
#ifndef TVX_TESTS_ROBUSTNESS_TRACE_SESSION_H
#define TVX_TESTS_ROBUSTNESS_TRACE_SESSION_H

#include <cstddef>
#include <memory>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

#include "core/configuration.h"
#include "core/term_manager.h"
#include "tracer/smtlib2_api_tracer.h"

namespace tvx {
namespace test {

// Keeps everything written in a buffer reserved up front, so writing to the trace allocates
// nothing; a write beyond the capacity fails like a full device.
class FixedBuf : public std::streambuf {
 public:
  explicit FixedBuf(std::size_t capacity) : buffer_(capacity) {
    setp(buffer_.data(), buffer_.data() + buffer_.size());
  }
  std::string text() const { return std::string(pbase(), pptr()); }
  std::size_t size() const { return static_cast<std::size_t>(pptr() - pbase()); }

 private:
  std::vector<char> buffer_;
};

struct TraceSession {
  explicit TraceSession(bool global_mode, std::size_t capacity = 1 << 16)
      : global(global_mode), buf(capacity), out(&buf) {
    bool_type = mgr.get_bool_type();
    int_type = mgr.get_integer_type();
    U = mgr.make_simple_type("U");
    V = mgr.make_simple_type("V");
    f = mgr.make_symbol("f", mgr.get_function_type({U, U}, U));
    g = mgr.make_symbol("g", mgr.get_function_type({U}, U));
    p = mgr.make_symbol("p", mgr.get_function_type({U}, bool_type));
    h = mgr.make_symbol("h", mgr.get_function_type({U, V}, bool_type));
    a = mgr.make_constant(mgr.make_symbol("a", U));
    b = mgr.make_constant(mgr.make_symbol("b", U));
    c = mgr.make_constant(mgr.make_symbol("c", U));
    v = mgr.make_constant(mgr.make_symbol("v", V));
    x = mgr.make_constant(mgr.make_symbol("x", int_type));
    y = mgr.make_constant(mgr.make_symbol("y", int_type));
  }

  void start(bool dump_config = false) {
    tracer = std::make_unique<SmtLib2ApiTracer>(&config, &mgr, out, global, dump_config);
  }
  SmtLib2ApiTracer& t() { return *tracer; }

  Term const* app(Symbol const* s, std::vector<Term const*> const& args) {
    return mgr.make_term(s, args);
  }
  Term const* P(Term const* u) { return app(p, {u}); }
  Term const* F(Term const* l, Term const* r) { return app(f, {l, r}); }
  Term const* G(Term const* u) { return app(g, {u}); }

  // A formula with many subterms that nothing has used yet: a chain of f/g applications over
  // `base` of the given length, a comparison over integers, and h over the chain's end.
  Term const* big_formula(Term const* base, int length) {
    Term const* chain = base;
    for (int i = 0; i < length; ++i) {
      chain = F(chain, G(chain));
    }
    Term const* sum = mgr.make_builtin("+", {x, mgr.make_number(std::to_string(length), int_type)});
    Term const* cmp = mgr.make_builtin("<", {sum, y});
    return mgr.make_builtin("and", {P(chain), cmp, app(h, {chain, v})});
  }

  bool global;
  TermManager mgr;
  Configuration config;
  FixedBuf buf;
  std::ostream out;
  std::unique_ptr<SmtLib2ApiTracer> tracer;

  DataType const* bool_type;
  DataType const* int_type;
  DataType const* U;
  DataType const* V;
  Symbol const* f;
  Symbol const* g;
  Symbol const* p;
  Symbol const* h;
  Term const* a;
  Term const* b;
  Term const* c;
  Term const* v;
  Term const* x;
  Term const* y;
  // Terms an operation under test works on, made before it runs.
  std::vector<Term const*> terms;
};

// The text without the time stamp line of the header, which differs from run to run.
inline std::string without_stamp(std::string const& text) {
  std::string result;
  std::size_t pos = 0;
  while (pos < text.size()) {
    std::size_t end = text.find('\n', pos);
    end = end == std::string::npos ? text.size() : end + 1;
    if (text.compare(pos, 16, ";; generated on ") != 0) {
      result.append(text, pos, end - pos);
    }
    pos = end;
  }
  return result;
}

}  // namespace test
}  // namespace tvx

#endif  // TVX_TESTS_ROBUSTNESS_TRACE_SESSION_H
