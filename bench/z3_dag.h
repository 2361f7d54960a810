// The benchmark DAG made in z3 through its C API, node by node, as the peers and the
// environment's benchmark both need it.
#ifndef TVX_BENCH_Z3_DAG_H
#define TVX_BENCH_Z3_DAG_H

#include <z3.h>

#include <string>
#include <vector>

#include "bench_common.h"

namespace tvx {
namespace bench {

// Makes every node of d in z3; t[k] is node k's term afterwards.
inline void build_z3(Z3_context c, Dag const& d, std::vector<Z3_ast>& t) {
  Z3_sort u = Z3_mk_uninterpreted_sort(c, Z3_mk_string_symbol(c, "U"));
  Z3_sort i = Z3_mk_int_sort(c);
  Z3_sort bv = Z3_mk_bv_sort(c, 32);
  Z3_sort uu[2] = {u, u};
  Z3_func_decl f = Z3_mk_func_decl(c, Z3_mk_string_symbol(c, "f"), 2, uu, u);
  Z3_func_decl g = Z3_mk_func_decl(c, Z3_mk_string_symbol(c, "g"), 1, &u, i);
  Z3_func_decl h = Z3_mk_func_decl(c, Z3_mk_string_symbol(c, "h"), 1, &i, u);
  t.assign(d.nodes.size(), nullptr);
  std::string name;
  for (std::size_t k = 0; k < d.nodes.size(); ++k) {
    Node const& n = d.nodes[k];
    Z3_ast args[2] = {n.a < k ? t[n.a] : nullptr, n.b < k ? t[n.b] : nullptr};
    switch (n.op) {
      case Op::UConst:
      case Op::IntConst:
      case Op::BvConst: {
        char const* p = n.op == Op::UConst ? "u" : (n.op == Op::IntConst ? "x" : "b");
        name = p + std::to_string(n.value);
        Z3_sort s = n.op == Op::UConst ? u : (n.op == Op::IntConst ? i : bv);
        t[k] = Z3_mk_const(c, Z3_mk_string_symbol(c, name.c_str()), s);
        break;
      }
      case Op::IntNum:
        t[k] = Z3_mk_unsigned_int64(c, n.value, i);
        break;
      case Op::BvNum:
        t[k] = Z3_mk_unsigned_int64(c, n.value, bv);
        break;
      case Op::F:
        t[k] = Z3_mk_app(c, f, 2, args);
        break;
      case Op::G:
        t[k] = Z3_mk_app(c, g, 1, args);
        break;
      case Op::H:
        t[k] = Z3_mk_app(c, h, 1, args);
        break;
      case Op::Add:
        t[k] = Z3_mk_add(c, 2, args);
        break;
      case Op::MulC:
        t[k] = Z3_mk_mul(c, 2, args);
        break;
      case Op::BvAdd:
        t[k] = Z3_mk_bvadd(c, args[0], args[1]);
        break;
      case Op::BvMul:
        t[k] = Z3_mk_bvmul(c, args[0], args[1]);
        break;
      case Op::BvAnd:
        t[k] = Z3_mk_bvand(c, args[0], args[1]);
        break;
      case Op::EqU:
        t[k] = Z3_mk_eq(c, args[0], args[1]);
        break;
      case Op::LeInt:
        t[k] = Z3_mk_le(c, args[0], args[1]);
        break;
      case Op::BvUlt:
        t[k] = Z3_mk_bvult(c, args[0], args[1]);
        break;
      case Op::And:
        t[k] = Z3_mk_and(c, 2, args);
        break;
      case Op::Not:
        t[k] = Z3_mk_not(c, args[0]);
        break;
    }
  }
}

}  // namespace bench
}  // namespace tvx

#endif  // TVX_BENCH_Z3_DAG_H
