#include <tvx/core/term_printer.h>

#include "core/arith_args.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tvx {

namespace {

// Words that a simple symbol may not be: SMT-LIB's reserved words and command names (and the
// extension commands of traces), so that a quoted name never reads as a keyword.
constexpr std::string_view kReserved[] = {
    "!",
    "_",
    "as",
    "BINARY",
    "DECIMAL",
    "exists",
    "HEXADECIMAL",
    "forall",
    "let",
    "match",
    "NUMERAL",
    "par",
    "STRING",
    "assert",
    "check-allsat",
    "check-sat",
    "check-sat-assuming",
    "declare-const",
    "declare-datatype",
    "declare-datatypes",
    "declare-fun",
    "declare-sort",
    "define-const",
    "define-fun",
    "define-fun-rec",
    "define-funs-rec",
    "define-sort",
    "echo",
    "exit",
    "get-assertions",
    "get-assignment",
    "get-info",
    "get-interpolant",
    "get-model",
    "get-option",
    "get-proof",
    "get-unsat-assumptions",
    "get-unsat-core",
    "get-value",
    "pop",
    "push",
    "reset",
    "reset-assertions",
    "set-info",
    "set-logic",
    "set-option",
};

bool is_symbol_char(unsigned char c) {
  if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) {
    return true;
  }
  return c != 0 && std::strchr("~!@$%^&*_-+=<>.?/", c) != nullptr;
}

// "N", "d.f" or "n/d" (no sign) as a Real literal: "N.0", "d.f", "(/ n.0 d.0)".
std::string real_literal(std::string const& body) {
  std::size_t const slash = body.find('/');
  if (slash != std::string::npos) {
    return "(/ " + body.substr(0, slash) + ".0 " + body.substr(slash + 1) + ".0)";
  }
  if (body.find('.') != std::string::npos) {
    return body;
  }
  return body + ".0";
}

// "N", "d.f" or "n/d" (no sign) as a quotient of integers in lowest terms: "(/ n d)" or, negative,
// "(/ (- n) d)"; a non-negative "N" or "d.f" stays a decimal literal, "N.0" or "d.f".
std::string real_quotient(std::string const& body, bool negative) {
  std::size_t const slash = body.find('/');
  std::size_t const dot = body.find('.');
  if (!negative && slash == std::string::npos) {
    return real_literal(body);
  }
  std::string num = body;
  std::string den = "1";
  if (slash != std::string::npos) {
    num = body.substr(0, slash);
    den = body.substr(slash + 1);
  } else if (dot != std::string::npos) {
    num = body.substr(0, dot) + body.substr(dot + 1);
    num.erase(0, std::min(num.find_first_not_of('0'), num.size() - 1));
    den = "1" + std::string(body.size() - dot - 1, '0');
    reduce_rational(num, den);
  }
  return "(/ " + (negative ? "(- " + num + ")" : num) + " " + den + ")";
}

std::string numeral_text(Symbol const* s, bool real_quotients) {
  std::string const& value = s->get_name();
  DataType const* type = s->get_output_type();
  if (type->is_bv()) {
    return value;
  }
  bool const negative = !value.empty() && value[0] == '-';
  std::string body = negative ? value.substr(1) : value;
  if (type->is_real()) {
    if (real_quotients) {
      return real_quotient(body, negative);
    }
    body = real_literal(body);
  }
  return negative ? "(- " + body + ")" : body;
}

}  // namespace

// ------------------------------------------------------------------------------ TermPrinter

TermPrinter::~TermPrinter() = default;

bool TermPrinter::sym_ty_lt::operator()(DataType const* a, DataType const* b) const {
  // Sorts are hash-consed, so equal components are the same pointer and the first differing
  // component decides; following it is a loop, not a recursion.
  for (;;) {
    if (a == b) {
      return false;
    }
    if (a->is_simple() != b->is_simple()) {
      return a->is_simple();
    }
    if (a->is_simple()) {
      return a->get_id() < b->get_id();
    }
    std::size_t const na = a->get_num_components();
    std::size_t const nb = b->get_num_components();
    if (na != nb) {
      return na < nb;
    }
    std::size_t i = 0;
    while (i < na && a->get_component(i) == b->get_component(i)) {
      ++i;
    }
    if (i == na) {
      // Equal components: compound sorts of another kind or generic sort differ at their heads.
      if (a->get_kind() != b->get_kind()) {
        return a->get_kind() < b->get_kind();
      }
      DataType const* ga = a->get_generic();
      DataType const* gb = b->get_generic();
      return ga != gb && (ga == nullptr || (gb != nullptr && ga->get_id() < gb->get_id()));
    }
    a = a->get_component(i);
    b = b->get_component(i);
  }
}

// ------------------------------------------------------------------------ SmtLibTermPrinter

SmtLibTermPrinter::SmtLibTermPrinter(TermManager* mgr, std::string name_prefix)
    : TermPrinter(mgr), name_prefix_(std::move(name_prefix)) {}

SmtLibTermPrinter::~SmtLibTermPrinter() = default;

bool SmtLibTermPrinter::is_simple_symbol(std::string const& name) {
  if (name.empty() || (name[0] >= '0' && name[0] <= '9')) {
    return false;
  }
  for (char c : name) {
    if (!is_symbol_char(static_cast<unsigned char>(c))) {
      return false;
    }
  }
  for (std::string_view word : kReserved) {
    if (std::string_view(name) == word) {
      return false;
    }
  }
  return true;
}

std::string SmtLibTermPrinter::quote(std::string const& name) {
  return is_simple_symbol(name) ? name : "|" + name + "|";
}

std::string* SmtLibTermPrinter::TextById::slot(std::uint64_t id) {
  std::size_t const chunk = static_cast<std::size_t>(id >> kChunkBits);
  if (chunk >= chunks_.size()) {
    chunks_.resize(chunk + 1);
  }
  if (!chunks_[chunk]) {
    chunks_[chunk].reset(new std::string[std::size_t{1} << kChunkBits]);
  }
  return &chunks_[chunk][id & ((std::uint64_t{1} << kChunkBits) - 1)];
}

std::string const& SmtLibTermPrinter::compute_symbol_text(Symbol const* s) {
  std::string text;
  switch (s->get_tag()) {
    case SymbolTag::UNINTERPRETED:
    case SymbolTag::VARIABLE:
    case SymbolTag::DT_SELECTOR:
      text = quote(name_prefix_ + mgr_->get_printed_name(s));
      break;
    case SymbolTag::DT_CONSTRUCTOR:
      // A constructor of a parametric datatype's instance names the instance: (as nil (L Int)).
      text = quote(name_prefix_ + mgr_->get_printed_name(s));
      if (s->get_output_type()->is_instance()) {
        text = "(as " + text + " " + type_text(s->get_output_type()) + ")";
      }
      break;
    case SymbolTag::DT_TESTER: {
      // A parametric datatype's instance has its tester written is-C, the one form that z3
      // and cvc5 both read once the datatype has several instances.
      std::string const& name = mgr_->get_printed_name(mgr_->constructor_of(s).constructor);
      text = s->get_type()->get_component(0)->is_instance()
                 ? quote("is-" + name_prefix_ + name)
                 : "(_ is " + quote(name_prefix_ + name) + ")";
    } break;
    case SymbolTag::NUMERAL:
      text = numeral_text(s, real_quotients_);
      break;
    case SymbolTag::CONST_ARRAY:
      text = "(as const " + type_text(s->get_output_type()) + ")";
      break;
    case SymbolTag::ALGEBRAIC:
      text = s->get_name();
      break;
    default:
      if (s->get_num_indices() == 0) {
        text = s->get_name();
      } else {
        text = "(_ " + s->get_name();
        for (std::size_t i = 0; i < s->get_num_indices(); ++i) {
          text += ' ';
          text += std::to_string(s->get_index(i));
        }
        text += ')';
      }
      break;
  }
  std::string* slot = symbol_names_.slot(s->get_id());
  *slot = std::move(text);
  return *slot;
}

std::string const& SmtLibTermPrinter::compute_type_text(DataType const* t) {
  // Only the sort asked for is cached, not its components: caching every level of a deeply
  // nested array sort would cost memory quadratic in its depth.
  std::string text;
  t->write(text, [this](std::string& out, DataType const& u) {
    out += u.is_declarable() ? quote(name_prefix_ + mgr_->get_printed_name(&u))
           : u.is_param()    ? quote(u.get_name())
                             : u.get_name();
  });
  std::string* slot = type_names_.slot(t->get_id());
  *slot = std::move(text);
  return *slot;
}

std::string SmtLibTermPrinter::inline_value_text(Term const* value) {
  return numeral_text(value->get_symbol(), true);
}

std::string SmtLibTermPrinter::to_smtlib(Symbol const* s) {
  return symbol_text(s);
}
std::string SmtLibTermPrinter::to_smtlib(DataType const* t) {
  return type_text(t);
}

// ----------------------------------------------------------------------- SmtLib2TermPrinter

SmtLib2TermPrinter::SmtLib2TermPrinter(TermManager* mgr, Configuration::Printer* settings,
                                       std::string const& name_prefix,
                                       std::string const& line_prefix, bool global_decls,
                                       Annotations const* annotations)
    : SmtLibTermPrinter(mgr, name_prefix),
      settings_(settings),
      line_prefix_(line_prefix),
      global_decls_(global_decls),
      annotations_(annotations) {}

SmtLib2TermPrinter::~SmtLib2TermPrinter() = default;

// Declarations are composed first and written in one piece, like every command the printer
// writes: a failure while composing leaves nothing half-written in the stream.
void SmtLib2TermPrinter::print_type_declaration(std::ostream& os, DataType const* t) {
  text_.clear();
  text_ += line_prefix_;
  DatatypeInfo const* info = mgr_->datatype_info(t);
  if (info == nullptr) {
    text_ += "(declare-sort ";
    text_ += type_text(t);
    text_ += ' ';
    text_ += std::to_string(t->get_num_params());
    text_ += ")\n";
  } else {
    append_datatypes_declaration(*info);
  }
  os.write(text_.data(), static_cast<std::streamsize>(text_.size()));
}

// (declare-datatypes ((D 0) ...) (((C (s S) ...) ...) ...)) for the whole group of a datatype,
// a parametric one's constructors in (par (T ...) (...)).
void SmtLib2TermPrinter::append_datatypes_declaration(DatatypeInfo const& info) {
  text_ += "(declare-datatypes (";
  for (std::size_t i = 0; i < info.group->size(); ++i) {
    DataType const* d = (*info.group)[i];
    text_ += i == 0 ? "(" : " (";
    text_ += type_text(d);
    text_ += ' ';
    text_ += std::to_string(d->get_num_params());
    text_ += ')';
  }
  text_ += ") (";
  for (std::size_t i = 0; i < info.group->size(); ++i) {
    text_ += i == 0 ? "" : " ";
    DatatypeInfo const& member = *mgr_->datatype_info((*info.group)[i]);
    if (!member.params.empty()) {
      text_ += "(par (";
      for (std::size_t k = 0; k < member.params.size(); ++k) {
        text_ += k == 0 ? "" : " ";
        text_ += type_text(member.params[k]);
      }
      text_ += ") ";
    }
    text_ += '(';
    for (std::size_t k = 0; k < member.constructors.size(); ++k) {
      DatatypeInfo::Constructor const& c = member.constructors[k];
      text_ += k == 0 ? "(" : " (";
      text_ += quote(name_prefix_ + mgr_->get_printed_name(c.constructor));
      for (Symbol const* selector : c.selectors) {
        text_ += " (";
        text_ += symbol_text(selector);
        text_ += ' ';
        text_ += type_text(selector->get_output_type());
        text_ += ')';
      }
      text_ += ')';
    }
    text_ += member.params.empty() ? ")" : "))";
  }
  text_ += "))\n";
}

void SmtLib2TermPrinter::print_define_funs_rec(std::ostream& os,
                                               std::vector<Symbol const*> const& functions,
                                               std::vector<std::vector<Term const*>> const& params,
                                               std::vector<Term const*> const& bodies) {
  std::string text = line_prefix_;
  text += functions.size() == 1 ? "(define-fun-rec " : "(define-funs-rec (";
  for (std::size_t k = 0; k < functions.size(); ++k) {
    Symbol const* f = functions[k];
    text += functions.size() == 1 ? "" : k == 0 ? "(" : " (";
    text += symbol_text(f);
    text += " (";
    for (std::size_t i = 0; i < params[k].size(); ++i) {
      text += i == 0 ? "(" : " (";
      text += symbol_text(params[k][i]->get_symbol());
      text += ' ';
      text += type_text(params[k][i]->get_type());
      text += ')';
    }
    text += ") ";
    text += type_text(f->get_output_type());
    text += functions.size() == 1 ? " " : ")";
  }
  text += functions.size() == 1 ? "" : ") (";
  for (std::size_t k = 0; k < bodies.size(); ++k) {
    text += k == 0 ? "" : " ";
    text += term_text(bodies[k]);
  }
  text += functions.size() == 1 ? ")\n" : "))\n";
  os.write(text.data(), static_cast<std::streamsize>(text.size()));
}

void SmtLib2TermPrinter::print_symbol_declaration(std::ostream& os, Symbol const* s) {
  text_.clear();
  text_ += line_prefix_;
  text_ += "(declare-fun ";
  text_ += symbol_text(s);
  text_ += " (";
  DataType const* type = s->get_type();
  for (std::size_t i = 0; i < s->get_arity(); ++i) {
    if (i > 0) {
      text_ += ' ';
    }
    text_ += type_text(type->get_component(i));
  }
  text_ += ") ";
  text_ += type_text(s->get_output_type());
  text_ += ")\n";
  os.write(text_.data(), static_cast<std::streamsize>(text_.size()));
}

void SmtLib2TermPrinter::apitracer_print_term(std::ostream& os, Term const* t,
                                              std::string const& annotation) {
  // The command is composed first and written in one piece, so that a failure while composing
  // leaves nothing half-written in the stream.
  text_.clear();
  text_ += line_prefix_;
  text_ += "(assert ";
  if (annotation.empty()) {
    render_term(t, false);
  } else {
    text_ += "(! ";
    render_term(t, false);
    text_ += ' ';
    text_ += annotation;
    text_ += ')';
  }
  text_ += ")\n";
  os.write(text_.data(), static_cast<std::streamsize>(text_.size()));
}

std::string const& SmtLib2TermPrinter::term_text(Term const* t) {
  text_.clear();
  render_term(t, false);
  return text_;
}

void SmtLib2TermPrinter::print_term(std::ostream& os, Term const* t, bool annotate) {
  text_.clear();
  render_term(t, annotate);
  os.write(text_.data(), static_cast<std::streamsize>(text_.size()));
}

bool SmtLib2TermPrinter::has_annotations(Term const* t, bool annotate) const {
  return annotate && annotations_ != nullptr && annotations_->find(t) != annotations_->end();
}

std::string const& SmtLib2TermPrinter::let_name_prefix() {
  // A prefix that cannot be written between bars falls back to the default; one that is not
  // a simple symbol by itself makes every let name quoted (see append_let_name).
  std::string const* configured = settings_ != nullptr ? &settings_->let_prefix : nullptr;
  bool usable = configured != nullptr && !configured->empty();
  if (usable) {
    for (char ch : *configured) {
      unsigned char const c = static_cast<unsigned char>(ch);
      if (c == '|' || c == '\\' || (c < 32 && c != '\t' && c != '\n' && c != '\r') || c == 127) {
        usable = false;
        break;
      }
    }
  }
  let_prefix_cache_ = usable ? *configured : std::string("_let_");
  quote_let_names_ = !is_simple_symbol(let_prefix_cache_ + "1");
  return let_prefix_cache_;
}

// Finds the subterms to bind: every term with arguments that occurs more than once in the DAG
// of `root`. Each gets a level, one more than the deepest level its text refers to, so that
// bindings of one level share one `let`. Leaves `bound_` ordered by (level, id).
//
// One word per term id holds everything the analysis needs: the top two bits count the term's
// occurrences (none, once, more), the rest its level. One word rather than two arrays halves the
// cache lines a print touches, which is most of its cost on a large manager.
void SmtLib2TermPrinter::compute_sharing(Term const* root) {
  std::size_t const ids = root->get_id() + 1;
  if (info_.size() < ids) {
    info_.resize(std::max(ids, 2 * info_.size()), 0);
  }
  order_.clear();
  bound_.clear();
  frames_.clear();
  info_[root->get_id()] = kSeenOnce;
  frames_.push_back({root, 0});
  while (!frames_.empty()) {
    Frame& f = frames_.back();
    if (f.next_arg < f.term->get_arity()) {
      Term const* child = f.term->get_arg(f.next_arg++);
      std::uint64_t& info = info_[child->get_id()];
      if (info == 0) {
        info = kSeenOnce;
        frames_.push_back({child, 0});
      } else {
        info = kSeenMore;
      }
      continue;
    }
    order_.push_back(f.term);
    frames_.pop_back();
  }
  // Arguments come before parents: each term's level is known before its parents ask for it.
  for (Term const* t : order_) {
    std::uint64_t depth = 0;
    Term const* const* args = t->args();
    for (std::size_t i = 0, n = t->get_arity(); i < n; ++i) {
      depth = std::max(depth, info_[args[i]->get_id()] & kLevelMask);
    }
    std::uint64_t& info = info_[t->get_id()];
    // A term in which a variable occurs free stays inside the binders around it.
    bool const shared = t->get_arity() > 0 && info == kSeenMore && mgr_->is_closed(t);
    info = (info & ~kLevelMask) | (shared ? depth + 1 : depth);
    if (shared) {
      bound_.push_back({depth + 1, t->get_id(), t});
    }
  }
  std::sort(bound_.begin(), bound_.end(), [](Bound const& a, Bound const& b) {
    return a.level != b.level ? a.level < b.level : a.id < b.id;
  });
}

void SmtLib2TermPrinter::render_term(Term const* root, bool annotate) {
  try {
    render_shared(root, annotate);
  } catch (...) {
    // The per-id scratch must be all zero between calls; after a failure part of it is not.
    std::fill(info_.begin(), info_.end(), 0);
    throw;
  }
}

// Whether some let name prefix + n, n a bound term's number, is the printed name of a symbol.
// Only names that end in digits can be such a name; their stems (the name without its final
// digits) are collected once per new symbol, so a print whose prefix is no stem asks nothing.
bool SmtLib2TermPrinter::let_names_clash(std::string const& prefix) {
  for (std::size_t n = mgr_->num_symbols(); scanned_symbols_ < n; ++scanned_symbols_) {
    Symbol const* s = mgr_->symbol_at(scanned_symbols_);
    SymbolTag::tag const tag = s->get_tag();
    if (mgr_->is_interpreted(s) && tag != SymbolTag::VARIABLE && tag != SymbolTag::DT_CONSTRUCTOR &&
        tag != SymbolTag::DT_SELECTOR) {
      continue;
    }
    std::string const& name = mgr_->get_printed_name(s);
    std::size_t stem = name.size();
    while (stem > 0 && name[stem - 1] >= '0' && name[stem - 1] <= '9') {
      --stem;
    }
    if (stem < name.size()) {
      numbered_stems_.insert(name.substr(0, stem));
    }
  }
  if (bound_.empty()) {
    return false;
  }
  // A prefix that ends in a digit is no stem of the names it makes: those need the full check.
  bool const digit_last = !prefix.empty() && prefix.back() >= '0' && prefix.back() <= '9';
  if (!digit_last && numbered_stems_.count(prefix) == 0) {
    return false;
  }
  for (std::size_t k = 0; k < bound_.size(); ++k) {
    std::uint64_t const n = global_decls_ ? bound_[k].id : k + 1;
    if (mgr_->find_printed_symbol(prefix + std::to_string(n)) != nullptr) {
      return true;
    }
  }
  return false;
}

void SmtLib2TermPrinter::append_let_name(std::string const& prefix, std::uint64_t n) {
  char digits[24];
  auto end = std::to_chars(digits, digits + sizeof(digits), n).ptr;
  if (quote_let_names_) {
    text_ += '|';
  }
  text_ += prefix;
  text_.append(digits, static_cast<std::size_t>(end - digits));
  if (quote_let_names_) {
    text_ += '|';
  }
}

// "(forall ((x S) ...) " and, when the binder has attributes, "(! ": the text before the body.
// Returns the index of the body, the next argument to write.
std::size_t SmtLib2TermPrinter::open_binder(Term const* u) {
  BinderInfo const& info = mgr_->binder_info(u->get_symbol());
  text_ += u->get_symbol()->get_tag() == SymbolTag::FORALL ? "(forall (" : "(exists (";
  for (std::size_t i = 0; i < info.num_vars; ++i) {
    Term const* v = u->get_arg(i);
    text_ += i == 0 ? "(" : " (";
    text_ += symbol_text(v->get_symbol());
    text_ += ' ';
    text_ += type_text(v->get_type());
    text_ += ')';
  }
  text_ += ") ";
  if (info.has_attributes()) {
    text_ += "(! ";
  }
  return info.num_vars;
}

// Before the argument k after the body: " :pattern (" opening a pattern (closing the one
// before), " " between the terms of one pattern, " :no-pattern " before each no-pattern.
void SmtLib2TermPrinter::binder_separator(Term const* u, std::size_t k) {
  BinderInfo const& info = mgr_->binder_info(u->get_symbol());
  std::size_t r = k - info.num_vars - 1;
  for (std::size_t g = 0; g < info.pattern_sizes.size(); ++g) {
    if (r < info.pattern_sizes[g]) {
      text_ += r > 0 ? " " : g > 0 ? ") :pattern (" : " :pattern (";
      return;
    }
    r -= info.pattern_sizes[g];
  }
  text_ += r == 0 && !info.pattern_sizes.empty() ? ") :no-pattern " : " :no-pattern ";
}

// The binder's last pattern closed, its other attributes, and its parentheses.
void SmtLib2TermPrinter::close_binder(Term const* u) {
  BinderInfo const& info = mgr_->binder_info(u->get_symbol());
  if (!info.pattern_sizes.empty() && info.num_no_patterns == 0) {
    text_ += ')';
  }
  if (!info.qid.empty()) {
    text_ += " :qid ";
    text_ += quote(info.qid);
  }
  if (!info.skolemid.empty()) {
    text_ += " :skolemid ";
    text_ += quote(info.skolemid);
  }
  if (info.weight >= 0) {
    text_ += " :weight ";
    text_ += std::to_string(info.weight);
  }
  text_ += info.has_attributes() ? "))" : ")";
}

void SmtLib2TermPrinter::render_body(Term const* t, std::string const* prefix, bool annotate) {
  frames_.clear();
  frames_.push_back({t, 0});
  while (!frames_.empty()) {
    Frame& f = frames_.back();
    Term const* u = f.term;
    if (f.next_arg == 0) {
      if (prefix != nullptr && u != t && info_[u->get_id()] != 0) {
        append_let_name(*prefix, info_[u->get_id()] - 1);
        frames_.pop_back();
        continue;
      }
      if (has_annotations(u, annotate)) {
        text_ += "(! ";
      }
      if (is_binder(u)) {
        f.next_arg = open_binder(u);
      } else {
        if (u->get_arity() > 0) {
          text_ += '(';
        }
        text_ += symbol_text(u->get_symbol());
      }
    }
    if (f.next_arg < u->get_arity()) {
      std::size_t const k = f.next_arg++;
      Term const* child = u->get_arg(k);
      if (!is_binder(u)) {
        text_ += ' ';
      } else if (k > mgr_->binder_info(u->get_symbol()).num_vars) {
        binder_separator(u, k);
      }
      if (is_inline_value(u, child)) {
        text_ += inline_value_text(child);
      } else {
        frames_.push_back({child, 0});
      }
      continue;
    }
    if (is_binder(u)) {
      close_binder(u);
    } else if (u->get_arity() > 0) {
      text_ += ')';
    }
    if (has_annotations(u, annotate)) {
      for (auto const& kv : annotations_->find(u)->second) {
        text_ += ' ';
        text_ += kv.first;
        if (!kv.second.empty()) {
          text_ += ' ';
          text_ += kv.second;
        }
      }
      text_ += ')';
    }
    frames_.pop_back();
  }
}

namespace {

// Whether no subterm with arguments is reached twice in the term, so that nothing is bound:
// decided for terms with at most kSmall subterms with arguments, by a walk that keeps them in a
// small array instead of reading the per-id words (cache misses, for terms made long before).
// Larger terms answer false and get the sharing pass. Most assertions are small.
bool nothing_to_share(Term const* root) {
  constexpr std::size_t kSmall = 16;
  Term const* seen[kSmall];
  Term const* stack[kSmall];  // never holds more than `seen`
  std::size_t count = 0;
  std::size_t top = 0;
  seen[count++] = root;
  stack[top++] = root;
  while (top > 0) {
    Term const* t = stack[--top];
    for (std::size_t i = 0, n = t->get_arity(); i < n; ++i) {
      Term const* a = t->get_arg(i);
      if (a->get_arity() == 0) {
        continue;
      }
      if (std::find(seen, seen + count, a) != seen + count || count == kSmall) {
        return false;  // reached twice, or not small
      }
      seen[count++] = a;
      stack[top++] = a;
    }
  }
  return true;
}

}  // namespace

std::string const& SmtLib2TermPrinter::binder_definition_text(
    Term const* binder, std::string const& label_prefix,
    std::function<bool(Term const*)> const& labelled) {
  text_.clear();
  std::size_t const ids = binder->get_id() + 1;
  if (info_.size() < ids) {
    info_.resize(std::max(ids, 2 * info_.size()), 0);
  }
  // Marks the labelled subterms (word: id + 1, as render_body reads let names), walking on
  // through the others.
  order_.clear();
  frames_.clear();
  frames_.push_back({binder, 0});
  std::unordered_set<Term const*> seen;
  while (!frames_.empty()) {
    Term const* t = frames_.back().term;
    frames_.pop_back();
    for (std::size_t i = 0, n = t->get_arity(); i < n; ++i) {
      Term const* a = t->get_arg(i);
      if (!seen.insert(a).second) {
        continue;
      }
      order_.push_back(a);
      if (mgr_->is_closed(a) && labelled(a)) {
        info_[a->get_id()] = a->get_id() + 1;
      } else {
        frames_.push_back({a, 0});
      }
    }
  }
  bool const quoted = quote_let_names_;
  quote_let_names_ = false;
  try {
    render_body(binder, &label_prefix, false);
  } catch (...) {
    quote_let_names_ = quoted;
    for (Term const* t : order_) {
      info_[t->get_id()] = 0;
    }
    throw;
  }
  quote_let_names_ = quoted;
  for (Term const* t : order_) {
    info_[t->get_id()] = 0;
  }
  return text_;
}

void SmtLib2TermPrinter::render_shared(Term const* root, bool annotate) {
  if (nothing_to_share(root)) {
    render_body(root, nullptr, annotate);  // as it is, without the sharing pass
    return;
  }
  compute_sharing(root);

  // Names: a counter per call, or the term id in global-declarations mode; the prefix grows
  // until no name equals a user symbol.
  std::string prefix = let_name_prefix();
  while (let_names_clash(prefix)) {
    prefix += '_';
  }
  // From here on a term's word is its let number + 1 when it is bound, else 0.
  for (Term const* t : order_) {
    info_[t->get_id()] = 0;
  }
  for (std::size_t k = 0; k < bound_.size(); ++k) {
    info_[bound_[k].id] = (global_decls_ ? bound_[k].id : k + 1) + 1;
  }

  std::size_t open = 0;
  for (std::size_t k = 0; k < bound_.size();) {
    text_ += "(let (";
    std::uint64_t const level = bound_[k].level;
    for (bool first = true; k < bound_.size() && bound_[k].level == level; ++k, first = false) {
      text_ += first ? "(" : " (";
      append_let_name(prefix, info_[bound_[k].id] - 1);
      text_ += ' ';
      render_body(bound_[k].term, &prefix, annotate);
      text_ += ')';
    }
    text_ += ") ";
    ++open;
  }
  render_body(root, &prefix, annotate);
  text_.append(open, ')');
  for (Term const* t : order_) {
    info_[t->get_id()] = 0;
  }
}

}  // namespace tvx
