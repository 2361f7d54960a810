// The cvc5 engine's answers back in the term layer: values (numerals, Reals as rationals,
// bit-vector literals, arrays as stores over a constant array, elements of uninterpreted
// sorts as abstract values), function tables, models, and interpolants computed by a cvc5
// solver of their own.
#include <algorithm>
#include <cassert>
#include <sstream>
#include <string>
#include <vector>

#include <tvx/core/error.h>

#include "solver/cvc5_engine.h"

namespace tvx {

namespace {

using cvc5::Kind;

// The term layer's name of each cvc5 operator that answers can hold; null for others.
char const* op_name(Kind k) {
  switch (k) {
    case Kind::NOT:
      return "not";
    case Kind::AND:
      return "and";
    case Kind::OR:
      return "or";
    case Kind::XOR:
      return "xor";
    case Kind::IMPLIES:
      return "=>";
    case Kind::EQUAL:
      return "=";
    case Kind::DISTINCT:
      return "distinct";
    case Kind::ITE:
      return "ite";
    case Kind::ADD:
      return "+";
    case Kind::SUB:
      return "-";
    case Kind::NEG:
      return "-";
    case Kind::MULT:
      return "*";
    case Kind::DIVISION:
      return "/";
    case Kind::INTS_DIVISION:
      return "div";
    case Kind::INTS_MODULUS:
      return "mod";
    case Kind::ABS:
      return "abs";
    case Kind::LT:
      return "<";
    case Kind::LEQ:
      return "<=";
    case Kind::GT:
      return ">";
    case Kind::GEQ:
      return ">=";
    case Kind::TO_REAL:
      return "to_real";
    case Kind::TO_INTEGER:
      return "to_int";
    case Kind::IS_INTEGER:
      return "is_int";
    case Kind::BITVECTOR_CONCAT:
      return "concat";
    case Kind::BITVECTOR_EXTRACT:
      return "extract";
    case Kind::BITVECTOR_REPEAT:
      return "repeat";
    case Kind::BITVECTOR_ZERO_EXTEND:
      return "zero_extend";
    case Kind::BITVECTOR_SIGN_EXTEND:
      return "sign_extend";
    case Kind::BITVECTOR_ROTATE_LEFT:
      return "rotate_left";
    case Kind::BITVECTOR_ROTATE_RIGHT:
      return "rotate_right";
    case Kind::BITVECTOR_NOT:
      return "bvnot";
    case Kind::BITVECTOR_NEG:
      return "bvneg";
    case Kind::BITVECTOR_AND:
      return "bvand";
    case Kind::BITVECTOR_OR:
      return "bvor";
    case Kind::BITVECTOR_XOR:
      return "bvxor";
    case Kind::BITVECTOR_NAND:
      return "bvnand";
    case Kind::BITVECTOR_NOR:
      return "bvnor";
    case Kind::BITVECTOR_XNOR:
      return "bvxnor";
    case Kind::BITVECTOR_COMP:
      return "bvcomp";
    case Kind::BITVECTOR_ADD:
      return "bvadd";
    case Kind::BITVECTOR_SUB:
      return "bvsub";
    case Kind::BITVECTOR_MULT:
      return "bvmul";
    case Kind::BITVECTOR_UDIV:
      return "bvudiv";
    case Kind::BITVECTOR_UREM:
      return "bvurem";
    case Kind::BITVECTOR_SDIV:
      return "bvsdiv";
    case Kind::BITVECTOR_SREM:
      return "bvsrem";
    case Kind::BITVECTOR_SMOD:
      return "bvsmod";
    case Kind::BITVECTOR_SHL:
      return "bvshl";
    case Kind::BITVECTOR_LSHR:
      return "bvlshr";
    case Kind::BITVECTOR_ASHR:
      return "bvashr";
    case Kind::BITVECTOR_ULT:
      return "bvult";
    case Kind::BITVECTOR_ULE:
      return "bvule";
    case Kind::BITVECTOR_UGT:
      return "bvugt";
    case Kind::BITVECTOR_UGE:
      return "bvuge";
    case Kind::BITVECTOR_SLT:
      return "bvslt";
    case Kind::BITVECTOR_SLE:
      return "bvsle";
    case Kind::BITVECTOR_SGT:
      return "bvsgt";
    case Kind::BITVECTOR_SGE:
      return "bvsge";
    case Kind::SELECT:
      return "select";
    case Kind::STORE:
      return "store";
    default:
      return nullptr;
  }
}

// Arithmetic operators whose arguments the term layer wants of one sort, where cvc5 mixes Int
// and Real.
bool mixes_arith(Kind k) {
  switch (k) {
    case Kind::ADD:
    case Kind::SUB:
    case Kind::MULT:
    case Kind::DIVISION:
    case Kind::LT:
    case Kind::LEQ:
    case Kind::GT:
    case Kind::GEQ:
    case Kind::EQUAL:
    case Kind::DISTINCT:
      return true;
    default:
      return false;
  }
}

std::string kind_name(Kind k) {
  std::ostringstream out;
  out << k;
  return out.str();
}

}  // namespace

// ------------------------------------------------------------------------ answers back

Term const* Cvc5Session::value(Term const* term) {
  return to_term(solver_.getValue(translate(term)));
}

// The abstract value standing for an element of an uninterpreted sort.
Term const* Cvc5Session::element(cvc5::Term const& value, DataType const* sort) {
  auto it = elements_.find(value);
  if (it == elements_.end()) {
    it = elements_.emplace(value, next_element_[sort->get_id()]++).first;
  }
  return mgr_.make_abstract_value(sort, it->second);
}

// A term without arguments to translate: a value, a constant, or a constant array (whose
// element is translated on the way).
Term const* Cvc5Session::leaf(cvc5::Term const& t) {
  cvc5::Sort const sort = t.getSort();
  if (t.isBooleanValue()) {
    return t.getBooleanValue() ? mgr_.make_true() : mgr_.make_false();
  }
  if (t.isBitVectorValue()) {
    return mgr_.make_number("#b" + t.getBitVectorValue(2), sort_back(sort));
  }
  if (sort.isInteger() && t.isIntegerValue()) {
    return mgr_.make_number(t.getIntegerValue(), mgr_.get_integer_type());
  }
  if (t.isRealValue()) {
    return mgr_.make_number(t.getRealValue(), mgr_.get_rational_type());
  }
  if (t.isUninterpretedSortValue()) {
    return element(t, sort_back(sort));
  }
  if (t.getKind() == Kind::CONSTANT) {
    auto it = symbol_of_.find(t);
    if (it == symbol_of_.end()) {
      throw EngineError("cvc5: the answer holds the constant " + t.toString() +
                        ", which the engine did not make");
    }
    return mgr_.make_constant(it->second);
  }
  return nullptr;
}

// The term layer's application of t's operator to the translated arguments.
Term const* Cvc5Session::apply(cvc5::Term const& t, std::vector<Term const*>& args) {
  Kind const k = t.getKind();
  if (k == Kind::APPLY_UF) {
    auto it = symbol_of_.find(t[0]);
    if (it == symbol_of_.end()) {
      throw EngineError("cvc5: the answer applies the function " + t[0].toString() +
                        ", which the engine did not make");
    }
    return mgr_.make_term(it->second, args.data(), args.size());
  }
  char const* name = op_name(k);
  if (name == nullptr) {
    throw Unsupported("the term layer has no operator for cvc5's " + kind_name(k) + " in " +
                      t.toString());
  }
  if (mixes_arith(k)) {
    bool const real =
        k == Kind::DIVISION || std::any_of(args.begin(), args.end(),
                                           [](Term const* a) { return a->get_type()->is_real(); });
    for (Term const*& a : args) {
      if (real && a->get_type()->is_int()) {
        a = mgr_.make_builtin("to_real", &a, 1);
      }
    }
  }
  std::vector<std::uint64_t> indices;
  if (t.hasOp()) {
    cvc5::Op const op = t.getOp();
    for (std::size_t i = 0; i < op.getNumIndices(); ++i) {
      indices.push_back(std::stoull(op[i].getIntegerValue()));
    }
  }
  try {
    return mgr_.make_builtin(name, args.data(), args.size(), indices.data(), indices.size());
  } catch (Error const& e) {
    throw Unsupported("the term layer cannot express cvc5's " + t.toString() + ": " + e.what());
  }
}

// Translates a cvc5 term (a value, or an interpolant over the engine's symbols) into the term
// layer. Terms nest (arrays of arrays, stores over stores, formulas), so the walk keeps its own
// stack; shared subterms are translated once.
Term const* Cvc5Session::to_term(cvc5::Term const& root) {
  enum class Step : std::uint8_t { kVisit, kBuild, kConstArray };
  struct Task {
    Step step;
    cvc5::Term term;
  };
  std::unordered_map<cvc5::Term, Term const*> done;
  std::vector<Task> tasks{{Step::kVisit, root}};
  std::vector<Term const*> results;
  std::vector<Term const*> args;
  while (!tasks.empty()) {
    Task const task = std::move(tasks.back());
    tasks.pop_back();
    cvc5::Term const& t = task.term;
    if (task.step == Step::kConstArray) {
      Term const* array = mgr_.make_const_array(sort_back(t.getSort()), results.back());
      results.back() = array;
      done.emplace(t, array);
      continue;
    }
    if (task.step == Step::kBuild) {
      // An application's function (its first child) is not an argument.
      std::size_t const n = t.getNumChildren() - (t.getKind() == Kind::APPLY_UF ? 1 : 0);
      args.assign(results.end() - static_cast<std::ptrdiff_t>(n), results.end());
      results.resize(results.size() - n);
      Term const* r = apply(t, args);
      results.push_back(r);
      done.emplace(t, r);
      continue;
    }
    auto it = done.find(t);
    if (it != done.end()) {
      results.push_back(it->second);
      continue;
    }
    if (t.isConstArray()) {
      tasks.push_back(Task{Step::kConstArray, t});
      tasks.push_back(Task{Step::kVisit, t.getConstArrayBase()});
      continue;
    }
    if (Term const* l = leaf(t)) {
      results.push_back(l);
      done.emplace(t, l);
      continue;
    }
    if (t.getKind() == Kind::VARIABLE || t.getKind() == Kind::LAMBDA) {
      throw EngineError("cvc5: the answer " + root.toString() +
                        " is not a value of the term layer");
    }
    tasks.push_back(Task{Step::kBuild, t});
    std::size_t const first = t.getKind() == Kind::APPLY_UF ? 1 : 0;
    for (std::size_t i = t.getNumChildren(); i-- > first;) {
      tasks.push_back(Task{Step::kVisit, t[i]});
    }
  }
  return results.back();
}

// A function's value from cvc5's lambda: a tree of if-then-else over equalities of its
// arguments with values, whose leaves are values. The tree is read then-branch first, so the
// leaves come out in the order in which it tries them: each is a point that fixes the arguments
// its path fixes (a one-level test of a two-argument function leaves the other free), and the
// leaf reached with none fixed is the value everywhere else.
FunctionValue Cvc5Session::function_value(Symbol const* s, cvc5::Term const& lambda) {
  auto fail = [&]() -> FunctionValue {
    throw EngineError("cvc5: the value of '" + s->get_name() + "', " + lambda.toString() +
                      ", is not a finite table");
  };
  if (lambda.getKind() != Kind::LAMBDA) {
    return fail();
  }
  cvc5::Term const vars = lambda[0];
  std::size_t const arity = vars.getNumChildren();
  auto var_index = [&](cvc5::Term const& v) -> std::size_t {
    for (std::size_t i = 0; i < arity; ++i) {
      if (vars[i] == v) {
        return i;
      }
    }
    return arity;
  };
  // The argument values a condition fixes: (= var value), a Boolean var or its negation, or a
  // conjunction of these. False when the condition has another form.
  auto fixes = [&](cvc5::Term const& cond, std::vector<std::pair<std::size_t, cvc5::Term>>& out) {
    std::vector<cvc5::Term> parts{cond};
    while (!parts.empty()) {
      cvc5::Term const c = parts.back();
      parts.pop_back();
      std::size_t i = var_index(c);
      if (i < arity) {
        out.emplace_back(i, solver_.mkTrue());
        continue;
      }
      if (c.getKind() == Kind::NOT && (i = var_index(c[0])) < arity) {
        out.emplace_back(i, solver_.mkFalse());
        continue;
      }
      if (c.getKind() == Kind::AND) {
        for (std::size_t k = 0; k < c.getNumChildren(); ++k) {
          parts.push_back(c[k]);
        }
        continue;
      }
      if (c.getKind() != Kind::EQUAL || c.getNumChildren() != 2) {
        return false;
      }
      std::size_t const l = var_index(c[0]);
      std::size_t const r = var_index(c[1]);
      if ((l < arity) == (r < arity)) {
        return false;
      }
      out.emplace_back(l < arity ? l : r, l < arity ? c[1] : c[0]);
    }
    return true;
  };
  struct Branch {
    cvc5::Term node;
    std::vector<cvc5::Term> fixed;  // per argument; null: not fixed on this path
  };
  FunctionValue fv;
  std::vector<Branch> stack{{lambda[1], std::vector<cvc5::Term>(arity)}};
  std::vector<std::pair<std::size_t, cvc5::Term>> fixed;
  while (!stack.empty()) {
    Branch b = std::move(stack.back());
    stack.pop_back();
    cvc5::Term const node = b.node;
    cvc5::Term then_part;
    cvc5::Term else_part;
    fixed.clear();
    if (node.getKind() == Kind::ITE && fixes(node[0], fixed)) {
      then_part = node[1];
      else_part = node[2];
    } else if (node.getSort().isBoolean() && !node.isBooleanValue()) {
      // A predicate's value may be the condition itself, (= _arg_1 4) for "true at 4", or a
      // disjunction of such conditions, read as true at the first, else the rest.
      fixed.clear();
      bool const disjunction = node.getKind() == Kind::OR;
      if (fixes(disjunction ? node[0] : node, fixed)) {
        then_part = solver_.mkTrue();
        else_part = solver_.mkFalse();
        if (disjunction) {
          std::vector<cvc5::Term> rest;
          for (std::size_t k = 1; k < node.getNumChildren(); ++k) {
            rest.push_back(node[k]);
          }
          else_part = rest.size() == 1 ? rest[0] : solver_.mkTerm(Kind::OR, rest);
        }
      }
    }
    if (!then_part.isNull()) {
      Branch then_branch{then_part, b.fixed};
      bool reachable = true;
      for (auto const& [i, v] : fixed) {
        if (!then_branch.fixed[i].isNull() && then_branch.fixed[i] != v) {
          reachable = false;
        }
        then_branch.fixed[i] = v;
      }
      stack.push_back(Branch{else_part, std::move(b.fixed)});
      if (reachable) {
        stack.push_back(std::move(then_branch));
      }
      continue;
    }
    if (std::all_of(b.fixed.begin(), b.fixed.end(),
                    [](cvc5::Term const& v) { return v.isNull(); })) {
      // Reached through else-branches only: the rest of the tree is read already.
      fv.otherwise = to_term(node);
      break;
    }
    FunctionValue::Point p;
    for (cvc5::Term const& v : b.fixed) {
      p.args.push_back(v.isNull() ? nullptr : to_term(v));
    }
    // The tree is read first branch first; a later leaf at the same point is unreachable.
    bool const seen = std::any_of(fv.points.begin(), fv.points.end(),
                                  [&](FunctionValue::Point const& q) { return q.args == p.args; });
    if (!seen) {
      p.value = to_term(node);
      fv.points.push_back(std::move(p));
    }
  }
  if (fv.otherwise == nullptr) {
    return fail();
  }
  return fv;
}

Model Cvc5Session::model() {
  Model result;
  std::vector<Symbol const*> symbols(known_);
  std::sort(symbols.begin(), symbols.end(),
            [](Symbol const* a, Symbol const* b) { return a->get_id() < b->get_id(); });
  for (Symbol const* s : symbols) {
    cvc5::Term const v = solver_.getValue(decls_[s->get_id()]);
    if (s->get_arity() == 0) {
      result.constants.emplace_back(s, to_term(v));
    } else {
      result.functions.emplace_back(s, function_value(s, v));
    }
  }
  return result;
}

// ------------------------------------------------------------------------ interpolants

Term const* Cvc5Session::interpolant(std::vector<Term const*> const& a,
                                     std::vector<Term const*> const& b) {
  // The environment answers when a side is empty, and checks the symbols of the answer.
  assert(!a.empty() && !b.empty());
  std::vector<cvc5::Term> b_terms;
  for (Term const* f : b) {
    b_terms.push_back(translate(f));
  }
  cvc5::Term const b_all = b_terms.size() == 1 ? b_terms[0] : solver_.mkTerm(Kind::AND, b_terms);
  // A fresh solver of the same thread shares the engine's terms. In it, A holds and the
  // interpolant I is asked with A => I and I => not B.
  cvc5::Solver itp;
  itp.setOption("produce-interpolants", "true");
  if (!time_limit_.empty()) {
    itp.setOption("tlimit-per", time_limit_);
  }
  itp.setLogic("ALL");
  for (Term const* f : a) {
    itp.assertFormula(translate(f));
  }
  cvc5::Term const i = itp.getInterpolant(itp.mkTerm(Kind::NOT, {b_all}));
  if (i.isNull()) {
    throw EngineError(std::string("cvc5: get_interpolant: cvc5 found no interpolant") +
                      (time_limit_.empty() ? "" : " within the time limit"));
  }
  return to_term(i);
}

}  // namespace tvx
