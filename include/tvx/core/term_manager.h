// TermManager: makes and owns every sort, symbol and term; everything is hash-consed, so the
// same structure is the same pointer. Invariant: ids grow in creation order from 1.
#ifndef TVX_CORE_TERM_MANAGER_H
#define TVX_CORE_TERM_MANAGER_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include <tvx/core/data_type.h>
#include <tvx/core/error.h>
#include <tvx/core/symbol.h>
#include <tvx/core/term.h>

namespace tvx {

// What steers a solver's instantiation of a quantifier, kept as written.
struct BinderAttributes {
  std::vector<std::vector<Term const*>> patterns;  // each :pattern's terms
  std::vector<Term const*> no_patterns;            // each :no-pattern's term
  std::string qid;                                 // :qid, empty for none
  std::string skolemid;                            // :skolemid, empty for none
  std::int64_t weight = -1;                        // :weight, -1 for none
};

// The shape of a binder's arguments and its attributes, for a FORALL or EXISTS symbol.
struct BinderInfo {
  std::size_t num_vars = 0;
  std::vector<std::size_t> pattern_sizes;  // the number of terms of each :pattern
  std::size_t num_no_patterns = 0;
  std::string qid;
  std::string skolemid;
  std::int64_t weight = -1;
  bool has_attributes() const {
    return !pattern_sizes.empty() || num_no_patterns > 0 || !qid.empty() || !skolemid.empty() ||
           weight >= 0;
  }
};

// A constructor of a datatype as declared: its name and its fields, each a selector's name
// and the field's sort.
struct ConstructorDecl {
  std::string name;
  std::vector<std::pair<std::string, DataType const*>> fields;
};

// A defined datatype: the sorts declared with it (its mutually recursive group, itself
// included, in declaration order) and the symbols of each of its constructors.
struct DatatypeInfo {
  struct Constructor {
    Symbol const* constructor;             // DT_CONSTRUCTOR
    Symbol const* tester;                  // DT_TESTER: (_ is C)
    std::vector<Symbol const*> selectors;  // DT_SELECTOR, one per field
  };
  std::vector<DataType const*> const* group;
  std::vector<Constructor> constructors;
  std::vector<DataType const*> params;  // a generic datatype's sort parameters, in order
};

class TermManager {
 public:
  TermManager();
  ~TermManager();
  TermManager(TermManager const&) = delete;
  TermManager& operator=(TermManager const&) = delete;

  // --- sorts ---
  DataType const* get_bool_type();
  DataType const* get_integer_type();
  DataType const* get_rational_type();
  DataType const* get_bv_type(std::size_t width);
  DataType const* get_array_type(DataType const* index, DataType const* element);
  DataType const* get_function_type(std::vector<DataType const*> const& args,
                                    DataType const* result);
  // A new uninterpreted sort (arity 0). Throws for a name that is built in or not writable.
  // A name used before makes another sort of that name, which name lookups find from then on:
  // scripts may declare a name again once its scope is gone.
  DataType const* make_simple_type(std::string const& name);
  // The simple sort of that name (the newest of an uninterpreted name), or null. With
  // uninterpreted_only set, answers only for uninterpreted sorts, so built-in sorts never reach
  // a declaration.
  DataType const* get_simple_type(std::string const& name, bool uninterpreted_only);

  // Sorts with parameters. make_sort_constructor makes a generic uninterpreted sort
  // ((declare-sort S 2)); get_instance applies a generic sort to arguments ((S Int Bool)), the
  // same sort for the same arguments. A parametric datatype's fields take its parameters
  // (get_sort_parameter: one sort per name and position) and instances over them.
  DataType const* make_sort_constructor(std::string const& name, std::size_t arity);
  DataType const* get_sort_parameter(std::string const& name, std::size_t index);
  DataType const* get_instance(DataType const* generic, std::vector<DataType const*> const& args);
  // t with args[i] put for each sort parameter of position i.
  DataType const* substitute_params(DataType const* t, std::vector<DataType const*> const& args);
  // Whether `actual` is `pattern` with sorts put for its parameters, extending `binding`
  // (indexed by parameter position; null where not bound yet) with those sorts.
  bool match_params(DataType const* pattern, DataType const* actual,
                    std::vector<DataType const*>& binding) const;

  // Datatypes are made in two steps, so that a group's constructors can take the group's own
  // sorts: make_datatype_sort makes a sort without constructors that no name lookup finds yet;
  // define_datatypes gives each sort of a group its constructors (constructors[i] for
  // sorts[i]) and, for a parametric one, its parameters (params[i]: get_sort_parameter's
  // sorts of positions 0, 1, ...). It checks the whole group first (names, sorts, every
  // datatype inhabited) and throws before anything is made; then the sorts' and constructors'
  // and selectors' names become known (get_simple_type, find_symbol), printed names chosen as
  // for uninterpreted symbols and sorts. Testers have no name of their own: they are written
  // (_ is C). A parametric datatype's own constructors are over its parameters: terms take
  // those of its instances (instance_symbol).
  DataType const* make_datatype_sort(std::string const& name, std::size_t num_params = 0);
  void define_datatypes(std::vector<DataType const*> const& sorts,
                        std::vector<std::vector<ConstructorDecl>> const& constructors,
                        std::vector<std::vector<DataType const*>> const& params = {});
  // The constructors of a defined datatype or of an instance of one (made on first request);
  // null for any other sort.
  DatatypeInfo const* datatype_info(DataType const* sort);
  // The constructor, selector or tester of `instance` that the generic datatype's symbol
  // `generic` stands for.
  Symbol const* instance_symbol(Symbol const* generic, DataType const* instance);
  // The sorts from outside a datatype's group that the group's fields take, components of
  // arrays included: for a generic or plain datatype the declarable sorts and instances a
  // declaration of the group needs declared first; for an instance, the sorts an engine makes
  // first. Each once, in order of first mention.
  std::vector<DataType const*> datatype_dependencies(DataType const* sort);
  // The datatype a DT_CONSTRUCTOR, DT_SELECTOR or DT_TESTER symbol belongs to, and the
  // constructor it belongs to.
  DatatypeInfo::Constructor const& constructor_of(Symbol const* s) const;

  // --- symbols ---
  // A new uninterpreted symbol; a function type gives arity = its argument count, else 0.
  // A name used before makes another symbol of that name, which find_symbol finds from then on;
  // terms over the older symbol stay as they are.
  Symbol const* make_symbol(std::string const& name, DataType const* type);
  // An uninterpreted symbol that no name lookup finds, whatever its name: a placeholder that a
  // user's declaration of the same name can never turn into, and that never shadows one.
  Symbol const* make_fresh_symbol(std::string const& name, DataType const* type);
  // The newest uninterpreted symbol made by make_symbol with that name, or null.
  Symbol const* find_symbol(std::string const& name) const;
  // True exactly for theory operators and numerals.
  bool is_interpreted(Symbol const* s) const { return s->get_tag() != SymbolTag::UNINTERPRETED; }
  // Every symbol made so far, in creation order: indices 0 to num_symbols() - 1.
  std::size_t num_symbols() const { return symbols_.size(); }
  Symbol const* symbol_at(std::size_t index) const { return &symbols_[index]; }

  // --- terms ---
  Term const* make_constant(Symbol const* s);
  Term const* make_term(Symbol const* s, std::vector<Term const*> const& args);
  Term const* make_term(Symbol const* s, Term const* const* args, std::size_t n);
  Term const* make_true();
  Term const* make_false();
  Term const* make_not(Term const* t);
  Term const* make_and(Term const* a, Term const* b);
  Term const* make_or(Term const* a, Term const* b);
  Term const* make_equal(Term const* a, Term const* b);
  Term const* make_ite(Term const* c, Term const* a, Term const* b);
  // Int/Real: "5", "-3", "1/2", "0.25"; bit-vector sort: a decimal value (taken modulo
  // 2^width), or "#b…" / "#x…" of exactly the sort's width.
  Term const* make_number(std::string const& value, DataType const* type);
  // Any operator of the supported theories by its SMT-LIB name: "and", "=>", "distinct", "+",
  // "div", "to_real", "bvadd", "extract" with indices {7, 0}, "select", "store", ...
  Term const* make_builtin(std::string const& op, std::vector<Term const*> const& args,
                           std::vector<std::uint64_t> const& indices = {});
  Term const* make_builtin(std::string const& op, Term const* const* args, std::size_t n,
                           std::uint64_t const* indices = nullptr, std::size_t num_indices = 0);
  // The same by the operator's tag (any tag from TRUE to STORE; NEG is "-" of one argument).
  Term const* make_builtin(SymbolTag::tag tag, std::vector<Term const*> const& args,
                           std::vector<std::uint64_t> const& indices = {});
  Term const* make_builtin(SymbolTag::tag tag, Term const* const* args, std::size_t n,
                           std::uint64_t const* indices = nullptr, std::size_t num_indices = 0);

  // --- binders ---
  // A variable for binders to bind: one term per name and sort, so that a binder nested in
  // another over the same variable hides the outer binding, as in SMT-LIB's text. Its symbol
  // has a printed name of its own among the uninterpreted symbols' names, is no user name
  // (find_symbol does not see it), and is never declared.
  Term const* make_variable(std::string const& name, DataType const* sort);
  // (forall ((x S) ...) body) and (exists ...): `vars` are distinct variables, `body` is Bool.
  // The term's arguments are the variables, the body, the terms of each pattern in order, then
  // the no-patterns.
  Term const* make_forall(std::vector<Term const*> const& vars, Term const* body,
                          BinderAttributes const& attributes = {});
  Term const* make_exists(std::vector<Term const*> const& vars, Term const* body,
                          BinderAttributes const& attributes = {});
  BinderInfo const& binder_info(Symbol const* binder) const;
  // A binder of the shape and attributes of the binder symbol `binder` over the arguments
  // `args` (variables, body, pattern terms), as a walk that rebuilds terms needs it.
  Term const* make_binder_like(Symbol const* binder, Term const* const* args, std::size_t n);
  // Whether every variable free in `t` is one of `vars`.
  bool is_closed_over(Term const* t, std::vector<Term const*> const& vars) const;
  // Whether no variable occurs free in `t`: only closed terms can stand apart from the binders
  // around them (a definition, a let binding at the top, an assertion).
  bool is_closed(Term const* t) const {
    std::size_t const id = static_cast<std::size_t>(t->get_id());
    return id >= free_vars_of_.size() || free_vars_of_[id] == 0;
  }

  // Whether a symbol of a parametric datatype over its own parameters occurs in `t` (a bare
  // `nil` of (List T), say): such a term reaches no solver, which needs the instance.
  bool has_any_params() const { return any_generic_; }
  bool has_params(Term const* t) const {
    std::size_t const id = static_cast<std::size_t>(t->get_id());
    return id < generic_terms_.size() && generic_terms_[id];
  }

  // An irrational algebraic Real that a solver answered, exact as the solver wrote it
  // (`text`, such as "(root-obj (+ (^ x 2) (- 2)) 2)", which printers write as it is), with a
  // decimal approximation (empty when the solver gave none). One term per text. Solvers take
  // no such value in a term: engines refuse an assertion that holds one.
  Term const* make_algebraic(std::string const& text, std::string const& approximation);
  // The approximation of an ALGEBRAIC symbol's value.
  std::string const& algebraic_approximation(Symbol const* s) const;

  // The constant array of sort `array_sort` whose every element is `value`, written
  // ((as const (Array I E)) v).
  Term const* make_const_array(DataType const* array_sort, Term const* value);
  // The element number `index` of the uninterpreted sort `sort`, as engines report model
  // values: a constant of that sort, the same term for the same sort and index and distinct
  // ones otherwise. Its symbol is uninterpreted, so a trace declares it where it is used, but
  // it is not a user name: find_symbol does not see it.
  Term const* make_abstract_value(DataType const* sort, std::uint64_t index);

  // The name under which printers write an uninterpreted symbol or sort: one name per symbol
  // (per sort), never the name of another, fixed when it is made. It is the symbol's own name
  // unless that name is taken or belongs to a theory that the term layer does not model, which
  // solvers refuse to see declared (str.len, fp.add, exp, String, ...):
  //  - such a name is written with '_' in front ("_str.len");
  //  - a name taken by an earlier symbol (sort) gets the first suffix "!1", "!2", ... that makes
  //    it neither the printed name nor the own name of any other symbol (sort).
  // A later user name equal to a printed name made up this way is itself taken, so it gets a
  // suffix in turn.
  std::string const& get_printed_name(Symbol const* s) const;
  std::string const& get_printed_name(DataType const* t) const;
  // The uninterpreted symbol (sort) printed under `printed_name`, or null: reads names in a
  // solver's answers back.
  Symbol const* find_printed_symbol(std::string const& printed_name) const;
  DataType const* find_printed_sort(std::string const& printed_name) const;
  // True when `name` belongs to a theory outside the supported ones, as a sort name when `sort`
  // is set and as a function name otherwise: such names are printed with '_' in front.
  static bool is_foreign_theory_name(std::string const& name, bool sort);

  // Whether this manager made the object (and not another manager).
  bool owns(DataType const* t) const;
  bool owns(Symbol const* s) const;
  bool owns(Term const* t) const;

  // Number of terms made so far; the largest term id.
  std::size_t num_terms() const { return next_term_id_ - 1; }
  // True when `name` is a built-in symbol or sort name of the supported theories.
  static bool is_builtin_name(std::string const& name);
  // The tag of the built-in operator named `name` ("-" is SUB); UNINTERPRETED when none is.
  static SymbolTag::tag builtin_tag(std::string const& name);
  // True for Bool, Int, Real, BitVec and Array.
  static bool is_builtin_sort_name(std::string const& name);

  // Largest bit-vector width accepted.
  static constexpr std::uint64_t kMaxBvWidth = std::uint64_t{1} << 24;

 private:
  // A hash of a term's structure: its symbol's and arguments' addresses (not their ids, so
  // that hashing reads nothing but the arguments given). The table's layout never reaches any
  // output.
  static std::uint64_t structural_hash(Symbol const* s, Term const* const* args, std::size_t n);
  // The slot of the term table where a term with this structure is, or the empty slot where
  // it would go.
  std::size_t find_slot(std::uint64_t hash, Symbol const* s, Term const* const* args,
                        std::size_t n) const;
  void grow_terms();

  DataType const* intern_type(DataType::Kind kind, std::string name, std::uint64_t width,
                              std::vector<DataType const*> components,
                              DataType const* generic = nullptr, std::size_t num_params = 0);
  void instantiate_datatypes(DataType const* instance);
  // A datatype symbol of an instance, like the generic one `like` but of sort `type`.
  Symbol const* make_datatype_symbol(Symbol const* like, DataType const* type);
  Symbol const* interpreted_symbol(SymbolTag::tag tag, std::string const& name,
                                   DataType const* const* arg_types, std::size_t n,
                                   DataType const* result, std::uint64_t const* indices,
                                   std::size_t num_indices);
  Term const* intern_term(Symbol const* s, Term const* const* args, std::size_t n);
  void* allocate_term(std::size_t bytes);

  std::uint64_t next_type_id_ = 1;
  std::uint64_t next_symbol_id_ = 1;
  std::uint64_t next_term_id_ = 1;

  // The names of uninterpreted symbols or sorts: for each, the newest user object of that name
  // (null for none) and the object printed under it (null for none). A new object's printed
  // name and user name get their entries before it is made, so nothing can fail afterwards.
  template <class T>
  struct NameEntry {
    T const* user = nullptr;
    T const* printed = nullptr;
    std::uint64_t next_suffix = 1;  // the suffix to try first for another object of this name
  };
  template <class T>
  using NameTable = std::unordered_map<std::string, NameEntry<T>>;
  template <class T>
  static std::pair<std::string const*, NameEntry<T>*> choose_printed_name(
      NameTable<T>& table, typename NameTable<T>::iterator own, bool foreign);
  Symbol const* new_uninterpreted_symbol(std::string const& name, DataType const* type, bool user,
                                         SymbolTag::tag tag = SymbolTag::UNINTERPRETED,
                                         std::uint64_t const* indices = nullptr,
                                         std::size_t num_indices = 0);
  Term const* make_binder(SymbolTag::tag tag, std::vector<Term const*> const& vars,
                          Term const* body, BinderAttributes const& attributes);
  // Records the free variables of the new term t (only once a variable exists).
  void note_free_vars(Term const* t);
  std::uint32_t intern_var_set(std::vector<std::uint64_t>&& ids);

  std::deque<DataType> types_;
  std::map<std::vector<std::uint64_t>, DataType const*> compound_types_;
  NameTable<DataType> sort_names_;  // uninterpreted sorts
  // The printed names that differ from the own name, by sort id.
  std::unordered_map<std::uint64_t, std::string const*> renamed_sorts_;
  std::unordered_map<std::uint64_t, DataType const*> bv_types_;
  DataType const* bool_type_ = nullptr;
  DataType const* int_type_ = nullptr;
  DataType const* real_type_ = nullptr;

  std::deque<Symbol> symbols_;
  NameTable<Symbol> symbol_names_;  // uninterpreted symbols
  // The printed names that differ from the own name, by symbol id.
  std::unordered_map<std::uint64_t, std::string const*> renamed_symbols_;
  // Interpreted symbols by (tag, indices, argument sort ids, result sort id).
  std::map<std::vector<std::uint64_t>, Symbol const*> theory_symbols_;
  // Numeral symbols by (sort id, canonical value text).
  std::map<std::pair<std::uint64_t, std::string>, Symbol const*> numerals_;
  std::map<std::pair<std::uint64_t, std::uint64_t>, Term const*> abstract_values_;
  // Variables by (name, sort id); binders' attributes, interned, by the index a binder symbol
  // holds as its second index.
  std::map<std::pair<std::string, std::uint64_t>, Term const*> variables_;
  std::vector<BinderInfo> binder_infos_;
  std::map<std::string, Term const*> algebraics_;
  // Datatypes by sort id (a generic datatype's instance over its own parameters shares its
  // entry); each group's list of sorts, shared by its members.
  std::unordered_map<std::uint64_t, DatatypeInfo*> datatypes_;
  std::deque<DatatypeInfo> datatype_infos_;
  std::deque<std::vector<DataType const*>> datatype_groups_;
  std::map<std::pair<std::string, std::uint64_t>, DataType const*> params_;
  std::unordered_map<std::uint64_t, std::string> approximations_;  // by symbol id
  std::map<std::string, std::size_t> binder_info_index_;
  // Free variables: per term id (0 for none, and for every term made before the first
  // variable), an index into var_sets_, which holds each set of variable symbol ids once,
  // sorted; var_sets_[0] is the empty set.
  std::vector<std::uint32_t> free_vars_of_;
  // Per term id, whether it has_params(); kept only once a parametric datatype exists.
  std::vector<bool> generic_terms_;
  bool any_generic_ = false;
  std::vector<std::vector<std::uint64_t>> var_sets_;
  std::map<std::vector<std::uint64_t>, std::uint32_t> var_set_index_;
  std::vector<std::uint64_t> key_scratch_;
  std::vector<DataType const*> arg_types_scratch_;

  // Terms live in chunks of a bump allocator; each term is one contiguous block.
  std::vector<std::unique_ptr<char[]>> term_chunks_;
  char* chunk_pos_ = nullptr;
  char* chunk_end_ = nullptr;
  // Every term, hash-consed, in an open-addressing table of (hash, term) slots with linear
  // probing, at most half full; its size is a power of two, and a hash's first slot is given
  // by its top bits. A lookup compares stored hashes first, so it reads a term only when the
  // term's hash matches, and a new term costs no allocation besides the term itself.
  struct TermSlot {
    std::uint64_t hash;
    Term const* term;  // null: empty
  };
  std::vector<TermSlot> term_slots_;
  unsigned term_shift_ = 64;  // 64 - log2(slots)
  std::size_t term_count_ = 0;
};

}  // namespace tvx

#endif  // TVX_CORE_TERM_MANAGER_H
