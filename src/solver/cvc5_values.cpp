// The cvc5 engine's answers back in the term layer: values (numerals, Reals as rationals,
// bit-vector literals, arrays as stores over a constant array, elements of uninterpreted
// sorts as abstract values), function tables, models, and interpolants computed by a cvc5
// solver of their own.
#include <cassert>
#include <sstream>
#include <string>
#include <vector>

#include <tvx/core/error.h>

#include "core/arith_args.h"
#include "solver/cvc5_engine.h"
#include "solver/table_builder.h"

namespace tvx {

namespace {

using cvc5::Kind;

// Whether t's first child is the function or datatype operator applied, not an argument.
bool applies_operator(cvc5::Term const& t) {
  Kind const k = t.getKind();
  return k == Kind::APPLY_UF || k == Kind::APPLY_CONSTRUCTOR || k == Kind::APPLY_SELECTOR ||
         k == Kind::APPLY_TESTER;
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
    // cvc5 names each element of a sort once, by its own text for it.
    return answers_.element(sort_back(sort), t.getUninterpretedSortValue());
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
  if (k == Kind::APPLY_CONSTRUCTOR || k == Kind::APPLY_SELECTOR || k == Kind::APPLY_TESTER) {
    auto it = datatype_symbol_of_.find(t[0]);
    if (it == datatype_symbol_of_.end()) {
      throw EngineError("cvc5: the answer applies " + t[0].toString() +
                        ", which the engine did not make");
    }
    return mgr_.make_term(it->second, args.data(), args.size());
  }
  SymbolTag::tag const tag = cvc5ops::tag_of_kind(k);
  if (tag == SymbolTag::UNINTERPRETED) {
    throw Unsupported("the term layer has no operator for cvc5's " + kind_name(k) + " in " +
                      t.toString());
  }
  if (Term const* numeral = mix_arith_args(mgr_, tag, args.data(), args.size())) {
    return numeral;
  }
  std::vector<std::uint64_t> indices;
  if (t.hasOp()) {
    cvc5::Op const op = t.getOp();
    for (std::size_t i = 0; i < op.getNumIndices(); ++i) {
      indices.push_back(std::stoull(op[i].getIntegerValue()));
    }
  }
  try {
    return mgr_.make_builtin(tag, args.data(), args.size(), indices.data(), indices.size());
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
      std::size_t const n = t.getNumChildren() - (applies_operator(t) ? 1 : 0);
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
    std::size_t const first = applies_operator(t) ? 1 : 0;
    for (std::size_t i = t.getNumChildren(); i-- > first;) {
      tasks.push_back(Task{Step::kVisit, t[i]});
    }
  }
  return results.back();
}

// A lambda's body for TableBuilder::read: a tree of if-then-else over equalities of its
// variables with values (cvc5 fixes one argument per level, so a one-level test of a
// two-argument function leaves the other free), whose leaves are values; for a predicate, a
// leaf may be a condition, (= _arg_1 4) for "true at 4", a disjunction of them, or a negation.
class Cvc5Session::BodyReader {
 public:
  BodyReader(Cvc5Session& session, cvc5::Term const& vars) : s_(session), vars_(vars) {}

  bool ite(cvc5::Term const& n, cvc5::Term& cond, cvc5::Term& then_part, cvc5::Term& else_part) {
    if (n.getKind() != Kind::ITE) {
      return false;
    }
    cond = n[0];
    then_part = n[1];
    else_part = n[2];
    return true;
  }
  bool fixes(cvc5::Term const& cond, TableBuilder::Fixes& out);
  bool conditions(cvc5::Term n, bool& positive, std::vector<TableBuilder::Fixes>& out) {
    if (n.isBooleanValue()) {
      return false;
    }
    if (n.getKind() == Kind::NOT) {
      positive = false;
      n = n[0];
    }
    std::vector<cvc5::Term> disjuncts{n};
    if (n.getKind() == Kind::OR) {
      disjuncts.assign(n.begin(), n.end());
    }
    for (cvc5::Term const& d : disjuncts) {
      out.emplace_back();
      if (!fixes(d, out.back())) {
        return false;
      }
    }
    return true;
  }
  Term const* value(cvc5::Term const& n) { return s_.to_term(n); }

 private:
  // The argument a variable stands for; the arity for anything else.
  std::size_t var_index(cvc5::Term const& v) const {
    std::size_t i = 0;
    while (i < vars_.getNumChildren() && vars_[i] != v) {
      ++i;
    }
    return i;
  }

  Cvc5Session& s_;
  cvc5::Term vars_;
};

bool Cvc5Session::BodyReader::fixes(cvc5::Term const& cond, TableBuilder::Fixes& out) {
  std::size_t const arity = vars_.getNumChildren();
  std::vector<cvc5::Term> parts{cond};
  while (!parts.empty()) {
    cvc5::Term const c = parts.back();
    parts.pop_back();
    std::size_t i = var_index(c);
    if (i < arity) {
      out.emplace_back(i, s_.mgr_.make_true());
    } else if (c.getKind() == Kind::NOT && (i = var_index(c[0])) < arity) {
      out.emplace_back(i, s_.mgr_.make_false());
    } else if (c.getKind() == Kind::AND) {
      for (std::size_t k = c.getNumChildren(); k-- > 0;) {
        parts.push_back(c[k]);
      }
    } else if (c.getKind() == Kind::EQUAL && c.getNumChildren() == 2) {
      std::size_t const l = var_index(c[0]);
      std::size_t const r = var_index(c[1]);
      if ((l < arity) == (r < arity)) {
        return false;
      }
      out.emplace_back(l < arity ? l : r, s_.to_term(l < arity ? c[1] : c[0]));
    } else {
      return false;
    }
  }
  return true;
}

FunctionValue Cvc5Session::function_value(Symbol const* s, cvc5::Term const& lambda) {
  if (lambda.getKind() == Kind::LAMBDA) {
    TableBuilder table(mgr_, lambda[0].getNumChildren());
    BodyReader reader(*this, lambda[0]);
    table.read(lambda[1], s->get_output_type()->is_bool(), reader);
    if (table.complete()) {
      return table.finish();
    }
  }
  throw EngineError("cvc5: the value of '" + s->get_name() + "', " + lambda.toString() +
                    ", is not a finite table");
}

Model Cvc5Session::model() {
  Answers::ModelReader reader;
  reader.constant = [&](Symbol const* s) { return to_term(solver_.getValue(decls_[s->get_id()])); };
  reader.function = [&](Symbol const* s, FunctionValue& fv) {
    fv = function_value(s, solver_.getValue(decls_[s->get_id()]));
    return true;  // cvc5 gives every function a value
  };
  return answers_.model(known_, reader);
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
