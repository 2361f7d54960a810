// The z3 engine: answers through z3's C API in the same process. Terms are translated once
// each, memoised by term id, without recursion; answers are translated back into the term
// layer. Every z3 object the engine keeps has a reference of its own (a context with
// reference counting), so a long session frees what it no longer needs.
#include <z3.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <tvx/core/error.h>
#include <tvx/solver/engine.h>
#include <tvx/support/str.h>

#include "solver/engines.h"
#include "solver/z3_engine.h"

namespace tvx {

Z3Engine::Z3Engine(TermManager& mgr, Configuration const& config) : mgr_(mgr) {
  Z3_config cfg = Z3_mk_config();
  Z3_set_param_value(cfg, "model", config.model_generation ? "true" : "false");
  ctx_ = Z3_mk_context_rc(cfg);
  Z3_del_config(cfg);
  if (ctx_ == nullptr) {
    throw EngineError("z3: the context could not be made");
  }
  // Errors are read back after each call that can fail, rather than aborting the process.
  Z3_set_error_handler(ctx_, nullptr);
  if (config.verbosity > 0) {
    Z3_global_param_set("verbose", std::to_string(config.verbosity).c_str());
  }
  solver_ = Z3_mk_solver(ctx_);
  Z3_solver_inc_ref(ctx_, solver_);
  Z3_params params = Z3_mk_params(ctx_);
  Z3_params_inc_ref(ctx_, params);
  Z3_params_set_uint(ctx_, params, Z3_mk_string_symbol(ctx_, "random_seed"), config.random_seed);
  params_ = params;  // the core solver gets the same settings
  if (config.timeout > 0) {
    set_timeout(config.timeout);  // sets the solver's parameters
  } else {
    Z3_solver_set_params(ctx_, solver_, params_);
  }
  check_error();
}

void Z3Engine::set_timeout(double seconds) {
  double const ms = seconds * 1000.0;
  unsigned const limit =
      seconds <= 0 || ms >= 4294967295.0 ? 4294967295u : static_cast<unsigned>(ms + 0.5);
  Z3_params_set_uint(ctx_, params_, Z3_mk_string_symbol(ctx_, "timeout"), limit == 0 ? 1u : limit);
  Z3_solver_set_params(ctx_, solver_, params_);
  check_error();
}

Z3Engine::~Z3Engine() {
  drop_model();
  release_held();
  for (Z3_ast a : kept_) {
    Z3_dec_ref(ctx_, a);
  }
  for (Z3_sort s : sorts_) {
    if (s != nullptr) {
      Z3_dec_ref(ctx_, Z3_sort_to_ast(ctx_, s));
    }
  }
  for (Z3_func_decl d : decls_) {
    if (d != nullptr) {
      Z3_dec_ref(ctx_, Z3_func_decl_to_ast(ctx_, d));
    }
  }
  Z3_solver_dec_ref(ctx_, solver_);
  Z3_params_dec_ref(ctx_, params_);
  Z3_del_context(ctx_);
}

void Z3Engine::check_error() {
  Z3_error_code const code = Z3_get_error_code(ctx_);
  if (code != Z3_OK) {
    throw EngineError(std::string("z3: ") + Z3_get_error_msg(ctx_, code));
  }
}

// ------------------------------------------------------------------------ sorts and symbols

Z3_sort Z3Engine::sort_of(DataType const* t) {
  // Compound sorts nest; their components are made first, from an explicit stack.
  std::vector<DataType const*> stack{t};
  while (!stack.empty()) {
    DataType const* u = stack.back();
    std::size_t const id = static_cast<std::size_t>(u->get_id());
    if (id < sorts_.size() && sorts_[id] != nullptr) {
      stack.pop_back();
      continue;
    }
    Z3_sort s = nullptr;
    switch (u->get_kind()) {
      case DataType::Kind::Bool:
        s = Z3_mk_bool_sort(ctx_);
        break;
      case DataType::Kind::Int:
        s = Z3_mk_int_sort(ctx_);
        break;
      case DataType::Kind::Real:
        s = Z3_mk_real_sort(ctx_);
        break;
      case DataType::Kind::BitVector:
        s = Z3_mk_bv_sort(ctx_, static_cast<unsigned>(u->get_bv_width()));
        break;
      case DataType::Kind::Uninterpreted:
        // Named by id: two sorts of one name (one declared after the other's scope ended) stay
        // two sorts.
        s = Z3_mk_uninterpreted_sort(ctx_, Z3_mk_int_symbol(ctx_, static_cast<int>(id)));
        break;
      case DataType::Kind::Array: {
        DataType const* index = u->get_array_index();
        DataType const* element = u->get_array_element();
        bool ready = true;
        for (DataType const* c : {index, element}) {
          std::size_t const cid = static_cast<std::size_t>(c->get_id());
          if (cid >= sorts_.size() || sorts_[cid] == nullptr) {
            stack.push_back(c);
            ready = false;
          }
        }
        if (!ready) {
          continue;
        }
        s = Z3_mk_array_sort(ctx_, sorts_[index->get_id()], sorts_[element->get_id()]);
        break;
      }
      case DataType::Kind::Function:
        throw Error("z3: a function type is not the sort of a term");
      case DataType::Kind::Param:
        throw Error("z3: the sort parameter " + u->get_name() + " is not the sort of a term");
      case DataType::Kind::Datatype: {
        // The whole group at once, after the sorts its fields take from outside it.
        bool ready = true;
        for (DataType const* d : mgr_.datatype_dependencies(u)) {
          std::size_t const did = static_cast<std::size_t>(d->get_id());
          if (did >= sorts_.size() || sorts_[did] == nullptr) {
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
    check_error();
    Z3_inc_ref(ctx_, Z3_sort_to_ast(ctx_, s));
    if (sorts_.size() <= id) {
      sorts_.resize(id + 1, nullptr);
    }
    sorts_[id] = s;
    stack.pop_back();
  }
  return sorts_[t->get_id()];
}

namespace {

// Whether the sort t has inner among its components, at any depth.
bool nests(DataType const* t, DataType const* inner) {
  std::vector<DataType const*> stack{t};
  while (!stack.empty()) {
    DataType const* u = stack.back();
    stack.pop_back();
    for (std::size_t i = 0; i < u->get_num_components(); ++i) {
      if (u->get_component(i) == inner) {
        return true;
      }
      stack.push_back(u->get_component(i));
    }
  }
  return false;
}

}  // namespace

// A datatype's group as one z3 declaration. Names are ids, as for uninterpreted sorts; a field
// whose sort is a datatype of the group refers to it by its position, the only way z3 takes it.
void Z3Engine::make_datatypes(DataType const* member) {
  std::vector<DataType const*> const& group = *mgr_.datatype_info(member)->group;
  std::vector<Z3_symbol> names;
  std::vector<std::vector<Z3_constructor>> constructors(group.size());
  std::vector<Z3_constructor_list> lists;
  auto release = [&] {
    for (Z3_constructor_list l : lists) {
      Z3_del_constructor_list(ctx_, l);
    }
    for (auto const& cs : constructors) {
      for (Z3_constructor c : cs) {
        Z3_del_constructor(ctx_, c);
      }
    }
  };
  try {
    for (std::size_t i = 0; i < group.size(); ++i) {
      DataType const* d = group[i];
      names.push_back(Z3_mk_int_symbol(ctx_, static_cast<int>(d->get_id())));
      for (DatatypeInfo::Constructor const& c : mgr_.datatype_info(d)->constructors) {
        std::vector<Z3_symbol> fields;
        std::vector<Z3_sort> sorts;
        std::vector<unsigned> refs;
        for (Symbol const* selector : c.selectors) {
          DataType const* f = selector->get_output_type();
          fields.push_back(Z3_mk_int_symbol(ctx_, static_cast<int>(selector->get_id())));
          auto in_group = std::find(group.begin(), group.end(), f);
          if (in_group != group.end()) {
            sorts.push_back(nullptr);
            refs.push_back(static_cast<unsigned>(in_group - group.begin()));
            continue;
          }
          for (DataType const* g : group) {
            if (nests(f, g)) {
              throw Unsupported("z3 takes no datatype field of sort " + f->to_string() +
                                ", which nests a datatype of its own group");
            }
          }
          sorts.push_back(sort_of(f));
          refs.push_back(0);
        }
        constructors[i].push_back(Z3_mk_constructor(
            ctx_, Z3_mk_int_symbol(ctx_, static_cast<int>(c.constructor->get_id())),
            Z3_mk_int_symbol(ctx_, static_cast<int>(c.tester->get_id())),
            static_cast<unsigned>(fields.size()), fields.data(), sorts.data(), refs.data()));
        check_error();
      }
      lists.push_back(Z3_mk_constructor_list(ctx_, static_cast<unsigned>(constructors[i].size()),
                                             constructors[i].data()));
    }
    std::vector<Z3_sort> made(group.size(), nullptr);
    Z3_mk_datatypes(ctx_, static_cast<unsigned>(group.size()), names.data(), made.data(),
                    lists.data());
    check_error();
    for (std::size_t i = 0; i < group.size(); ++i) {
      DataType const* d = group[i];
      Z3_inc_ref(ctx_, Z3_sort_to_ast(ctx_, made[i]));
      std::size_t const id = static_cast<std::size_t>(d->get_id());
      if (sorts_.size() <= id) {
        sorts_.resize(id + 1, nullptr);
      }
      sorts_[id] = made[i];
      auto keep_decl = [&](Symbol const* s, Z3_func_decl decl) {
        Z3_inc_ref(ctx_, Z3_func_decl_to_ast(ctx_, decl));
        std::size_t const sid = static_cast<std::size_t>(s->get_id());
        if (decls_.size() <= sid) {
          decls_.resize(sid + 1, nullptr);
        }
        decls_[sid] = decl;
      };
      auto const& cs = mgr_.datatype_info(d)->constructors;
      for (std::size_t k = 0; k < cs.size(); ++k) {
        unsigned const kk = static_cast<unsigned>(k);
        Z3_func_decl const c = Z3_get_datatype_sort_constructor(ctx_, made[i], kk);
        keep_decl(cs[k].constructor, c);
        constructor_of_decl_.emplace(Z3_get_ast_id(ctx_, Z3_func_decl_to_ast(ctx_, c)),
                                     cs[k].constructor);
        keep_decl(cs[k].tester, Z3_get_datatype_sort_recognizer(ctx_, made[i], kk));
        for (std::size_t j = 0; j < cs[k].selectors.size(); ++j) {
          keep_decl(cs[k].selectors[j], Z3_get_datatype_sort_constructor_accessor(
                                            ctx_, made[i], kk, static_cast<unsigned>(j)));
        }
        check_error();
      }
    }
  } catch (...) {
    release();
    throw;
  }
  release();
}

Z3_func_decl Z3Engine::decl_of(Symbol const* s, bool recursive) {
  std::size_t const id = static_cast<std::size_t>(s->get_id());
  if (id < decls_.size() && decls_[id] != nullptr) {
    return decls_[id];
  }
  DataType const* type = s->get_type();
  std::vector<Z3_sort> domain;
  if (s->get_arity() > 0) {
    for (std::size_t i = 0; i + 1 < type->get_num_components(); ++i) {
      domain.push_back(sort_of(type->get_component(i)));
    }
  }
  Z3_sort const range = sort_of(s->get_output_type());
  // Named by id, so that symbols that share a name stay apart.
  auto const make = recursive ? Z3_mk_rec_func_decl : Z3_mk_func_decl;
  Z3_func_decl d = make(ctx_, Z3_mk_int_symbol(ctx_, static_cast<int>(id)),
                        static_cast<unsigned>(domain.size()), domain.data(), range);
  check_error();
  Z3_inc_ref(ctx_, Z3_func_decl_to_ast(ctx_, d));
  if (decls_.size() <= id) {
    decls_.resize(id + 1, nullptr);
  }
  decls_[id] = d;
  known_.push_back(s);
  symbol_of_decl_.emplace(Z3_get_ast_id(ctx_, Z3_func_decl_to_ast(ctx_, d)), s);
  return d;
}

void Z3Engine::define_funs_rec(std::vector<Symbol const*> const& functions,
                               std::vector<std::vector<Term const*>> const& params,
                               std::vector<Term const*> const& bodies) {
  drop_model();
  for (Symbol const* f : functions) {
    decl_of(f, true);
  }
  for (std::size_t k = 0; k < functions.size(); ++k) {
    std::vector<Z3_ast> args;
    for (Term const* x : params[k]) {
      args.push_back(translate(x));
    }
    Z3_ast const body = translate(bodies[k]);
    Z3_add_rec_def(ctx_, decl_of(functions[k]), static_cast<unsigned>(args.size()), args.data(),
                   body);
    check_error();
  }
}

// ------------------------------------------------------------------------ terms

Z3_ast Z3Engine::translate(Term const* root) {
  return dag_.translate(root, [this](Term const* t, std::vector<Z3_ast> const& args) {
    Z3_ast const a = keep(build(t, args.data()));
    release_held();
    return a;
  });
}

// The z3 AST of t, whose arguments' ASTs are `args`.
Z3_ast Z3Engine::build(Term const* t, Z3_ast const* args) {
  Symbol const* s = t->get_symbol();
  switch (s->get_tag()) {
    case SymbolTag::UNINTERPRETED:
      return Z3_mk_app(ctx_, decl_of(s), static_cast<unsigned>(t->get_arity()), args);
    case SymbolTag::NUMERAL:
      return build_numeral(s);
    case SymbolTag::CONST_ARRAY:
      return Z3_mk_const_array(ctx_, sort_of(s->get_output_type()->get_array_index()), args[0]);
    case SymbolTag::VARIABLE:
      // A constant of its own, which the binder abstracts: no user symbol can be it.
      return Z3_mk_fresh_const(ctx_, s->get_name().c_str(), sort_of(s->get_output_type()));
    case SymbolTag::FORALL:
    case SymbolTag::EXISTS:
      return build_quantifier(t, args);
    case SymbolTag::ALGEBRAIC:
      throw Unsupported("z3 takes no algebraic number " + s->get_name() + " in a term");
    case SymbolTag::DT_CONSTRUCTOR:
    case SymbolTag::DT_SELECTOR:
    case SymbolTag::DT_TESTER: {
      // Made with the datatype, which its sort makes.
      sort_of(s->get_tag() == SymbolTag::DT_CONSTRUCTOR ? s->get_output_type()
                                                        : s->get_type()->get_component(0));
      return Z3_mk_app(ctx_, decls_[s->get_id()], static_cast<unsigned>(t->get_arity()), args);
    }
    default:
      break;
  }
  z3ops::Z3Op const* op = z3ops::op_of_tag(s->get_tag());
  if (op == nullptr) {
    throw Error("z3: no translation for the operator '" + s->get_name() + "'");
  }
  if (op->make.shape == z3ops::Shape::Special) {
    return build_special(s, args);
  }
  return build_by_row(*op, s, args, t->get_arity());
}

Z3_ast Z3Engine::build_numeral(Symbol const* s) {
  DataType const* type = s->get_output_type();
  std::string const& v = s->get_name();
  std::uint64_t small = 0;
  if (type->is_bv() && v.size() - 2 <= 64) {
    // "#b" and the bits, most significant first: up to 64 bits, one machine word.
    for (std::size_t i = 2; i < v.size(); ++i) {
      small = (small << 1) | (v[i] == '1' ? 1 : 0);
    }
    return Z3_mk_unsigned_int64(ctx_, small, sort_of(type));
  }
  if (type->is_int() && str::parse_decimal(v, &small)) {
    return Z3_mk_unsigned_int64(ctx_, small, sort_of(type));
  }
  if (type->is_bv()) {
    // z3 takes the bits least significant first.
    std::size_t const width = v.size() - 2;
    std::unique_ptr<bool[]> bits(new bool[width]);
    for (std::size_t i = 0; i < width; ++i) {
      bits[i] = v[v.size() - 1 - i] == '1';
    }
    return Z3_mk_bv_numeral(ctx_, static_cast<unsigned>(width), bits.get());
  }
  return Z3_mk_numeral(ctx_, v.c_str(), sort_of(type));
}

// The operators z3 has no function of their own for: (abs x) as (ite (>= x 0) x (- x)),
// (bvcomp x y) as (ite (= x y) #b1 #b0), bv2nat as z3's unsigned bv2int.
Z3_ast Z3Engine::build_special(Symbol const* s, Z3_ast const* a) {
  Z3_sort const sort = sort_of(s->get_output_type());
  switch (s->get_tag()) {
    case SymbolTag::ABS: {
      Z3_ast const nonnegative = hold(Z3_mk_ge(ctx_, a[0], hold(Z3_mk_int(ctx_, 0, sort))));
      return Z3_mk_ite(ctx_, nonnegative, a[0], hold(Z3_mk_unary_minus(ctx_, a[0])));
    }
    case SymbolTag::BV2NAT:
      return Z3_mk_bv2int(ctx_, a[0], false);
    case SymbolTag::BVCOMP: {
      Z3_ast const same = hold(Z3_mk_eq(ctx_, a[0], a[1]));
      Z3_ast const one = hold(Z3_mk_int(ctx_, 1, sort));
      return Z3_mk_ite(ctx_, same, one, hold(Z3_mk_int(ctx_, 0, sort)));
    }
    default:
      throw Error("z3: no translation for the operator '" + s->get_name() + "'");
  }
}

// A binder over the constants of its variables, with its patterns and attributes.
Z3_ast Z3Engine::build_quantifier(Term const* t, Z3_ast const* args) {
  BinderInfo const& info = mgr_.binder_info(t->get_symbol());
  std::vector<Z3_app> bound;
  for (std::size_t i = 0; i < info.num_vars; ++i) {
    bound.push_back(Z3_to_app(ctx_, args[i]));
  }
  std::size_t k = info.num_vars + 1;
  std::vector<Z3_pattern> patterns;
  for (std::size_t size : info.pattern_sizes) {
    Z3_pattern p = Z3_mk_pattern(ctx_, static_cast<unsigned>(size), args + k);
    check_error();
    hold(Z3_pattern_to_ast(ctx_, p));
    patterns.push_back(p);
    k += size;
  }
  Z3_symbol const qid = Z3_mk_string_symbol(ctx_, info.qid.c_str());
  Z3_symbol const skolem = Z3_mk_string_symbol(ctx_, info.skolemid.c_str());
  unsigned const weight = info.weight < 0 ? 0 : static_cast<unsigned>(info.weight);
  return Z3_mk_quantifier_const_ex(
      ctx_, t->get_symbol()->get_tag() == SymbolTag::FORALL, weight, qid, skolem,
      static_cast<unsigned>(bound.size()), bound.data(), static_cast<unsigned>(patterns.size()),
      patterns.data(), static_cast<unsigned>(info.num_no_patterns), args + k, args[info.num_vars]);
}

// The application of a row's function to the n arguments `a`.
Z3_ast Z3Engine::build_by_row(z3ops::Z3Op const& op, Symbol const* s, Z3_ast const* a,
                              std::size_t n) {
  Z3_context const c = ctx_;
  auto index = [&](std::size_t i) { return static_cast<unsigned>(s->get_index(i)); };
  switch (op.make.shape) {
    case z3ops::Shape::Const:
      return op.make.constant(c);
    case z3ops::Shape::Unary:
      return op.make.unary(c, a[0]);
    case z3ops::Shape::Binary:
      if (n == 2) {
        return op.make.binary(c, a[0], a[1]);
      }
      return spell_nary(
          optable::op_of_tag(op.tag)->assoc, a, n,
          [&](Z3_ast x, Z3_ast y) { return hold(op.make.binary(c, x, y)); },
          [&](std::vector<Z3_ast> const& links) {
            return Z3_mk_and(c, static_cast<unsigned>(links.size()), links.data());
          },
          links_);
    case z3ops::Shape::Ternary:
      return op.make.ternary(c, a[0], a[1], a[2]);
    case z3ops::Shape::Nary:
      return op.make.nary(c, static_cast<unsigned>(n), a);
    case z3ops::Shape::Indexed1:
      return op.make.indexed1(c, index(0), a[0]);
    case z3ops::Shape::Indexed2:
      return op.make.indexed2(c, index(0), index(1), a[0]);
    case z3ops::Shape::Special:
      break;
  }
  return build_special(s, a);
}

// ------------------------------------------------------------------------ assertions

void Z3Engine::assert_formula(Term const* formula, bool track) {
  drop_model();
  Z3_solver_assert(ctx_, solver_, translate(formula));
  check_error();
  asserted_.push_back(Asserted{formula, track, depth_});
}

void Z3Engine::push() {
  drop_model();
  Z3_solver_push(ctx_, solver_);
  check_error();
  ++depth_;
}

void Z3Engine::pop() {
  drop_model();
  Z3_solver_pop(ctx_, solver_, 1);
  check_error();
  --depth_;
  while (!asserted_.empty() && asserted_.back().depth > depth_) {
    asserted_.pop_back();
  }
}

void Z3Engine::reset_assertions() {
  drop_model();
  Z3_solver_reset(ctx_, solver_);
  check_error();
  depth_ = 0;
  asserted_.clear();
}

CheckResult Z3Engine::check(std::vector<TheoryLit> const& assumptions) {
  drop_model();
  assumptions_.clear();
  std::vector<Z3_ast> lits;
  lits.reserve(assumptions.size());
  for (TheoryLit const& lit : assumptions) {
    Z3_ast a = translate(lit.get_term());
    if (lit.is_negated()) {
      a = keep(Z3_mk_not(ctx_, a));
    }
    lits.push_back(a);
    assumptions_.emplace(Z3_get_ast_id(ctx_, a), lit);
  }
  last_assumptions_ = lits;
  Z3_lbool const r = lits.empty()
                         ? Z3_solver_check(ctx_, solver_)
                         : Z3_solver_check_assumptions(
                               ctx_, solver_, static_cast<unsigned>(lits.size()), lits.data());
  check_error();
  return r == Z3_L_TRUE    ? CheckResult::Sat
         : r == Z3_L_FALSE ? CheckResult::Unsat
                           : CheckResult::Unknown;
}

std::string Z3Engine::reason_unknown() {
  std::string reason = Z3_solver_get_reason_unknown(ctx_, solver_);
  check_error();
  // z3 says "canceled" when its time limit stopped the check.
  return reason == "canceled" ? "timeout" : reason;
}

// The members of z3's last core that `known` maps, in the core's order.
template <class T>
std::vector<T> Z3Engine::core_of(Z3_solver solver, std::unordered_map<unsigned, T> const& known) {
  Z3_ast_vector core = Z3_solver_get_unsat_core(ctx_, solver);
  check_error();
  Z3_ast_vector_inc_ref(ctx_, core);
  std::vector<T> result;
  for (unsigned i = 0, n = Z3_ast_vector_size(ctx_, core); i < n; ++i) {
    auto it = known.find(Z3_get_ast_id(ctx_, Z3_ast_vector_get(ctx_, core, i)));
    if (it != known.end()) {
      result.push_back(it->second);
    }
  }
  Z3_ast_vector_dec_ref(ctx_, core);
  return result;
}

std::vector<Term const*> Z3Engine::unsat_core() {
  Z3_solver core_solver = Z3_mk_solver(ctx_);
  Z3_solver_inc_ref(ctx_, core_solver);
  struct Release {
    Z3_context c;
    Z3_solver s;
    ~Release() { Z3_solver_dec_ref(c, s); }
  } release{ctx_, core_solver};
  Z3_solver_set_params(ctx_, core_solver, params_);
  std::unordered_map<unsigned, Term const*> tracked;
  for (Asserted const& a : asserted_) {
    Z3_ast const f = translate(a.formula);
    if (!a.track) {
      Z3_solver_assert(ctx_, core_solver, f);
      continue;
    }
    Z3_ast const p = keep(Z3_mk_fresh_const(ctx_, "track", Z3_mk_bool_sort(ctx_)));
    Z3_solver_assert_and_track(ctx_, core_solver, f, p);
    tracked.emplace(Z3_get_ast_id(ctx_, p), a.formula);
  }
  check_error();
  Z3_lbool const r = Z3_solver_check_assumptions(
      ctx_, core_solver, static_cast<unsigned>(last_assumptions_.size()), last_assumptions_.data());
  check_error();
  if (r != Z3_L_FALSE) {
    std::string const reason = Z3_solver_get_reason_unknown(ctx_, core_solver);
    throw EngineError("z3: the check that computes the unsat core did not answer unsat (" +
                      (reason == "canceled" ? std::string("timeout") : reason) + ")");
  }
  return core_of(core_solver, tracked);
}

std::vector<TheoryLit> Z3Engine::unsat_assumptions() {
  return core_of(solver_, assumptions_);
}

Term const* Z3Engine::interpolant(std::vector<Term const*> const&,
                                  std::vector<Term const*> const&) {
  throw Unsupported(
      "the z3 engine cannot compute interpolants (z3 4.8 has none); the cvc5 engine can");
}

std::string z3_library_version() {
  unsigned major = 0, minor = 0, build = 0, revision = 0;
  Z3_get_version(&major, &minor, &build, &revision);
  return std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(build);
}

std::unique_ptr<Engine> make_z3_engine(TermManager& mgr, Configuration const& config) {
  return std::make_unique<Z3Engine>(mgr, config);
}

}  // namespace tvx
