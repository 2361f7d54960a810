// The cvc5 engine: answers through cvc5's C++ API in the same process. cvc5 keeps state per
// thread and recurses over terms, so every cvc5 object lives and every call runs on one thread
// of the engine's own with a large stack (DeepStack). Terms are translated once each, memoised
// by term id, without recursion; answers are translated back into the term layer.
#include "solver/cvc5_engine.h"

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <tvx/core/error.h>

#include "solver/engines.h"

namespace tvx {

using cvc5::Kind;

Cvc5Session::Cvc5Session(TermManager& mgr, Configuration const& config)
    : mgr_(mgr), models_(config.model_generation), cores_(config.unsat_core_generation) {
  solver_.setOption("incremental", "true");
  solver_.setOption("produce-models", models_ ? "true" : "false");
  solver_.setOption("produce-unsat-cores", cores_ ? "true" : "false");
  solver_.setOption("produce-unsat-assumptions", "true");
  solver_.setOption("seed", std::to_string(config.random_seed));
  if (config.timeout > 0) {
    set_timeout(config.timeout);
  }
  if (config.verbosity > 0) {
    solver_.setOption("verbosity", std::to_string(config.verbosity));
  }
  solver_.setLogic("ALL");
}

void Cvc5Session::set_timeout(double seconds) {
  double const ms = seconds * 1000.0;
  std::uint64_t const limit =
      ms >= 1e18 ? std::uint64_t{1000000000000000000} : static_cast<std::uint64_t>(ms + 0.5);
  time_limit_ = seconds <= 0 ? "" : std::to_string(limit == 0 ? 1 : limit);
  solver_.setOption("tlimit-per", time_limit_.empty() ? "0" : time_limit_);
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
      case DataType::Kind::Param:
        throw Error("cvc5: the sort parameter " + u->get_name() + " is not the sort of a term");
      case DataType::Kind::Datatype: {
        // The whole group at once, after the sorts its fields take from outside it.
        bool ready = true;
        for (DataType const* d : mgr_.datatype_dependencies(u)) {
          std::size_t const did = static_cast<std::size_t>(d->get_id());
          if (did >= sorts_.size() || sorts_[did].isNull()) {
            stack.push_back(d);
            ready = false;
          }
        }
        if (!ready) {
          continue;
        }
        make_datatypes(u);
        stack.pop_back();
        continue;
      }
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

// A datatype's group as one cvc5 declaration. The group's sorts are named by their printed
// names, unique in the session, so that fields can refer to them as unresolved sorts.
void Cvc5Session::make_datatypes(DataType const* member) {
  std::vector<DataType const*> const& group = *mgr_.datatype_info(member)->group;
  std::vector<cvc5::Sort> unresolved;
  for (DataType const* d : group) {
    unresolved.push_back(solver_.mkUnresolvedDatatypeSort(mgr_.get_printed_name(d)));
  }
  // A field's sort with the group's datatypes replaced by their unresolved sorts.
  auto field_sort = [&](DataType const* f) {
    std::vector<DataType const*> stack{f};
    std::unordered_map<DataType const*, cvc5::Sort> made;
    while (!stack.empty()) {
      DataType const* u = stack.back();
      auto in_group = std::find(group.begin(), group.end(), u);
      if (in_group != group.end()) {
        made[u] = unresolved[static_cast<std::size_t>(in_group - group.begin())];
      } else if (!u->is_array()) {
        made[u] = sort_of(u);
      } else if (made.count(u->get_array_index()) == 0 || made.count(u->get_array_element()) == 0) {
        stack.push_back(u->get_array_index());
        stack.push_back(u->get_array_element());
        continue;
      } else {
        made[u] = solver_.mkArraySort(made[u->get_array_index()], made[u->get_array_element()]);
      }
      stack.pop_back();
    }
    return made[f];
  };
  std::vector<cvc5::DatatypeDecl> decls;
  for (DataType const* d : group) {
    decls.push_back(solver_.mkDatatypeDecl(mgr_.get_printed_name(d)));
    for (DatatypeInfo::Constructor const& c : mgr_.datatype_info(d)->constructors) {
      cvc5::DatatypeConstructorDecl cd =
          solver_.mkDatatypeConstructorDecl(mgr_.get_printed_name(c.constructor));
      for (Symbol const* selector : c.selectors) {
        cd.addSelector(mgr_.get_printed_name(selector), field_sort(selector->get_output_type()));
      }
      decls.back().addConstructor(cd);
    }
  }
  std::vector<cvc5::Sort> const made = solver_.mkDatatypeSorts(decls);
  for (std::size_t i = 0; i < group.size(); ++i) {
    DataType const* d = group[i];
    std::size_t const id = static_cast<std::size_t>(d->get_id());
    if (sorts_.size() <= id) {
      sorts_.resize(id + 1);
    }
    sorts_[id] = made[i];
    sort_of_.emplace(made[i], d);
    cvc5::Datatype const dt = made[i].getDatatype();
    auto keep = [&](Symbol const* s, cvc5::Term const& op) {
      std::size_t const sid = static_cast<std::size_t>(s->get_id());
      if (decls_.size() <= sid) {
        decls_.resize(sid + 1);
      }
      decls_[sid] = op;
      datatype_symbol_of_.emplace(op, s);
    };
    auto const& cs = mgr_.datatype_info(d)->constructors;
    for (std::size_t k = 0; k < cs.size(); ++k) {
      keep(cs[k].constructor, dt[k].getTerm());
      keep(cs[k].tester, dt[k].getTesterTerm());
      for (std::size_t j = 0; j < cs[k].selectors.size(); ++j) {
        keep(cs[k].selectors[j], dt[k][j].getTerm());
      }
    }
  }
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
  return dag_.translate(
      root, [this](Term const* t, std::vector<cvc5::Term> const& args) { return build(t, args); });
}

// The cvc5 term of t, whose arguments' terms are `a`.
cvc5::Term Cvc5Session::build(Term const* t, std::vector<cvc5::Term> const& a) {
  Symbol const* s = t->get_symbol();
  switch (s->get_tag()) {
    case SymbolTag::UNINTERPRETED: {
      cvc5::Term const d = decl_of(s);
      if (a.empty()) {
        return d;
      }
      std::vector<cvc5::Term> app{d};
      app.insert(app.end(), a.begin(), a.end());
      return solver_.mkTerm(Kind::APPLY_UF, app);
    }
    case SymbolTag::NUMERAL:
      return build_numeral(s);
    case SymbolTag::CONST_ARRAY:
      return const_array(s->get_output_type(), a[0]);
    case SymbolTag::VARIABLE:
      return solver_.mkVar(sort_of(s->get_output_type()), mgr_.get_printed_name(s));
    case SymbolTag::FORALL:
    case SymbolTag::EXISTS:
      return build_quantifier(t, a);
    case SymbolTag::ALGEBRAIC:
      throw Unsupported("cvc5 takes no algebraic number " + s->get_name() + " in a term");
    case SymbolTag::DT_CONSTRUCTOR:
    case SymbolTag::DT_SELECTOR:
    case SymbolTag::DT_TESTER: {
      // Made with the datatype, which its sort makes.
      sort_of(s->get_tag() == SymbolTag::DT_CONSTRUCTOR ? s->get_output_type()
                                                        : s->get_type()->get_component(0));
      Kind const kind = s->get_tag() == SymbolTag::DT_CONSTRUCTOR ? Kind::APPLY_CONSTRUCTOR
                        : s->get_tag() == SymbolTag::DT_SELECTOR  ? Kind::APPLY_SELECTOR
                                                                  : Kind::APPLY_TESTER;
      std::vector<cvc5::Term> app{decls_[s->get_id()]};
      app.insert(app.end(), a.begin(), a.end());
      return solver_.mkTerm(kind, app);
    }
    default:
      break;
  }
  cvc5ops::Cvc5Op const* op = cvc5ops::op_of_tag(s->get_tag());
  if (op == nullptr) {
    throw Error("cvc5: no translation for the operator '" + s->get_name() + "'");
  }
  return build_by_row(*op, s, a);
}

// A binder over its variables with its patterns; cvc5 takes no :qid, :skolemid or :weight, so
// those are left out. cvc5 refuses a variable bound inside a binder of the same variable, and a
// variable of the term layer is one term wherever it is bound: each binder binds variables of
// its own, put in place of the variable's term in its body and patterns, so that the binders
// inside it (which did the same) keep theirs.
cvc5::Term Cvc5Session::build_quantifier(Term const* t, std::vector<cvc5::Term> const& a) {
  BinderInfo const& info = mgr_.binder_info(t->get_symbol());
  std::size_t const n = info.num_vars;
  std::vector<cvc5::Term> const placeholders(a.begin(), a.begin() + n);
  std::vector<cvc5::Term> own;
  for (std::size_t i = 0; i < n; ++i) {
    own.push_back(solver_.mkVar(placeholders[i].getSort(),
                                mgr_.get_printed_name(t->get_arg(i)->get_symbol())));
  }
  auto bind = [&](cvc5::Term const& x) { return x.substitute(placeholders, own); };
  std::vector<cvc5::Term> parts{solver_.mkTerm(Kind::VARIABLE_LIST, own), bind(a[n])};
  std::vector<cvc5::Term> patterns;
  std::size_t k = n + 1;
  for (std::size_t size : info.pattern_sizes) {
    std::vector<cvc5::Term> terms;
    for (std::size_t i = 0; i < size; ++i) {
      terms.push_back(bind(a[k + i]));
    }
    patterns.push_back(solver_.mkTerm(Kind::INST_PATTERN, terms));
    k += size;
  }
  for (std::size_t i = 0; i < info.num_no_patterns; ++i, ++k) {
    patterns.push_back(solver_.mkTerm(Kind::INST_NO_PATTERN, {bind(a[k])}));
  }
  if (!patterns.empty()) {
    parts.push_back(solver_.mkTerm(Kind::INST_PATTERN_LIST, patterns));
  }
  return solver_.mkTerm(
      t->get_symbol()->get_tag() == SymbolTag::FORALL ? Kind::FORALL : Kind::EXISTS, parts);
}

cvc5::Term Cvc5Session::build_numeral(Symbol const* s) {
  DataType const* type = s->get_output_type();
  std::string const& v = s->get_name();
  if (type->is_bv()) {
    // "#b" and the bits, most significant first.
    return solver_.mkBitVector(static_cast<std::uint32_t>(type->get_bv_width()), v.substr(2), 2);
  }
  return type->is_int() ? solver_.mkInteger(v) : solver_.mkReal(v);
}

// The application of a row's kind to the arguments `a`.
cvc5::Term Cvc5Session::build_by_row(cvc5ops::Cvc5Op const& op, Symbol const* s,
                                     std::vector<cvc5::Term> const& a) {
  switch (op.arity) {
    case cvc5ops::Arity::None:
      return solver_.mkBoolean(op.tag == SymbolTag::TRUE);
    case cvc5ops::Arity::Given:
      break;
    case cvc5ops::Arity::Two:
      if (a.size() == 2) {
        break;
      }
      return spell_nary(
          optable::op_of_tag(op.tag)->assoc, a.data(), a.size(),
          [&](cvc5::Term const& x, cvc5::Term const& y) {
            pair_.assign({x, y});
            return solver_.mkTerm(op.kind, pair_);
          },
          [&](std::vector<cvc5::Term> const& links) { return solver_.mkTerm(Kind::AND, links); },
          links_);
  }
  if (!op.indexed) {
    return solver_.mkTerm(op.kind, a);
  }
  indices_.clear();
  for (std::size_t i = 0; i < s->get_num_indices(); ++i) {
    indices_.push_back(static_cast<std::uint32_t>(s->get_index(i)));
  }
  return solver_.mkTerm(solver_.mkOp(op.kind, indices_), a);
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

void Cvc5Session::define_funs_rec(std::vector<Symbol const*> const& functions,
                                  std::vector<std::vector<Term const*>> const& params,
                                  std::vector<Term const*> const& bodies) {
  std::vector<cvc5::Term> funs;
  std::vector<std::vector<cvc5::Term>> vars;
  std::vector<cvc5::Term> terms;
  for (std::size_t k = 0; k < functions.size(); ++k) {
    funs.push_back(decl_of(functions[k]));
    vars.emplace_back();
    for (Term const* x : params[k]) {
      vars.back().push_back(translate(x));
    }
  }
  for (Term const* body : bodies) {
    terms.push_back(translate(body));
  }
  solver_.defineFunsRec(funs, vars, terms, false);
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

namespace {

// ------------------------------------------------------------------------ the engine

// Runs every call on the engine's own thread, and reports cvc5's exceptions as EngineError
// naming the operation.
class Cvc5Engine final : public Engine {
 public:
  Cvc5Engine(TermManager& mgr, Configuration const& config) : mgr_(mgr), config_(config) {
    call("start", [&] { session_ = std::make_unique<Cvc5Session>(mgr_, config_); });
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
  void define_funs_rec(std::vector<Symbol const*> const& functions,
                       std::vector<std::vector<Term const*>> const& params,
                       std::vector<Term const*> const& bodies) override {
    call("define_funs_rec", [&] { session_->define_funs_rec(functions, params, bodies); });
  }
  void set_timeout(double seconds) override {
    config_.timeout = seconds;
    call("set_timeout", [&] { session_->set_timeout(seconds); });
  }
  // A new solver: cvc5 fixes its options and logic once per solver.
  void reset() override {
    call("reset", [&] {
      session_.reset();
      session_ = std::make_unique<Cvc5Session>(mgr_, config_);
    });
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

  TermManager& mgr_;
  Configuration config_;
  std::string name_ = "cvc5";
  DeepStack stack_;
  std::unique_ptr<Cvc5Session> session_;
};

}  // namespace

std::string cvc5_library_version() {
  cvc5::Solver solver;
  return solver.getVersion();
}

std::unique_ptr<Engine> make_cvc5_engine(TermManager& mgr, Configuration const& config) {
  return std::make_unique<Cvc5Engine>(mgr, config);
}

}  // namespace tvx
