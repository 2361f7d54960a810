#include <tvx/tracer/smtlib2_api_tracer.h>

#include <algorithm>
#include <bitset>
#include <cassert>
#include <charconv>
#include <cstdint>
#include <ctime>
#include <ios>
#include <locale>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <tvx/core/local_time.h>
#include <tvx/support/sort.h>
#include <tvx/support/str.h>

#include "tracer/reserve_one.h"

namespace tvx {

namespace {

// Writes each configuration entry as one `(set-option :config "KEY=VALUE")` line, leaving out
// the entries of the tracing feature itself.
class TraceConfigPrinter : public ConfigurationSetter::ConfigEntryPrinter {
 public:
  ~TraceConfigPrinter() override = default;

  void operator()(std::ostream& os, std::string const& key, bool value) const override {
    if (skipped(key)) {
      return;
    }
    os << "(set-option :config \"" << key << "=" << (value ? "true" : "false") << "\")\n";
  }
  void operator()(std::ostream& os, std::string const& key, int value) const override {
    if (skipped(key)) {
      return;
    }
    os << "(set-option :config \"" << key << "=" << value << "\")\n";
  }
  void operator()(std::ostream& os, std::string const& key, unsigned value) const override {
    if (skipped(key)) {
      return;
    }
    os << "(set-option :config \"" << key << "=" << value << "\")\n";
  }
  void operator()(std::ostream& os, std::string const& key, double value) const override {
    if (skipped(key)) {
      return;
    }
    os << "(set-option :config \"" << key << "=" << value << "\")\n";
  }
  void operator()(std::ostream& os, std::string const& key,
                  std::string const& value) const override {
    if (skipped(key)) {
      return;
    }
    os << "(set-option :config \"" << key << "=" << str::replace('"', "\\\"", value) << "\")\n";
  }

 private:
  static bool skipped(std::string const& key) {
    static constexpr char kPrefix[] = "debug.api_call_trace";
    static constexpr std::size_t kLength = sizeof(kPrefix) - 1;
    return key.size() >= kLength && key.compare(0, kLength, kPrefix) == 0;
  }
};

// Definition lines go out in ascending term id, which puts each after the lines it uses.
struct PrintLess {
  template <class Definition>
  bool operator()(Definition const& a, Definition const& b) const {
    return a.id < b.id;
  }
};

// The label prefix when none is configured.
std::string const kDefaultDefinesPrefix = ".";

// The definition lines of one call reach the stream in slices of about this many bytes. A file
// stream copies a write this small into its own buffer and hands the kernel one write per
// buffer-full, where a larger slice would go to the kernel by itself: a call that defines
// thousands of terms then costs about half the system calls, and the tracer's buffer stays small.
constexpr std::size_t kDefinitionSlice = 640;

// Appends the decimal digits of n.
void append_number(std::string& text, std::uint64_t n) {
  char digits[24];
  char* end = std::to_chars(digits, digits + sizeof(digits), n).ptr;
  text.append(digits, static_cast<std::size_t>(end - digits));
}

// Whether a stream writes an unsigned number exactly as std::to_chars does: in decimal, with no
// sign, and in the classic locale, which neither groups nor replaces digits.
bool writes_plain_numbers(std::ios_base const& os) {
  std::ios_base::fmtflags const flags = os.flags();
  return (flags & std::ios_base::basefield) == std::ios_base::dec &&
         (flags & std::ios_base::showpos) == 0 && os.getloc() == std::locale::classic();
}

// Appends n as a string stream made for the purpose writes it: default format, in the global
// locale of the moment.
void append_as_fresh_stream(std::string& text, int n) {
  if (n >= 0 && std::locale() == std::locale::classic()) {
    append_number(text, static_cast<std::uint64_t>(n));
    return;
  }
  std::ostringstream number;
  number.exceptions(std::ios_base::badbit);
  number << n;
  text += number.str();
}

}  // namespace

SmtLib2ApiTracer::SmtLib2ApiTracer(Configuration* config, TermManager* mgr, std::ostream& out,
                                   bool global_decls, bool dump_config)
    : config_(config),
      mgr_(mgr),
      out_(out),
      printer_(mgr, &config->printer, "", "", global_decls, nullptr),
      itp_group_(-1),
      global_decls_(global_decls),
      plain_definitions_(def_stream_.getloc() == std::locale::classic()) {
  // A failure inside the scratch streams propagates instead of leaving them silently bad.
  def_stream_.exceptions(std::ios_base::badbit);
  label_stream_.exceptions(std::ios_base::badbit);
  out_ << ";; Tarvex API call trace\n";
  std::time_t const now = std::time(nullptr);
  std::tm const local = get_local_time(&now);
  char stamp[255];
  stamp[0] = '\0';
  std::strftime(stamp, 255, "%c", &local);
  if (stamp[0] != '\0') {
    out_ << ";; generated on " << stamp << "\n";
  }
  if (global_decls) {
    out_ << "(set-option :global-decls true)\n";
  }
  if (dump_config) {
    do_print_config(config);
  }
  out_.flush();
}

SmtLib2ApiTracer::~SmtLib2ApiTracer() = default;

void SmtLib2ApiTracer::do_print_config(Configuration* config) {
  ConfigurationSetter setter;
  TraceConfigPrinter printer;
  setter.dump(config, out_, printer);
  out_ << "\n";
  out_.flush();
}

// ------------------------------------------------------------------------ formulas and labels

std::ostream& SmtLib2ApiTracer::outlabel(Term const* t, std::ostream* os) {
  std::ostream& dest = os != nullptr ? *os : out_;
  std::string const& prefix = config_->printer.defines_prefix;
  if (prefix.empty()) {
    dest << '.';
  } else {
    dest << prefix;
  }
  dest << static_cast<std::uint64_t>(t->get_id());
  return dest;
}

void SmtLib2ApiTracer::do_print_formula(Term const* t) {
  definitions_.clear();
  formula_stack_.clear();
  std::size_t const top = static_cast<std::size_t>(t->get_id());
  if (top >= defined_terms_.size()) {
    defined_terms_.resize(std::max(2 * defined_terms_.size(), top + 1), false);
  }
  std::vector<bool>& defined = defined_terms_;
  formula_stack_.push_back(t);
  try {
    while (!formula_stack_.empty()) {
      Term const* u = formula_stack_.back();
      if (defined[static_cast<std::size_t>(u->get_id())]) {
        formula_stack_.pop_back();
        continue;
      }
      std::size_t const arity = static_cast<std::size_t>(u->get_symbol()->get_arity());
      Term const* const* args = u->args();
      bool pushed = false;
      for (std::size_t i = 0; i < arity; ++i) {
        if (!defined[static_cast<std::size_t>(args[i]->get_id())]) {
          formula_stack_.push_back(args[i]);
          pushed = true;
        }
      }
      if (pushed) {
        continue;
      }
      formula_stack_.pop_back();
      definitions_.push_back({u->get_id(), u});
      defined[static_cast<std::size_t>(u->get_id())] = true;
    }
  } catch (...) {
    forget_definitions(0);
    throw;
  }
  write_definitions();
}

// Terms are marked defined as they are found, but their lines reach the trace only in whole
// slices at the end: if anything fails before a line is written, its term is unmarked again,
// so that the marks name exactly the terms whose lines were written.
void SmtLib2ApiTracer::forget_definitions(std::size_t written) {
  for (std::size_t k = written; k < definitions_.size(); ++k) {
    defined_terms_[static_cast<std::size_t>(definitions_[k].id)] = false;
  }
  definitions_.clear();
}

// The terms a call defines were mostly made together, so their ids tend to fill a range barely
// wider than their number. Then a bit per id of the range gives each definition its rank, and
// each goes straight to its place, where sorting would compare each many times; the bits cost
// a fraction of a byte per definition. Sparse ids, and short lists, go to the support library's
// sort. Either way the order is the same, ascending id.
void SmtLib2ApiTracer::order_definitions() {
  std::size_t const count = definitions_.size();
  if (count < 32) {
    tvx::sort(definitions_.data(), count, PrintLess());
    return;
  }
  std::uint64_t lo = definitions_[0].id;
  std::uint64_t hi = lo;
  for (Definition const& d : definitions_) {
    lo = std::min(lo, d.id);
    hi = std::max(hi, d.id);
  }
  // At most an eighth more ids in the range than definitions, and ranks that fit 32 bits.
  if (hi - lo >= count + count / 8 || count > UINT32_MAX) {
    tvx::sort(definitions_.data(), count, PrintLess());
    return;
  }
  std::size_t const words = static_cast<std::size_t>((hi - lo) / 64) + 1;
  id_bits_.assign(words, 0);
  for (Definition const& d : definitions_) {
    std::uint64_t const offset = d.id - lo;
    id_bits_[static_cast<std::size_t>(offset / 64)] |= std::uint64_t{1} << (offset % 64);
  }
  id_ranks_.resize(words);
  std::uint32_t before = 0;
  for (std::size_t w = 0; w < words; ++w) {
    id_ranks_[w] = before;
    before += static_cast<std::uint32_t>(std::bitset<64>(id_bits_[w]).count());
  }
  auto rank = [this, lo](std::uint64_t id) {
    std::uint64_t const offset = id - lo;
    std::size_t const w = static_cast<std::size_t>(offset / 64);
    std::uint64_t const below = id_bits_[w] & ((std::uint64_t{1} << (offset % 64)) - 1);
    return static_cast<std::size_t>(id_ranks_[w]) + std::bitset<64>(below).count();
  };
  // Each exchange puts one definition in its final place.
  for (std::size_t i = 0; i < count; ++i) {
    for (std::size_t r = rank(definitions_[i].id); r != i; r = rank(definitions_[i].id)) {
      std::swap(definitions_[i], definitions_[r]);
    }
  }
}

void SmtLib2ApiTracer::write_definitions() {
  std::size_t written = 0;  // definitions_[0, written) reached the stream
  try {
    order_definitions();
    // The lines are composed in one buffer and written in slices of whole lines, which keeps
    // the buffer small however many terms one call defines.
    std::string const& configured = config_->printer.defines_prefix;
    std::string const& prefix = configured.empty() ? kDefaultDefinesPrefix : configured;
    std::size_t const label = prefix.size() + TextBuffer::kMaxDigits;
    def_text_.clear();
    for (std::size_t k = 0; k < definitions_.size(); ++k) {
      Term const* u = definitions_[k].term;
      if (!plain_definitions_) {
        compose_definition_in_stream(u, prefix);
      } else {
        compose_plain_definition(u, prefix, label);
      }
      // A field width set on the stream belongs to the first line written, as if each line
      // were inserted by itself.
      std::streamsize const width = out_.width();
      if (def_text_.size() >= kDefinitionSlice || k + 1 == definitions_.size() || width != 0) {
        if (width != 0) {
          out_ << std::string_view(def_text_.data(), def_text_.size());
        } else {
          out_.write(def_text_.data(), static_cast<std::streamsize>(def_text_.size()));
        }
        def_text_.clear();
        written = k + 1;
      }
    }
  } catch (...) {
    forget_definitions(written);
    throw;
  }
  definitions_.clear();
}

void SmtLib2ApiTracer::compose_plain_definition(Term const* u, std::string const& prefix,
                                                std::size_t label) {
  if (SmtLibTermPrinter::is_binder(u)) {
    compose_binder_definition(u, prefix);
    return;
  }
  Symbol const* s = u->get_symbol();
  std::string const& type = printer_.type_text(s->get_output_type());
  std::string const& head = printer_.symbol_text(s);
  std::size_t const arity = static_cast<std::size_t>(s->get_arity());
  char* p = def_text_.room(24 + label + type.size() + head.size() + arity * (1 + label));
  p = TextBuffer::put(p, "(define-fun ");
  p = TextBuffer::put(p, prefix);
  p = TextBuffer::put_number(p, u->get_id());
  p = TextBuffer::put(p, " () ");
  p = TextBuffer::put(p, type);
  p = TextBuffer::put(p, ' ');
  if (arity == 0) {
    p = TextBuffer::put(p, head);
  } else {
    p = TextBuffer::put(p, '(');
    p = TextBuffer::put(p, head);
    Term const* const* args = u->args();
    if (SmtLibTermPrinter::is_inline_value(u, args[0])) {
      std::string const value = SmtLibTermPrinter::inline_value_text(args[0]);
      p = TextBuffer::put(p, ' ');
      def_text_.commit(p);
      p = def_text_.room(value.size() + 4);
      p = TextBuffer::put(p, value);
    } else {
      for (std::size_t i = 0; i < arity; ++i) {
        p = TextBuffer::put(p, ' ');
        p = TextBuffer::put(p, prefix);
        p = TextBuffer::put_number(p, args[i]->get_id());
      }
    }
    p = TextBuffer::put(p, ')');
  }
  p = TextBuffer::put(p, ")\n");
  def_text_.commit(p);
}

// A closed binder's definition: the binder in full, its closed subterms by their labels.
void SmtLib2ApiTracer::compose_binder_definition(Term const* u, std::string const& prefix) {
  std::string line = "(define-fun " + prefix;
  line += std::to_string(u->get_id());
  line += " () Bool ";
  line += printer_.binder_definition_text(u, prefix, [this](Term const* a) {
    return defined_terms_[static_cast<std::size_t>(a->get_id())];
  });
  line += ")\n";
  def_text_.commit(TextBuffer::put(def_text_.room(line.size()), line));
}

void SmtLib2ApiTracer::compose_definition_in_stream(Term const* u, std::string const& prefix) {
  if (SmtLibTermPrinter::is_binder(u)) {
    compose_binder_definition(u, prefix);
    return;
  }
  Symbol const* s = u->get_symbol();
  std::size_t const arity = static_cast<std::size_t>(s->get_arity());
  def_stream_.clear();
  def_stream_.str(std::string());
  def_stream_ << "(define-fun " << prefix << static_cast<std::uint64_t>(u->get_id()) << " () "
              << printer_.type_text(s->get_output_type()) << ' ';
  if (arity == 0) {
    def_stream_ << printer_.symbol_text(s);
  } else {
    def_stream_ << '(' << printer_.symbol_text(s);
    Term const* const* args = u->args();
    if (SmtLibTermPrinter::is_inline_value(u, args[0])) {
      def_stream_ << ' ' << SmtLibTermPrinter::inline_value_text(args[0]);
    } else {
      for (std::size_t i = 0; i < arity; ++i) {
        def_stream_ << ' ' << prefix << static_cast<std::uint64_t>(args[i]->get_id());
      }
    }
    def_stream_ << ')';
  }
  def_stream_ << ")\n";
  std::string const line = def_stream_.str();
  def_text_.commit(TextBuffer::put(def_text_.room(line.size()), line));
}

// Global mode: one walk finds what the assertion needs declared and defined; the declarations
// are written first, then the definitions.
void SmtLib2ApiTracer::declare_and_define(Term const* t) {
  definitions_.clear();
  search(t, new_symbols_, new_types_, true);
  try {
    for (DataType const* type : new_types_) {
      trace_type_declaration(type);
    }
    for (Symbol const* sym : new_symbols_) {
      trace_symbol_declaration(sym);
    }
  } catch (...) {
    forget_definitions(0);
    throw;
  }
  write_definitions();
}

void SmtLib2ApiTracer::trace_assert_formula(Term const* t) {
  if (global_decls_) {
    declare_and_define(t);
    if (itp_group_ < 0) {
      out_ << "(assert ";
      outlabel(t, nullptr);
      out_ << ")\n";
    } else {
      out_ << "(assert (! ";
      outlabel(t, nullptr);
      out_ << " :interpolation-group .g" << itp_group_ << "))\n";
    }
  } else {
    do_print_new_declarations(t);
    line_.clear();  // the annotation
    if (itp_group_ >= 0) {
      line_ += ":interpolation-group .g";
      append_as_fresh_stream(line_, itp_group_);
    }
    printer_.apitracer_print_term(out_, t, line_);
  }
  out_.flush();
}

// --------------------------------------------------------------------------- backtracking

void SmtLib2ApiTracer::trace_push_backtrack_point() {
  out_ << "(push 1)\n";
  out_.flush();
  assert((!global_decls_ || (symbol_decl_stack_.empty() && type_decl_stack_.empty())) &&
         "global-declarations mode records no scopes");
  if (!global_decls_) {
    // Room for both markers first, so that the stacks never differ in their marker counts.
    reserve_one(type_decl_stack_);
    reserve_one(symbol_decl_stack_);
    type_decl_stack_.push_back(nullptr);
    symbol_decl_stack_.push_back(nullptr);
  }
}

void SmtLib2ApiTracer::trace_pop_backtrack_point() {
  out_ << "(pop 1)\n";
  out_.flush();
  if (global_decls_) {
    assert(symbol_decl_stack_.empty() && type_decl_stack_.empty() &&
           "global-declarations mode records no scopes");
    return;
  }
  // A pop without an open push stops at the empty stack. Every entry above the scope marker
  // is a declaration still in the record.
  while (!symbol_decl_stack_.empty()) {
    Symbol const* s = symbol_decl_stack_.back();
    symbol_decl_stack_.pop_back();
    if (s == nullptr) {
      break;
    }
    assert(is_symbol_declared(s) && "a symbol on the stack is declared");
    forget_symbol(s);
  }
  while (!type_decl_stack_.empty()) {
    DataType const* ty = type_decl_stack_.back();
    type_decl_stack_.pop_back();
    if (ty == nullptr) {
      break;
    }
    [[maybe_unused]] std::size_t const erased = declared_types_.erase(ty);
    assert(erased == 1 && "a sort on the stack is declared");
  }
}

void SmtLib2ApiTracer::trace_reset_assertions() {
  std::size_t k = 0;
  while (k < symbol_decl_stack_.size() && symbol_decl_stack_[k] != nullptr) {
    ++k;
  }
  for (std::size_t i = k; i < symbol_decl_stack_.size(); ++i) {
    if (symbol_decl_stack_[i] != nullptr) {
      forget_symbol(symbol_decl_stack_[i]);
    }
  }
  symbol_decl_stack_.resize(k);

  k = 0;
  while (k < type_decl_stack_.size() && type_decl_stack_[k] != nullptr) {
    ++k;
  }
  for (std::size_t i = k; i < type_decl_stack_.size(); ++i) {
    if (type_decl_stack_[i] != nullptr) {
      declared_types_.erase(type_decl_stack_[i]);
    }
  }
  type_decl_stack_.resize(k);

  itp_group_ = -1;
  out_ << "(reset-assertions)\n";
  out_.flush();
}

void SmtLib2ApiTracer::trace_define_funs_rec(std::vector<Symbol const*> const& functions,
                                             std::vector<std::vector<Term const*>> const& params,
                                             std::vector<Term const*> const& bodies) {
  for (Symbol const* f : functions) {
    DataType const* type = f->get_type();
    for (std::size_t i = 0; i < type->get_num_components(); ++i) {
      if (type->get_component(i)->is_declarable()) {
        trace_type_declaration(type->get_component(i));
      }
    }
    if (type->is_declarable()) {
      trace_type_declaration(type);
    }
    if (!is_symbol_declared(f)) {
      record_declared(f);
    }
  }
  for (Term const* body : bodies) {
    do_print_new_declarations(body);
  }
  printer_.print_define_funs_rec(out_, functions, params, bodies);
  out_.flush();
}

void SmtLib2ApiTracer::trace_set_logic(std::string const& logic) {
  out_ << "(set-logic " << SmtLibTermPrinter::quote(logic) << ")\n";
  out_.flush();
}

void SmtLib2ApiTracer::trace_set_option(std::string const& keyword, std::string const& value) {
  out_ << "(set-option " << keyword << ' ' << value << ")\n";
  out_.flush();
}

// As trace_assert_formula, with the name among the formula's attributes.
void SmtLib2ApiTracer::trace_assert_named(Term const* t, std::string const& name) {
  std::string annotation = ":named " + SmtLibTermPrinter::quote(name);
  if (itp_group_ >= 0) {
    annotation += " :interpolation-group .g";
    append_as_fresh_stream(annotation, itp_group_);
  }
  if (global_decls_) {
    declare_and_define(t);
    out_ << "(assert (! ";
    outlabel(t, nullptr);
    out_ << ' ' << annotation << "))\n";
  } else {
    do_print_new_declarations(t);
    printer_.apitracer_print_term(out_, t, annotation);
  }
  out_.flush();
}

void SmtLib2ApiTracer::trace_reset() {
  std::fill(declared_symbols_.begin(), declared_symbols_.end(), false);
  symbol_decl_stack_.clear();
  declared_types_.clear();
  type_decl_stack_.clear();
  std::fill(defined_terms_.begin(), defined_terms_.end(), false);
  std::fill(declared_closure_.begin(), declared_closure_.end(), false);
  itp_group_ = -1;
  out_ << "(reset)\n";
  if (global_decls_) {
    out_ << "(set-option :global-decls true)\n";
  }
  out_.flush();
}

// --------------------------------------------------------------------------------- queries

void SmtLib2ApiTracer::append_term(Term const* t, bool plain) {
  if (global_decls_) {
    std::string const& prefix = config_->printer.defines_prefix;
    line_ += prefix.empty() ? kDefaultDefinesPrefix : prefix;
    append_stream_number(t->get_id(), plain);
  } else {
    line_ += printer_.term_text(t);
  }
}

// Labels in commands read exactly as outlabel writes them to out_, so their ids follow out_'s
// number format; label_stream_ takes that format on when it is not plain decimal.
void SmtLib2ApiTracer::append_stream_number(std::uint64_t n, bool plain) {
  if (plain) {
    append_number(line_, n);
    return;
  }
  label_stream_.clear();
  label_stream_.str(std::string());
  label_stream_.flags(out_.flags());
  std::locale const format = out_.getloc();
  if (label_stream_.getloc() != format) {
    label_stream_.imbue(format);
  }
  label_stream_ << n;
  line_ += label_stream_.str();
}

void SmtLib2ApiTracer::write_line(std::size_t head) {
  std::string_view const text(line_);
  out_ << text.substr(0, head);
  out_.write(text.data() + head, static_cast<std::streamsize>(text.size() - head));
}

void SmtLib2ApiTracer::trace_check() {
  out_ << "(check-sat)\n";
  out_.flush();
}

// The query commands below are composed in line_ and written in one piece, so that a failure
// while printing their terms leaves no half command in the trace.

void SmtLib2ApiTracer::trace_check_allsat(std::vector<Term const*> const& terms) {
  for (Term const* t : terms) {
    do_print_new_declarations(t);
  }
  if (global_decls_) {
    for (Term const* t : terms) {
      do_print_formula(t);
    }
  }
  bool const plain = writes_plain_numbers(out_);
  line_ = "(check-allsat (";
  std::size_t const head = line_.size();
  for (Term const* t : terms) {
    append_term(t, plain);
    line_ += ' ';
  }
  line_ += "))\n";
  write_line(head);
  out_.flush();
}

void SmtLib2ApiTracer::trace_check_with_assumptions(std::vector<TheoryLit> const& assumptions) {
  for (TheoryLit const& lit : assumptions) {
    do_print_new_declarations(lit.get_term());
  }
  if (global_decls_) {
    for (TheoryLit const& lit : assumptions) {
      do_print_formula(lit.get_term());
    }
  }
  bool const plain = writes_plain_numbers(out_);
  line_ = "(check-sat-assuming (";
  std::size_t const head = line_.size();
  for (TheoryLit const& lit : assumptions) {
    if (lit.is_negated()) {
      line_ += "(not ";
    }
    append_term(lit.get_term(), plain);
    if (lit.is_negated()) {
      line_ += ')';
    }
    line_ += ' ';
  }
  line_ += "))\n";
  write_line(head);
  out_.flush();
}

void SmtLib2ApiTracer::trace_new_interpolation_group() {}

void SmtLib2ApiTracer::trace_set_interpolation_group(int group) {
  if (itp_group_ >= 0 && itp_group_ != group) {
    out_ << "(assert (! true :interpolation-group .g" << itp_group_ << "))\n";
  }
  itp_group_ = group;
}

void SmtLib2ApiTracer::trace_get_interpolant(std::vector<int> const& groups) {
  out_ << "(get-interpolant (";
  for (std::size_t i = 0; i < groups.size(); ++i) {
    if (i > 0) {
      out_ << " ";
    }
    out_ << ".g" << groups[i];
  }
  out_ << "))\n";
  out_.flush();
}

void SmtLib2ApiTracer::trace_get_unsat_core() {
  out_ << "(get-unsat-core)\n";
  out_.flush();
}

void SmtLib2ApiTracer::trace_get_unsat_assumptions() {
  out_ << "(get-unsat-assumptions)\n";
  out_.flush();
}

void SmtLib2ApiTracer::trace_get_model() {
  out_ << "(get-model)\n";
  out_.flush();
}

void SmtLib2ApiTracer::trace_get_model_value(Term const* t) {
  if (global_decls_) {
    do_print_formula(t);
  }
  line_ = "(get-value (";
  std::size_t const head = line_.size();
  append_term(t, writes_plain_numbers(out_));
  line_ += "))\n";
  write_line(head);
  out_.flush();
}

}  // namespace tvx
