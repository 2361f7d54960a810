// The benchmark DAGs of bench_common.h built in a tvx term manager: the same nodes, in the
// same order, as the peers build them through their own APIs.
#ifndef TVX_BENCH_TVX_DAG_H
#define TVX_BENCH_TVX_DAG_H

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <tvx/core/term_manager.h>
#include "bench_common.h"

namespace tvx {
namespace bench {

// Makes every node of d in m; t[k] is node k's term afterwards.
inline void build_terms(TermManager& m, Dag const& d, std::vector<Term const*>& t) {
  DataType const* u = m.make_simple_type("U");
  DataType const* i = m.get_integer_type();
  DataType const* bv = m.get_bv_type(32);
  Symbol const* f = m.make_symbol("f", m.get_function_type({u, u}, u));
  Symbol const* gs = m.make_symbol("g", m.get_function_type({u}, i));
  Symbol const* h = m.make_symbol("h", m.get_function_type({i}, u));
  t.assign(d.nodes.size(), nullptr);
  for (std::size_t k = 0; k < d.nodes.size(); ++k) {
    Node const& n = d.nodes[k];
    Term const* args[2] = {n.a < k ? t[n.a] : nullptr, n.b < k ? t[n.b] : nullptr};
    switch (n.op) {
      case Op::UConst:
        t[k] = m.make_constant(m.make_symbol("u" + std::to_string(n.value), u));
        break;
      case Op::IntConst:
        t[k] = m.make_constant(m.make_symbol("x" + std::to_string(n.value), i));
        break;
      case Op::BvConst:
        t[k] = m.make_constant(m.make_symbol("b" + std::to_string(n.value), bv));
        break;
      case Op::IntNum:
        t[k] = m.make_number(std::to_string(n.value), i);
        break;
      case Op::BvNum:
        t[k] = m.make_number(std::to_string(n.value), bv);
        break;
      case Op::F:
        t[k] = m.make_term(f, args, 2);
        break;
      case Op::G:
        t[k] = m.make_term(gs, args, 1);
        break;
      case Op::H:
        t[k] = m.make_term(h, args, 1);
        break;
      default: {
        // The theory operators, by their SMT-LIB names; "not" takes one argument.
        static constexpr char const* kNames[] = {"+", "*",  "bvadd", "bvmul", "bvand",
                                                 "=", "<=", "bvult", "and",   "not"};
        std::size_t const op = static_cast<std::size_t>(n.op) - static_cast<std::size_t>(Op::Add);
        t[k] = m.make_builtin(kNames[op], args, n.op == Op::Not ? 1 : 2);
        break;
      }
    }
  }
}

struct TvxDag {
  std::unique_ptr<TermManager> mgr;
  std::vector<Term const*> roots;
  std::vector<bool> scoped;
};

inline std::unique_ptr<TvxDag> build_tvx(Dag const& d) {
  auto g = std::make_unique<TvxDag>();
  g->mgr = std::make_unique<TermManager>();
  std::vector<Term const*> t;
  build_terms(*g->mgr, d, t);
  for (Root const& r : d.roots) {
    g->roots.push_back(t[r.node]);
    g->scoped.push_back(r.scoped);
  }
  return g;
}

}  // namespace bench
}  // namespace tvx

#endif  // TVX_BENCH_TVX_DAG_H
