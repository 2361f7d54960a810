// The cvc5 engine: answers through cvc5's C++ API in the same process. cvc5 keeps state per
// thread and recurses over terms, so every cvc5 object lives and every call runs on one thread
// of the engine's own with a large stack (DeepStack). Terms are translated once each, memoised
// by term id, without recursion; answers are translated back into the term layer.
#include <cvc5/cvc5.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <sstream>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include <tvx/core/error.h>
#include <tvx/solver/engine.h>

#include "solver/deep_stack.h"
#include "solver/engines.h"

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

// Everything that touches cvc5; made, used and destroyed on the engine's own thread only.
class Cvc5Session {
 public:
  Cvc5Session(TermManager& mgr, Configuration const& config);

  void declare_sort(DataType const* sort) { sort_of(sort); }
  void declare_fun(Symbol const* symbol) { decl_of(symbol); }
  void assert_formula(Term const* formula, bool track);
  void push();
  void pop();
  void reset_assertions();
  CheckResult check(std::vector<TheoryLit> const& assumptions);
  std::string reason_unknown() const;
  std::vector<Term const*> unsat_core();
  std::vector<TheoryLit> unsat_assumptions();
  Term const* value(Term const* term);
  Model model();
  Term const* interpolant(std::vector<Term const*> const& a, std::vector<Term const*> const& b);

 private:
  cvc5::Sort sort_of(DataType const* t);
  DataType const* sort_back(cvc5::Sort const& s);
  cvc5::Term decl_of(Symbol const* s);
  cvc5::Term translate(Term const* t);
  cvc5::Term build(Term const* t);
  cvc5::Term const_array(DataType const* sort, cvc5::Term const& value);
  Term const* to_term(cvc5::Term const& root);
  Term const* leaf(cvc5::Term const& t);
  Term const* apply(cvc5::Term const& t, std::vector<Term const*>& args);
  Term const* element(cvc5::Term const& value, DataType const* sort);
  FunctionValue function_value(Symbol const* s, cvc5::Term const& lambda);
  void collect_symbols(std::vector<Term const*> const& roots,
                       std::unordered_set<Symbol const*>& out);

  TermManager& mgr_;
  cvc5::Solver solver_;
  bool models_;
  bool cores_;
  std::string time_limit_;  // cvc5's "tlimit-per" in milliseconds; empty for none
  cvc5::Result last_;
  std::vector<cvc5::Term> terms_;     // by term id; null: not translated yet
  std::vector<cvc5::Sort> sorts_;     // by sort id
  std::vector<cvc5::Term> decls_;     // by symbol id, uninterpreted symbols only
  std::vector<Symbol const*> known_;  // the uninterpreted symbols translated, in order
  std::unordered_map<cvc5::Term, Symbol const*> symbol_of_;  // by cvc5 constant
  std::unordered_map<cvc5::Sort, DataType const*> sort_of_;  // by cvc5 sort

  // Tracked assertions by their cvc5 term, with how many scopes assert them.
  struct Tracked {
    Term const* formula;
    std::size_t count;
  };
  std::unordered_map<cvc5::Term, Tracked> tracked_;
  std::vector<std::pair<cvc5::Term, std::size_t>> track_log_;  // (assertion, scope depth)
  std::size_t depth_ = 0;
  std::unordered_map<cvc5::Term, TheoryLit> assumptions_;

  // Elements of uninterpreted sorts met in models: the index each was given.
  std::unordered_map<cvc5::Term, std::uint64_t> elements_;
  std::unordered_map<std::uint64_t, std::uint64_t> next_element_;  // by sort id

  // Scratch of translate, reused from call to call.
  struct Frame {
    Term const* term;
    std::size_t next_arg;
  };
  std::vector<Frame> frames_;
  std::vector<cvc5::Term> args_;
};

Cvc5Session::Cvc5Session(TermManager& mgr, Configuration const& config)
    : mgr_(mgr), models_(config.model_generation), cores_(config.unsat_core_generation) {
  solver_.setOption("incremental", "true");
  solver_.setOption("produce-models", models_ ? "true" : "false");
  solver_.setOption("produce-unsat-cores", cores_ ? "true" : "false");
  solver_.setOption("produce-unsat-assumptions", "true");
  solver_.setOption("seed", std::to_string(config.random_seed));
  if (config.timeout > 0) {
    double const ms = config.timeout * 1000.0;
    std::uint64_t const limit =
        ms >= 1e18 ? std::uint64_t{1000000000000000000} : static_cast<std::uint64_t>(ms + 0.5);
    time_limit_ = std::to_string(limit == 0 ? 1 : limit);
    solver_.setOption("tlimit-per", time_limit_);
  }
  if (config.verbosity > 0) {
    solver_.setOption("verbosity", std::to_string(config.verbosity));
  }
  solver_.setLogic("ALL");
}

// ------------------------------------------------------------------------ sorts and symbols

cvc5::Sort Cvc5Session::sort_of(DataType const* t) {
  // Compound sorts nest; their components are made first, from an explicit stack.
  std::vector<DataType const*> stack{t};
  while (!stack.empty()) {
    DataType const* u = stack.back();
    std::size_t const id = static_cast<std::size_t>(u->get_id());
    if (id < sorts_.size() && !sorts_[id].isNull()) {
      stack.pop_back();
      continue;
    }
    cvc5::Sort s;
    switch (u->get_kind()) {
      case DataType::Kind::Bool:
        s = solver_.getBooleanSort();
        break;
      case DataType::Kind::Int:
        s = solver_.getIntegerSort();
        break;
      case DataType::Kind::Real:
        s = solver_.getRealSort();
        break;
      case DataType::Kind::BitVector:
        s = solver_.mkBitVectorSort(static_cast<std::uint32_t>(u->get_bv_width()));
        break;
      case DataType::Kind::Uninterpreted:
        // Each call makes a new sort, so two sorts of one name stay two sorts.
        s = solver_.mkUninterpretedSort(u->get_name());
        break;
      case DataType::Kind::Array: {
        bool ready = true;
        for (DataType const* c : {u->get_array_index(), u->get_array_element()}) {
          std::size_t const cid = static_cast<std::size_t>(c->get_id());
          if (cid >= sorts_.size() || sorts_[cid].isNull()) {
            stack.push_back(c);
            ready = false;
          }
        }
        if (!ready) {
          continue;
        }
        s = solver_.mkArraySort(sorts_[u->get_array_index()->get_id()],
                                sorts_[u->get_array_element()->get_id()]);
        break;
      }
      case DataType::Kind::Function:
        throw Error("cvc5: a function type is not the sort of a term");
    }
    if (sorts_.size() <= id) {
      sorts_.resize(id + 1);
    }
    sorts_[id] = s;
    sort_of_.emplace(s, u);
    stack.pop_back();
  }
  return sorts_[t->get_id()];
}

// The term layer's sort of a cvc5 sort: one the engine made, or a built-in one.
DataType const* Cvc5Session::sort_back(cvc5::Sort const& root) {
  std::vector<cvc5::Sort> stack{root};
  while (!stack.empty()) {
    cvc5::Sort const s = stack.back();
    if (sort_of_.count(s) != 0) {
      stack.pop_back();
      continue;
    }
    DataType const* t = nullptr;
    if (s.isBoolean()) {
      t = mgr_.get_bool_type();
    } else if (s.isInteger()) {
      t = mgr_.get_integer_type();
    } else if (s.isReal()) {
      t = mgr_.get_rational_type();
    } else if (s.isBitVector()) {
      t = mgr_.get_bv_type(s.getBitVectorSize());
    } else if (s.isArray()) {
      cvc5::Sort const index = s.getArrayIndexSort();
      cvc5::Sort const elem = s.getArrayElementSort();
      auto i = sort_of_.find(index);
      auto e = sort_of_.find(elem);
      if (i == sort_of_.end() || e == sort_of_.end()) {
        stack.push_back(index);
        stack.push_back(elem);
        continue;
      }
      t = mgr_.get_array_type(i->second, e->second);
    } else {
      throw Unsupported("the cvc5 engine cannot express cvc5's sort " + s.toString() +
                        " in the term layer");
    }
    sort_of_.emplace(s, t);
    stack.pop_back();
  }
  return sort_of_.at(root);
}

cvc5::Term Cvc5Session::decl_of(Symbol const* s) {
  std::size_t const id = static_cast<std::size_t>(s->get_id());
  if (id < decls_.size() && !decls_[id].isNull()) {
    return decls_[id];
  }
  cvc5::Sort sort = sort_of(s->get_output_type());
  if (s->get_arity() > 0) {
    DataType const* type = s->get_type();
    std::vector<cvc5::Sort> domain;
    for (std::size_t i = 0; i + 1 < type->get_num_components(); ++i) {
      domain.push_back(sort_of(type->get_component(i)));
    }
    sort = solver_.mkFunctionSort(domain, sort);
  }
  cvc5::Term const d = solver_.mkConst(sort, s->get_name());
  if (decls_.size() <= id) {
    decls_.resize(id + 1);
  }
  decls_[id] = d;
  known_.push_back(s);
  symbol_of_.emplace(d, s);
  return d;
}

// ------------------------------------------------------------------------ terms

cvc5::Term Cvc5Session::translate(Term const* root) {
  std::size_t const root_id = static_cast<std::size_t>(root->get_id());
  if (root_id < terms_.size() && !terms_[root_id].isNull()) {
    return terms_[root_id];
  }
  if (terms_.size() <= root_id) {
    terms_.resize(root_id + 1);  // no argument has a larger id
  }
  frames_.clear();
  frames_.push_back(Frame{root, 0});
  while (!frames_.empty()) {
    Frame& f = frames_.back();
    Term const* t = f.term;
    if (f.next_arg < t->get_arity()) {
      Term const* arg = t->get_arg(f.next_arg++);
      if (terms_[arg->get_id()].isNull()) {
        frames_.push_back(Frame{arg, 0});
      }
      continue;
    }
    if (terms_[t->get_id()].isNull()) {
      terms_[t->get_id()] = build(t);
    }
    frames_.pop_back();
  }
  return terms_[root_id];
}

// The cvc5 term of t, whose arguments are translated.
cvc5::Term Cvc5Session::build(Term const* t) {
  Symbol const* s = t->get_symbol();
  std::size_t const n = t->get_arity();
  args_.clear();
  for (std::size_t i = 0; i < n; ++i) {
    args_.push_back(terms_[t->get_arg(i)->get_id()]);
  }
  std::vector<cvc5::Term> const& a = args_;
  auto mk = [&](Kind k) { return solver_.mkTerm(k, a); };
  // Left-associative folds of binary operators, and chains of binary relations.
  auto fold = [&](Kind k) {
    cvc5::Term r = a[0];
    for (std::size_t i = 1; i < n; ++i) {
      r = solver_.mkTerm(k, {r, a[i]});
    }
    return r;
  };
  auto chain = [&](Kind k) {
    if (n == 2) {
      return solver_.mkTerm(k, {a[0], a[1]});
    }
    std::vector<cvc5::Term> links;
    for (std::size_t i = 0; i + 1 < n; ++i) {
      links.push_back(solver_.mkTerm(k, {a[i], a[i + 1]}));
    }
    return solver_.mkTerm(Kind::AND, links);
  };
  auto indexed = [&](Kind k) {
    std::vector<std::uint32_t> indices;
    for (std::size_t i = 0; i < s->get_num_indices(); ++i) {
      indices.push_back(static_cast<std::uint32_t>(s->get_index(i)));
    }
    return solver_.mkTerm(solver_.mkOp(k, indices), a);
  };
  switch (s->get_tag()) {
    case SymbolTag::UNINTERPRETED: {
      cvc5::Term const d = decl_of(s);
      if (n == 0) {
        return d;
      }
      std::vector<cvc5::Term> app{d};
      app.insert(app.end(), a.begin(), a.end());
      return solver_.mkTerm(Kind::APPLY_UF, app);
    }
    case SymbolTag::NUMERAL: {
      DataType const* type = s->get_output_type();
      std::string const& v = s->get_name();
      if (type->is_bv()) {
        // "#b" and the bits, most significant first.
        return solver_.mkBitVector(static_cast<std::uint32_t>(type->get_bv_width()), v.substr(2),
                                   2);
      }
      return type->is_int() ? solver_.mkInteger(v) : solver_.mkReal(v);
    }
    case SymbolTag::TRUE:
      return solver_.mkTrue();
    case SymbolTag::FALSE:
      return solver_.mkFalse();
    case SymbolTag::NOT:
      return mk(Kind::NOT);
    case SymbolTag::AND:
      return mk(Kind::AND);
    case SymbolTag::OR:
      return mk(Kind::OR);
    case SymbolTag::XOR:
      return fold(Kind::XOR);
    case SymbolTag::IMPLIES: {
      cvc5::Term r = a[n - 1];  // right-associative
      for (std::size_t i = n - 1; i-- > 0;) {
        r = solver_.mkTerm(Kind::IMPLIES, {a[i], r});
      }
      return r;
    }
    case SymbolTag::EQUAL:
      return chain(Kind::EQUAL);
    case SymbolTag::DISTINCT:
      return mk(Kind::DISTINCT);
    case SymbolTag::ITE:
      return mk(Kind::ITE);
    case SymbolTag::ADD:
      return mk(Kind::ADD);
    case SymbolTag::SUB:
      return fold(Kind::SUB);
    case SymbolTag::NEG:
      return mk(Kind::NEG);
    case SymbolTag::MUL:
      return mk(Kind::MULT);
    case SymbolTag::DIV:
      return fold(Kind::DIVISION);
    case SymbolTag::IDIV:
      return fold(Kind::INTS_DIVISION);
    case SymbolTag::MOD:
      return mk(Kind::INTS_MODULUS);
    case SymbolTag::ABS:
      return mk(Kind::ABS);
    case SymbolTag::LT:
      return chain(Kind::LT);
    case SymbolTag::LE:
      return chain(Kind::LEQ);
    case SymbolTag::GT:
      return chain(Kind::GT);
    case SymbolTag::GE:
      return chain(Kind::GEQ);
    case SymbolTag::TO_REAL:
      return mk(Kind::TO_REAL);
    case SymbolTag::TO_INT:
      return mk(Kind::TO_INTEGER);
    case SymbolTag::IS_INT:
      return mk(Kind::IS_INTEGER);
    case SymbolTag::CONCAT:
      return fold(Kind::BITVECTOR_CONCAT);
    case SymbolTag::EXTRACT:
      return indexed(Kind::BITVECTOR_EXTRACT);
    case SymbolTag::REPEAT:
      return indexed(Kind::BITVECTOR_REPEAT);
    case SymbolTag::ZERO_EXTEND:
      return indexed(Kind::BITVECTOR_ZERO_EXTEND);
    case SymbolTag::SIGN_EXTEND:
      return indexed(Kind::BITVECTOR_SIGN_EXTEND);
    case SymbolTag::ROTATE_LEFT:
      return indexed(Kind::BITVECTOR_ROTATE_LEFT);
    case SymbolTag::ROTATE_RIGHT:
      return indexed(Kind::BITVECTOR_ROTATE_RIGHT);
    case SymbolTag::BVNOT:
      return mk(Kind::BITVECTOR_NOT);
    case SymbolTag::BVNEG:
      return mk(Kind::BITVECTOR_NEG);
    case SymbolTag::BVAND:
      return fold(Kind::BITVECTOR_AND);
    case SymbolTag::BVOR:
      return fold(Kind::BITVECTOR_OR);
    case SymbolTag::BVXOR:
      return fold(Kind::BITVECTOR_XOR);
    case SymbolTag::BVNAND:
      return mk(Kind::BITVECTOR_NAND);
    case SymbolTag::BVNOR:
      return mk(Kind::BITVECTOR_NOR);
    case SymbolTag::BVXNOR:
      return mk(Kind::BITVECTOR_XNOR);
    case SymbolTag::BVCOMP:
      return mk(Kind::BITVECTOR_COMP);
    case SymbolTag::BVADD:
      return fold(Kind::BITVECTOR_ADD);
    case SymbolTag::BVSUB:
      return fold(Kind::BITVECTOR_SUB);
    case SymbolTag::BVMUL:
      return fold(Kind::BITVECTOR_MULT);
    case SymbolTag::BVUDIV:
      return mk(Kind::BITVECTOR_UDIV);
    case SymbolTag::BVUREM:
      return mk(Kind::BITVECTOR_UREM);
    case SymbolTag::BVSDIV:
      return mk(Kind::BITVECTOR_SDIV);
    case SymbolTag::BVSREM:
      return mk(Kind::BITVECTOR_SREM);
    case SymbolTag::BVSMOD:
      return mk(Kind::BITVECTOR_SMOD);
    case SymbolTag::BVSHL:
      return mk(Kind::BITVECTOR_SHL);
    case SymbolTag::BVLSHR:
      return mk(Kind::BITVECTOR_LSHR);
    case SymbolTag::BVASHR:
      return mk(Kind::BITVECTOR_ASHR);
    case SymbolTag::BVULT:
      return mk(Kind::BITVECTOR_ULT);
    case SymbolTag::BVULE:
      return mk(Kind::BITVECTOR_ULE);
    case SymbolTag::BVUGT:
      return mk(Kind::BITVECTOR_UGT);
    case SymbolTag::BVUGE:
      return mk(Kind::BITVECTOR_UGE);
    case SymbolTag::BVSLT:
      return mk(Kind::BITVECTOR_SLT);
    case SymbolTag::BVSLE:
      return mk(Kind::BITVECTOR_SLE);
    case SymbolTag::BVSGT:
      return mk(Kind::BITVECTOR_SGT);
    case SymbolTag::BVSGE:
      return mk(Kind::BITVECTOR_SGE);
    case SymbolTag::SELECT:
      return mk(Kind::SELECT);
    case SymbolTag::STORE:
      return mk(Kind::STORE);
    case SymbolTag::CONST_ARRAY:
      return const_array(s->get_output_type(), a[0]);
    case SymbolTag::NUM_TAGS:
      break;
  }
  throw Error("cvc5: no translation for the operator '" + s->get_name() + "'");
}

// cvc5 makes constant arrays of values only: an element that simplifies to a value (closed
// arithmetic, say) is replaced by it; any other element is refused.
cvc5::Term Cvc5Session::const_array(DataType const* sort, cvc5::Term const& value) {
  cvc5::Sort const s = sort_of(sort);
  try {
    return solver_.mkConstArray(s, value);
  } catch (cvc5::CVC5ApiException const&) {
  }
  try {
    return solver_.mkConstArray(s, solver_.simplify(value));
  } catch (cvc5::CVC5ApiException const&) {
  }
  throw Unsupported("the cvc5 engine makes constant arrays of values only; the element " +
                    value.toString() + " of a constant array of sort " + sort->to_string() +
                    " is not one (the z3 engine takes any element)");
}

// ------------------------------------------------------------------------ assertions

void Cvc5Session::assert_formula(Term const* formula, bool track) {
  cvc5::Term const f = translate(formula);
  solver_.assertFormula(f);
  if (!track || !cores_) {
    return;
  }
  auto it = tracked_.emplace(f, Tracked{formula, 0}).first;
  ++it->second.count;
  track_log_.emplace_back(f, depth_);
}

void Cvc5Session::push() {
  solver_.push(1);
  ++depth_;
}

void Cvc5Session::pop() {
  solver_.pop(1);
  --depth_;
  while (!track_log_.empty() && track_log_.back().second > depth_) {
    auto it = tracked_.find(track_log_.back().first);
    if (--it->second.count == 0) {
      tracked_.erase(it);
    }
    track_log_.pop_back();
  }
}

void Cvc5Session::reset_assertions() {
  solver_.resetAssertions();
  depth_ = 0;
  tracked_.clear();
  track_log_.clear();
}

CheckResult Cvc5Session::check(std::vector<TheoryLit> const& assumptions) {
  assumptions_.clear();
  std::vector<cvc5::Term> lits;
  lits.reserve(assumptions.size());
  for (TheoryLit const& lit : assumptions) {
    cvc5::Term a = translate(lit.get_term());
    if (lit.is_negated()) {
      a = solver_.mkTerm(Kind::NOT, {a});
    }
    lits.push_back(a);
    assumptions_.emplace(a, lit);
  }
  last_ = lits.empty() ? solver_.checkSat() : solver_.checkSatAssuming(lits);
  return last_.isSat()     ? CheckResult::Sat
         : last_.isUnsat() ? CheckResult::Unsat
                           : CheckResult::Unknown;
}

std::string Cvc5Session::reason_unknown() const {
  switch (last_.getUnknownExplanation()) {
    case cvc5::TIMEOUT:
      return "timeout";
    case cvc5::RESOURCEOUT:
      return "resourceout";
    case cvc5::MEMOUT:
      return "memout";
    case cvc5::INTERRUPTED:
      return "interrupted";
    case cvc5::INCOMPLETE:
      return "incomplete";
    case cvc5::UNSUPPORTED:
      return "unsupported";
    default:
      break;
  }
  std::ostringstream out;
  out << last_.getUnknownExplanation();
  std::string reason = out.str();
  std::transform(reason.begin(), reason.end(), reason.begin(), [](char c) {
    return c == '_' ? '-' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  });
  return reason;
}

std::vector<Term const*> Cvc5Session::unsat_core() {
  std::vector<Term const*> result;
  if (!cores_) {
    return result;
  }
  // cvc5's core lists assertions as asserted; those not tracked are left out.
  for (cvc5::Term const& t : solver_.getUnsatCore()) {
    auto it = tracked_.find(t);
    if (it != tracked_.end()) {
      result.push_back(it->second.formula);
    }
  }
  return result;
}

std::vector<TheoryLit> Cvc5Session::unsat_assumptions() {
  std::vector<TheoryLit> result;
  for (cvc5::Term const& t : solver_.getUnsatAssumptions()) {
    auto it = assumptions_.find(t);
    if (it != assumptions_.end()) {
      result.push_back(it->second);
    }
  }
  return result;
}

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
// arguments with values, whose leaves are values. Leaves reached with every argument fixed are
// the table's points; the leaf reached with none fixed is the value everywhere else.
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
  std::vector<std::pair<std::vector<cvc5::Term>, cvc5::Term>> partial;  // other leaves
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
    bool const all = std::none_of(b.fixed.begin(), b.fixed.end(),
                                  [](cvc5::Term const& v) { return v.isNull(); });
    bool const none =
        std::all_of(b.fixed.begin(), b.fixed.end(), [](cvc5::Term const& v) { return v.isNull(); });
    if (all) {
      FunctionValue::Point p;
      for (cvc5::Term const& v : b.fixed) {
        p.args.push_back(to_term(v));
      }
      // The tree is read first branch first; a later leaf at the same point is unreachable.
      bool const seen =
          std::any_of(fv.points.begin(), fv.points.end(),
                      [&](FunctionValue::Point const& q) { return q.args == p.args; });
      if (!seen) {
        p.value = to_term(node);
        fv.points.push_back(std::move(p));
      }
    } else if (none && fv.otherwise == nullptr) {
      fv.otherwise = to_term(node);
    } else if (!none) {
      partial.emplace_back(std::move(b.fixed), node);
    }
  }
  if (fv.otherwise == nullptr) {
    return fail();
  }
  // A leaf reached with some arguments fixed, and not others, must agree with the value
  // everywhere else: a finite table has no entry for a whole slice of its domain.
  for (auto const& leaf_value : partial) {
    if (to_term(leaf_value.second) != fv.otherwise) {
      return fail();
    }
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

// The uninterpreted symbols that occur in the terms.
void Cvc5Session::collect_symbols(std::vector<Term const*> const& roots,
                                  std::unordered_set<Symbol const*>& out) {
  std::unordered_set<Term const*> seen;
  std::vector<Term const*> stack(roots.begin(), roots.end());
  while (!stack.empty()) {
    Term const* t = stack.back();
    stack.pop_back();
    if (!seen.insert(t).second) {
      continue;
    }
    if (t->get_symbol()->is_uninterpreted()) {
      out.insert(t->get_symbol());
    }
    for (std::size_t i = 0; i < t->get_arity(); ++i) {
      stack.push_back(t->get_arg(i));
    }
  }
}

Term const* Cvc5Session::interpolant(std::vector<Term const*> const& a,
                                     std::vector<Term const*> const& b) {
  // With one side empty the other is unsatisfiable alone, and a constant interpolates.
  if (a.empty()) {
    return mgr_.make_true();
  }
  if (b.empty()) {
    return mgr_.make_false();
  }
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
  Term const* result = to_term(i);
  std::unordered_set<Symbol const*> in_a;
  std::unordered_set<Symbol const*> in_b;
  std::unordered_set<Symbol const*> in_i;
  collect_symbols(a, in_a);
  collect_symbols(b, in_b);
  collect_symbols({result}, in_i);
  for (Symbol const* s : in_i) {
    if (in_a.count(s) == 0 || in_b.count(s) == 0) {
      throw EngineError("cvc5: get_interpolant: the interpolant " + i.toString() + " uses '" +
                        s->get_name() + "', which A and B do not share");
    }
  }
  return result;
}

// ------------------------------------------------------------------------ the engine

// Runs every call on the engine's own thread, and reports cvc5's exceptions as EngineError
// naming the operation.
class Cvc5Engine final : public Engine {
 public:
  Cvc5Engine(TermManager& mgr, Configuration const& config) {
    call("start", [&] { session_ = std::make_unique<Cvc5Session>(mgr, config); });
  }
  ~Cvc5Engine() override {
    // cvc5's objects die on the thread that made them.
    stack_.run([this] { session_.reset(); });
  }
  Cvc5Engine(Cvc5Engine const&) = delete;
  Cvc5Engine& operator=(Cvc5Engine const&) = delete;

  std::string const& name() const override { return name_; }
  void declare_sort(DataType const* sort) override {
    call("declare_sort", [&] { session_->declare_sort(sort); });
  }
  void declare_fun(Symbol const* symbol) override {
    call("declare_fun", [&] { session_->declare_fun(symbol); });
  }
  void assert_formula(Term const* formula, bool track) override {
    call("assert_formula", [&] { session_->assert_formula(formula, track); });
  }
  void push() override {
    call("push", [&] { session_->push(); });
  }
  void pop() override {
    call("pop", [&] { session_->pop(); });
  }
  void reset_assertions() override {
    call("reset_assertions", [&] { session_->reset_assertions(); });
  }
  CheckResult check(std::vector<TheoryLit> const& assumptions) override {
    return call("check", [&] { return session_->check(assumptions); });
  }
  std::string reason_unknown() override {
    return call("reason_unknown", [&] { return session_->reason_unknown(); });
  }
  std::vector<Term const*> unsat_core() override {
    return call("get_unsat_core", [&] { return session_->unsat_core(); });
  }
  std::vector<TheoryLit> unsat_assumptions() override {
    return call("get_unsat_assumptions", [&] { return session_->unsat_assumptions(); });
  }
  Term const* value(Term const* term) override {
    return call("get_model_value", [&] { return session_->value(term); });
  }
  Model model() override {
    return call("get_model", [&] { return session_->model(); });
  }
  Term const* interpolant(std::vector<Term const*> const& a,
                          std::vector<Term const*> const& b) override {
    return call("get_interpolant", [&] { return session_->interpolant(a, b); });
  }

 private:
  template <class F>
  auto call(char const* operation, F&& f) -> decltype(f()) {
    using R = decltype(f());
    auto guarded = [&]() -> R {
      try {
        return f();
      } catch (Error const&) {
        throw;
      } catch (std::bad_alloc const&) {
        throw;
      } catch (std::exception const& e) {
        throw EngineError(std::string("cvc5: ") + operation + ": " + e.what());
      }
    };
    if constexpr (std::is_void_v<R>) {
      stack_.run(guarded);
    } else {
      std::optional<R> result;
      stack_.run([&] { result.emplace(guarded()); });
      return std::move(*result);
    }
  }

  std::string name_ = "cvc5";
  DeepStack stack_;
  std::unique_ptr<Cvc5Session> session_;
};

}  // namespace

std::unique_ptr<Engine> make_cvc5_engine(TermManager& mgr, Configuration const& config) {
  return std::make_unique<Cvc5Engine>(mgr, config);
}

}  // namespace tvx
