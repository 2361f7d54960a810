// Term printers: TermPrinter (the interface and the declaration order sym_ty_lt),
// SmtLibTermPrinter (SMT-LIB names of symbols and sorts, cached) and SmtLib2TermPrinter
// (commands and whole terms, with shared subterms let-bound). No traversal recurses.
#ifndef TVX_CORE_TERM_PRINTER_H
#define TVX_CORE_TERM_PRINTER_H

#include <cstdint>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include <tvx/core/configuration.h>
#include <tvx/core/term_manager.h>
#include <tvx/support/hashtable.h>

namespace tvx {

class TermPrinter {
 public:
  // The order of the declaration sets: symbols by id; sorts simple before compound, fewer
  // components first, then componentwise; simple sorts by id (creation order).
  struct sym_ty_lt {
    bool operator()(Symbol const* a, Symbol const* b) const { return a->get_id() < b->get_id(); }
    bool operator()(DataType const* a, DataType const* b) const;
  };

  explicit TermPrinter(TermManager* mgr) : mgr_(mgr) {}
  virtual ~TermPrinter();

  // Writes `t` as one expression and nothing else. `annotate` asks for the attributes of the
  // printer's annotation map to be written around the terms that have some.
  virtual void print_term(std::ostream& os, Term const* t, bool annotate) = 0;

 protected:
  TermManager* mgr_;
};

class SmtLibTermPrinter : public TermPrinter {
 public:
  // `name_prefix` is written before every uninterpreted symbol and sort name (empty: none).
  SmtLibTermPrinter(TermManager* mgr, std::string name_prefix);
  ~SmtLibTermPrinter() override;

  // The SMT-LIB text of a symbol: the manager's printed name of an uninterpreted symbol
  // (|quoted| when it is not a legal simple symbol or is reserved), an operator ("bvadd",
  // "(_ extract 7 0)") or a numeral ("5", "(- 3)", "(/ 1.0 2.0)", "#b0101").
  std::string to_smtlib(Symbol const* s);
  // The SMT-LIB text of a sort: "Int", "(_ BitVec 8)", "(Array Int Bool)", the manager's
  // printed name of an uninterpreted sort, quoted when needed.
  std::string to_smtlib(DataType const* t);

  // Writes Real numerals as quotients of integers, "(/ 3 4)", "(/ (- 3) 4)", "(/ (- 3) 1)",
  // the only forms of a negative or fractional Real that some solvers take as the value of a
  // constant array. Set it before the first text is made: texts are kept once made.
  void set_real_quotients(bool on) { real_quotients_ = on; }
  // The value of a constant array is written in place and, when it is a numeral, in the
  // quotient form above, whatever the setting: some solvers take nothing else there.
  static bool is_inline_value(Term const* array, Term const* value) {
    return array->get_symbol()->get_tag() == SymbolTag::CONST_ARRAY &&
           value->get_symbol()->get_tag() == SymbolTag::NUMERAL;
  }
  static std::string inline_value_text(Term const* value);
  static bool is_binder(Term const* t) {
    SymbolTag::tag const tag = t->get_symbol()->get_tag();
    return tag == SymbolTag::FORALL || tag == SymbolTag::EXISTS;
  }

  // The symbol text without copying; valid until the printer is destroyed.
  std::string const& symbol_text(Symbol const* s) {
    std::string const* text = symbol_names_.find(s->get_id());
    return text != nullptr ? *text : compute_symbol_text(s);
  }
  std::string const& type_text(DataType const* t) {
    std::string const* text = type_names_.find(t->get_id());
    return text != nullptr ? *text : compute_type_text(t);
  }

  // Whether `name` can be written as it is (a legal simple symbol and no reserved word).
  static bool is_simple_symbol(std::string const& name);
  // `name` as it must be written: unchanged, or between bars.
  static std::string quote(std::string const& name);

 protected:
  std::string name_prefix_;

 private:
  // Texts by symbol or sort id, in chunks of 64 so that ids far apart cost no more than the
  // chunks they fall in, and a text never moves once made. An empty text is one not made yet:
  // every symbol and sort has a non-empty text.
  class TextById {
   public:
    std::string const* find(std::uint64_t id) const {
      std::size_t const chunk = static_cast<std::size_t>(id >> kChunkBits);
      if (chunk >= chunks_.size() || !chunks_[chunk]) {
        return nullptr;
      }
      std::string const* text = &chunks_[chunk][id & ((std::uint64_t{1} << kChunkBits) - 1)];
      return text->empty() ? nullptr : text;
    }
    std::string* slot(std::uint64_t id);  // makes the chunk of id when missing

   private:
    static constexpr int kChunkBits = 6;
    std::vector<std::unique_ptr<std::string[]>> chunks_;
  };

  std::string const& compute_symbol_text(Symbol const* s);
  std::string const& compute_type_text(DataType const* t);

  TextById symbol_names_;
  TextById type_names_;
  bool real_quotients_ = false;
};

class SmtLib2TermPrinter : public SmtLibTermPrinter {
 public:
  using Annotations = hsh::HashMap<Term const*, std::vector<std::pair<std::string, std::string>>>;

  // settings:     the printer settings; let_prefix names let-bound subterms.
  // name_prefix:  written before every uninterpreted symbol and sort name ("" for none).
  // line_prefix:  written at the start of every command the printer writes ("" for none),
  //               e.g. "; " to comment a script out.
  // global_decls: names let-bound subterms by term id instead of by a counter that starts
  //               anew in every command, so a shared subterm has one name in the whole trace.
  // annotations:  optional attributes per term; print_term(os, t, true) writes a term that
  //               has some as (! TERM :key value ...). May be null.
  SmtLib2TermPrinter(TermManager* mgr, Configuration::Printer* settings,
                     std::string const& name_prefix, std::string const& line_prefix,
                     bool global_decls, Annotations const* annotations);
  ~SmtLib2TermPrinter() override;

  // (declare-sort U 0) and a newline; for a datatype, (declare-datatypes ...) of its whole
  // group.
  virtual void print_type_declaration(std::ostream& os, DataType const* t);
  // (declare-fun f (U Int) Bool) or (declare-fun x () U) and a newline.
  virtual void print_symbol_declaration(std::ostream& os, Symbol const* s);

  void print_term(std::ostream& os, Term const* t, bool annotate) override;
  // The text print_term(os, t, false) writes; valid until the printer's next call.
  std::string const& term_text(Term const* t);
  // The text of a closed binder for its definition in global-declarations mode: the binder in
  // full, except that each closed subterm that `labelled` accepts is written as `label_prefix`
  // and its id (a label that the trace defined before). Valid until the next text is made.
  std::string const& binder_definition_text(Term const* binder, std::string const& label_prefix,
                                            std::function<bool(Term const*)> const& labelled);

  // (define-fun-rec f ((x S) ...) R BODY) for one function, or for several
  // (define-funs-rec ((f ((x S) ...) R) ...) (BODY ...)), and a newline; the bodies in full.
  void print_define_funs_rec(std::ostream& os, std::vector<Symbol const*> const& functions,
                             std::vector<std::vector<Term const*>> const& params,
                             std::vector<Term const*> const& bodies);

  // (assert EXPR) and a newline, or (assert (! EXPR ANNOTATION)) when annotation is not empty.
  void apitracer_print_term(std::ostream& os, Term const* t, std::string const& annotation);

 private:
  void append_datatypes_declaration(DatatypeInfo const& info);
  void compute_sharing(Term const* root);
  void render_term(Term const* root, bool annotate);  // appends the term's text to text_
  void render_shared(Term const* root, bool annotate);
  // Writes t, with a let name for each bound subterm (per-id words in info_) under `prefix`;
  // with no prefix nothing is bound and info_ is not read.
  void render_body(Term const* t, std::string const* prefix, bool annotate);
  std::size_t open_binder(Term const* u);
  void binder_separator(Term const* u, std::size_t k);
  void close_binder(Term const* u);
  void append_let_name(std::string const& prefix, std::uint64_t n);
  std::string const& let_name_prefix();
  bool let_names_clash(std::string const& prefix);
  bool has_annotations(Term const* t, bool annotate) const;

  Configuration::Printer* settings_;
  std::string line_prefix_;
  bool global_decls_;
  Annotations const* annotations_;

  // Scratch of print_term, reused from call to call.
  struct Frame {
    Term const* term;
    std::size_t next_arg;
  };
  std::vector<Frame> frames_;
  struct Bound {  // a let-bound term
    std::uint64_t level;
    std::uint64_t id;
    Term const* term;
  };
  static constexpr std::uint64_t kSeenOnce = std::uint64_t{1} << 62;
  static constexpr std::uint64_t kSeenMore = std::uint64_t{2} << 62;
  static constexpr std::uint64_t kLevelMask = kSeenOnce - 1;
  std::vector<Term const*> order_;  // terms of the DAG, arguments before parents
  // Per term id, zero between prints: while analysing, occurrences and level (see
  // compute_sharing); while rendering, the let number + 1 of a bound term.
  std::vector<std::uint64_t> info_;
  std::vector<Bound> bound_;  // the let-bound terms of the current print
  // Printed symbol names that end in digits, without the digits; filled from the manager's
  // symbols.
  std::unordered_set<std::string> numbered_stems_;
  std::size_t scanned_symbols_ = 0;
  std::string text_;  // the text being composed
  std::string let_prefix_cache_;
  bool quote_let_names_ = false;
};

}  // namespace tvx

#endif  // TVX_CORE_TERM_PRINTER_H
