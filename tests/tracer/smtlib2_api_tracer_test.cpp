// Tests of SmtLib2ApiTracer: the exact text of every traced operation in both modes (global
// declarations and scoped declarations), the declaration record, and the flushing rule.
#include "tracer/smtlib2_api_tracer.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <ctime>
#include <functional>
#include <memory>
#include <ostream>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "core/configuration.h"
#include "core/local_time.h"
#include "core/term_manager.h"
#include "tracer_test_access.h"

namespace tvx {
namespace {

using Access = SmtLib2ApiTracerTestAccess;

constexpr char kTitle[] = ";; Tarvex API call trace\n";
constexpr char kStampStart[] = ";; generated on ";
constexpr char kGlobalOption[] = "(set-option :global-decls true)\n";

// The header's stamp line, if there is one, removed; the rest unchanged.
std::string strip_stamp(std::string const& text) {
  std::string const title = kTitle;
  if (text.compare(0, title.size(), title) != 0) {
    return text;
  }
  std::size_t const stamp = title.size();
  if (text.compare(stamp, std::string(kStampStart).size(), kStampStart) != 0) {
    return text;
  }
  std::size_t const end = text.find('\n', stamp);
  if (end == std::string::npos) {
    return text;
  }
  return text.substr(0, stamp) + text.substr(end + 1);
}

// Number of occurrences of `needle` in `text`.
std::size_t count(std::string const& text, std::string const& needle) {
  std::size_t n = 0;
  for (std::size_t at = text.find(needle); at != std::string::npos;
       at = text.find(needle, at + needle.size())) {
    ++n;
  }
  return n;
}

// The stamp text for a given time, formatted the way the header describes it.
std::string stamp_text(std::time_t when) {
  std::tm const local = get_local_time(&when);
  char buffer[255];
  buffer[0] = 0;
  std::strftime(buffer, 255, "%c", &local);
  return buffer;
}

// Everything the tests share: a term manager, a configuration, a recording stream and one
// tracer over them. take() returns the text written since its previous call, flushes() the
// flushes since its previous call.
class TracerFixture : public ::testing::Test {
 protected:
  SmtLib2ApiTracer& make(bool global_decls, bool dump_config = false) {
    tracer_ = std::make_unique<SmtLib2ApiTracer>(&config_, &mgr_, out_, global_decls, dump_config);
    return *tracer_;
  }
  // Builds a tracer and consumes its header.
  SmtLib2ApiTracer& start(bool global_decls) {
    make(global_decls);
    take();
    flushes();
    return *tracer_;
  }

  // Drops the tracer and everything recorded so far.
  void restart_stream() {
    tracer_.reset();
    buf_.clear();
    mark_ = 0;
    sync_mark_ = 0;
  }

  std::string take() {
    std::string const all = buf_.text();
    std::string result = all.substr(mark_);
    mark_ = all.size();
    return result;
  }
  int flushes() {
    int const result = buf_.syncs() - sync_mark_;
    sync_mark_ = buf_.syncs();
    return result;
  }

  std::string label(Term const* t) const {
    std::string const& prefix = config_.printer.defines_prefix;
    return (prefix.empty() ? std::string(".") : prefix) + std::to_string(t->get_id());
  }
  // "(define-fun L () SORT BODY)\n"
  std::string def(Term const* t, std::string const& sort, std::string const& body) const {
    return "(define-fun " + label(t) + " () " + sort + " " + body + ")\n";
  }

  SmtLib2ApiTracer& tracer() { return *tracer_; }

  DataType const* bool_type() { return mgr_.get_bool_type(); }
  DataType const* int_type() { return mgr_.get_integer_type(); }
  DataType const* fun_type(std::vector<DataType const*> const& args, DataType const* result) {
    return mgr_.get_function_type(args, result);
  }
  Symbol const* sym(std::string const& name, DataType const* type) {
    return mgr_.make_symbol(name, type);
  }
  Term const* cnst(Symbol const* s) { return mgr_.make_constant(s); }
  Term const* app(Symbol const* s, std::vector<Term const*> const& args) {
    return mgr_.make_term(s, args);
  }
  Term const* num(std::string const& value) { return mgr_.make_number(value, int_type()); }

  void expect_marks_clear() {
    EXPECT_FALSE(Access::any_visit_mark(*tracer_)) << "a visit mark was left set";
  }

  TermManager mgr_;
  Configuration config_;
  RecordingBuf buf_;
  std::ostream out_{&buf_};
  std::unique_ptr<SmtLib2ApiTracer> tracer_;
  std::size_t mark_ = 0;
  int sync_mark_ = 0;
};

// Tests whose shape is the same in both modes take the mode as their parameter.
class ModeFixture : public TracerFixture, public ::testing::WithParamInterface<bool> {
 protected:
  bool global() const { return GetParam(); }
};

class LifecycleTest : public ModeFixture {};
class DeclarationTest : public ModeFixture {};
class GroupScopeTest : public ModeFixture {};

std::string mode_name(::testing::TestParamInfo<bool> const& info) {
  return info.param ? "Global" : "Scoped";
}

// ---------------------------------------------------------------------------------------------
// Construction and header

using HeaderTest = TracerFixture;

TEST_F(HeaderTest, BothFlagsClearWritesTitleAndStampOnly) {
  std::time_t const before = std::time(nullptr);
  make(false, false);
  std::time_t const after = std::time(nullptr);
  std::string const text = buf_.text();

  std::string const stamp_before = stamp_text(before);
  std::string const stamp_after = stamp_text(after);
  ASSERT_FALSE(stamp_before.empty()) << "the C library gives no %c text here";
  std::string const with_before = kTitle + std::string(kStampStart) + stamp_before + "\n";
  std::string const with_after = kTitle + std::string(kStampStart) + stamp_after + "\n";
  EXPECT_TRUE(text == with_before || text == with_after) << text;
  EXPECT_EQ(1, buf_.syncs());
  EXPECT_EQ(text, buf_.delivered()) << "the header must be flushed";
}

TEST_F(HeaderTest, GlobalDeclsPutsOptionRightAfterStamp) {
  make(true, false);
  EXPECT_EQ(std::string(kTitle) + kGlobalOption, strip_stamp(buf_.text()));
  EXPECT_EQ(1, buf_.syncs());
  EXPECT_EQ(buf_.text(), buf_.delivered());
}

TEST_F(HeaderTest, StampIsSecondLine) {
  make(true, false);
  std::string const text = buf_.text();
  std::string const title = kTitle;
  ASSERT_EQ(0u, text.compare(0, title.size(), title));
  EXPECT_EQ(0u, text.compare(title.size(), std::string(kStampStart).size(), kStampStart));
}

TEST_F(HeaderTest, BothFlagsSetPutsOptionBeforeDumpAndEndsWithEmptyLine) {
  make(true, true);
  std::string const text = strip_stamp(buf_.text());
  std::string const start = std::string(kTitle) + kGlobalOption;
  ASSERT_EQ(0u, text.compare(0, start.size(), start)) << text;
  ASSERT_GE(text.size(), 2u);
  EXPECT_EQ("\n\n", text.substr(text.size() - 2)) << "the dump ends with an empty line";
  // Every line between the option and the empty line is an option line of the dump.
  std::istringstream lines(text.substr(start.size()));
  std::string line;
  std::vector<std::string> all;
  while (std::getline(lines, line)) {
    all.push_back(line);
  }
  ASSERT_FALSE(all.empty());
  EXPECT_EQ("", all.back());
  for (std::size_t i = 0; i + 1 < all.size(); ++i) {
    EXPECT_EQ(0u, all[i].find("(set-option :config \"")) << all[i];
  }
  EXPECT_EQ(2, buf_.syncs()) << "the dump flushes, then the constructor";
}

TEST_F(HeaderTest, ScopedWithDumpHasNoGlobalOption) {
  make(false, true);
  std::string const text = strip_stamp(buf_.text());
  EXPECT_EQ(std::string::npos, text.find(":global-decls"));
  EXPECT_EQ(0u, text.find(std::string(kTitle) + "(set-option :config \"")) << text;
  EXPECT_EQ(2, buf_.syncs());
}

TEST_F(HeaderTest, DestructorWritesAndFlushesNothing) {
  make(true, true);
  std::string const before = buf_.text();
  int const syncs = buf_.syncs();
  tracer_.reset();
  EXPECT_EQ(before, buf_.text());
  EXPECT_EQ(syncs, buf_.syncs());
}

TEST_F(HeaderTest, DestructorAfterWorkWritesNothing) {
  start(false);
  Term const* p = cnst(sym("p", bool_type()));
  tracer().trace_push_backtrack_point();
  tracer().trace_assert_formula(p);
  tracer().trace_set_interpolation_group(1);
  tracer().trace_set_interpolation_group(2);
  std::string const before = buf_.text();
  int const syncs = buf_.syncs();
  tracer_.reset();
  EXPECT_EQ(before, buf_.text());
  EXPECT_EQ(syncs, buf_.syncs());
}

TEST_P(LifecycleTest, FreshTracerIsEmpty) {
  make(global(), false);
  SmtLib2ApiTracer const& t = tracer();
  EXPECT_EQ(-1, Access::itp_group(t));
  EXPECT_EQ(global(), Access::global_decls(t));
  EXPECT_TRUE(Access::declared_symbols(t).empty());
  EXPECT_TRUE(Access::declared_types(t).empty());
  EXPECT_TRUE(Access::symbol_decl_stack(t).empty());
  EXPECT_TRUE(Access::type_decl_stack(t).empty());
  EXPECT_EQ(0u, Access::new_symbols_size(t));
  EXPECT_EQ(0u, Access::new_types_size(t));
  EXPECT_EQ(0u, Access::defined_terms_size(t));
  EXPECT_TRUE(Access::visit_marks(t).empty());
  EXPECT_TRUE(Access::formula_scratch_empty(t));
}

TEST_P(LifecycleTest, StreamFormatSettingsAreLeftAlone) {
  auto const flags = out_.flags();
  auto const precision = out_.precision();
  make(global(), true);
  Term const* x = cnst(sym("x", int_type()));
  Term const* e = mgr_.make_equal(x, num("-3"));
  tracer().trace_assert_formula(e);
  tracer().trace_set_interpolation_group(7);
  tracer().trace_set_interpolation_group(8);
  tracer().trace_get_interpolant({7, 8});
  tracer().trace_get_model_value(x);
  EXPECT_EQ(flags, out_.flags());
  EXPECT_EQ(precision, out_.precision());
  EXPECT_EQ(' ', out_.fill());
}

INSTANTIATE_TEST_SUITE_P(Modes, LifecycleTest, ::testing::Bool(), mode_name);

// ---------------------------------------------------------------------------------------------
// Configuration dump

class ConfigDumpTest : public TracerFixture {
 protected:
  static bool skipped(std::string const& key) {
    return key.size() >= 20 && key.compare(0, 20, "debug.api_call_trace") == 0;
  }
  // The first entry of the given type whose line the dump writes, or null.
  static char const* key_of_type(std::string const& type) {
    for (std::size_t i = 0; i < ConfigurationSetter::num_entries(); ++i) {
      ConfigurationSetter::EntryInfo const& info = ConfigurationSetter::entry(i);
      if (type == info.type && !skipped(info.key)) {
        return info.key;
      }
    }
    return nullptr;
  }
  // The dump lines of the tracer built last, without the header lines and the empty line.
  std::vector<std::string> dump_lines() {
    std::istringstream in(strip_stamp(buf_.text()));
    std::string line;
    std::vector<std::string> lines;
    while (std::getline(in, line)) {
      if (line.compare(0, 20, "(set-option :config ") == 0) {
        lines.push_back(line + "\n");
      }
    }
    return lines;
  }
  // The dumped option of `key`, up to and including its closing "\")\n", or "" when there is
  // none. Values may hold newlines, so this searches the text rather than its lines.
  std::string line_of(std::string const& key) {
    std::string const text = buf_.text();
    std::string const start = "(set-option :config \"" + key + "=";
    std::size_t const pos = text.find(start);
    if (pos == std::string::npos) {
      return "";
    }
    std::size_t const end = text.find("\")\n", pos);
    return end == std::string::npos ? "" : text.substr(pos, end + 3 - pos);
  }
  static std::string option(std::string const& key, std::string const& value) {
    return "(set-option :config \"" + key + "=" + value + "\")\n";
  }

  ConfigurationSetter setter_;
};

TEST_F(ConfigDumpTest, EveryEntryInRegistryOrderExceptTheTraceFamily) {
  // Values chosen so that each type's text is known: (text to set, text dumped).
  struct Value {
    char const* type;
    char const* set;
    char const* dumped;
  };
  std::vector<Value> const values = {{"bool", "true", "true"},
                                     {"int", "-7", "-7"},
                                     {"unsigned", "42", "42"},
                                     {"double", "0.7", "0.7"},
                                     {"string", "a\"b\\c", "a\\\"b\\c"}};
  std::string expected = std::string(kTitle);
  std::size_t trace_family = 0;
  for (std::size_t i = 0; i < ConfigurationSetter::num_entries(); ++i) {
    ConfigurationSetter::EntryInfo const& info = ConfigurationSetter::entry(i);
    if (skipped(info.key)) {
      ++trace_family;
      continue;  // left at its value: none of it may appear anyway
    }
    for (Value const& v : values) {
      if (std::string(v.type) == info.type) {
        setter_.set(&config_, info.key, v.set);
        expected += option(info.key, v.dumped);
      }
    }
  }
  expected += "\n";
  EXPECT_GT(trace_family, 0u) << "the registry has no debug.api_call_trace entry to skip";
  make(false, true);
  EXPECT_EQ(expected, strip_stamp(buf_.text()));
  EXPECT_EQ(2, buf_.syncs());
}

TEST_F(ConfigDumpTest, TraceFamilyNeverAppearsWhateverItsValues) {
  for (std::size_t i = 0; i < ConfigurationSetter::num_entries(); ++i) {
    ConfigurationSetter::EntryInfo const& info = ConfigurationSetter::entry(i);
    if (!skipped(info.key)) {
      continue;
    }
    std::string const type = info.type;
    std::string const value = type == "bool"       ? "true"
                              : type == "int"      ? "2"
                              : type == "unsigned" ? "3"
                              : type == "double"   ? "1.5"
                                                   : "trace.smt2";
    setter_.set(&config_, info.key, value);
  }
  make(true, true);
  EXPECT_EQ(std::string::npos, buf_.text().find("debug.api_call_trace"));
  EXPECT_FALSE(dump_lines().empty()) << "keys outside the family are written";
}

TEST_F(ConfigDumpTest, BoolTextIsTrueOrFalse) {
  char const* key = key_of_type("bool");
  if (key == nullptr) {
    GTEST_SKIP() << "no bool entry";
  }
  setter_.set(&config_, key, "true");
  make(false, true);
  EXPECT_EQ(option(key, "true"), line_of(key));
  restart_stream();
  setter_.set(&config_, key, "false");
  make(false, true);
  EXPECT_EQ(option(key, "false"), line_of(key));
}

struct TypedCase {
  char const* type;
  char const* set;
  char const* dumped;
};

class ConfigValueTest : public ConfigDumpTest, public ::testing::WithParamInterface<TypedCase> {};

TEST_P(ConfigValueTest, ValueTextFollowsTheStreamDefaults) {
  TypedCase const& c = GetParam();
  char const* key = key_of_type(c.type);
  if (key == nullptr) {
    GTEST_SKIP() << "no entry of type " << c.type;
  }
  setter_.set(&config_, key, c.set);
  make(false, true);
  EXPECT_EQ(option(key, c.dumped), line_of(key));
}

INSTANTIATE_TEST_SUITE_P(
    Values, ConfigValueTest,
    ::testing::Values(
        TypedCase{"int", "0", "0"}, TypedCase{"int", "-2147483648", "-2147483648"},
        TypedCase{"int", "12345", "12345"}, TypedCase{"unsigned", "4294967295", "4294967295"},
        TypedCase{"unsigned", "0", "0"}, TypedCase{"double", "0.5", "0.5"},
        TypedCase{"double", "2", "2"}, TypedCase{"double", "0.7", "0.7"},
        TypedCase{"double", "1000000", "1e+06"}, TypedCase{"double", "0.000001", "1e-06"},
        TypedCase{"double", "0.0000000001", "1e-10"}, TypedCase{"double", "3.14159265", "3.14159"},
        TypedCase{"string", "", ""}, TypedCase{"string", "plain", "plain"},
        TypedCase{"string", "say \"hi\"", "say \\\"hi\\\""}, TypedCase{"string", "\"", "\\\""},
        TypedCase{"string", "back\\slash", "back\\slash"},
        TypedCase{"string", "two\nlines", "two\nlines"}));

TEST_F(ConfigDumpTest, DoubleDumpedUnderTheStreamsOwnPrecision) {
  char const* key = key_of_type("double");
  if (key == nullptr) {
    GTEST_SKIP() << "no double entry";
  }
  setter_.set(&config_, key, "0.123456789");
  out_.precision(3);
  make(false, true);
  EXPECT_EQ(option(key, "0.123"), line_of(key));
  EXPECT_EQ(3, out_.precision());
}

// ---------------------------------------------------------------------------------------------
// Declarations

TEST_P(DeclarationTest, TypeDeclaredOnceSecondCallOnlyFlushes) {
  start(global());
  DataType const* u = mgr_.make_simple_type("U");
  tracer().trace_type_declaration(u);
  EXPECT_EQ("(declare-sort U 0)\n", take());
  EXPECT_EQ(1, flushes());
  tracer().trace_type_declaration(u);
  EXPECT_EQ("", take());
  EXPECT_EQ(1, flushes());
  EXPECT_EQ(std::vector<DataType const*>{u}, Access::declared_types(tracer()));
}

TEST_P(DeclarationTest, SymbolDeclaredOnceSecondCallOnlyFlushes) {
  start(global());
  DataType const* u = mgr_.make_simple_type("U");
  Symbol const* f = sym("f", fun_type({u, int_type()}, bool_type()));
  Symbol const* x = sym("x", u);
  tracer().trace_symbol_declaration(f);
  EXPECT_EQ("(declare-fun f (U Int) Bool)\n", take());
  EXPECT_EQ(1, flushes());
  tracer().trace_symbol_declaration(x);
  EXPECT_EQ("(declare-fun x () U)\n", take());
  EXPECT_EQ(1, flushes());
  tracer().trace_symbol_declaration(f);
  tracer().trace_symbol_declaration(x);
  EXPECT_EQ("", take());
  EXPECT_EQ(2, flushes());
  EXPECT_EQ((std::vector<Symbol const*>{f, x}), Access::declared_symbols(tracer()));
}

TEST_P(DeclarationTest, ReportedSymbolIsNotDeclaredAgainByAnAssertion) {
  start(global());
  Symbol const* ps = sym("p", bool_type());
  Term const* p = cnst(ps);
  tracer().trace_symbol_declaration(ps);
  EXPECT_EQ("(declare-fun p () Bool)\n", take());
  EXPECT_EQ(1, flushes());
  tracer().trace_assert_formula(p);
  std::string const expected =
      global() ? def(p, "Bool", "p") + "(assert " + label(p) + ")\n" : std::string("(assert p)\n");
  EXPECT_EQ(expected, take());
  EXPECT_EQ(1, flushes());
}

TEST_P(DeclarationTest, SymbolMetInAnAssertionIsNotDeclaredAgainWhenReported) {
  start(global());
  Symbol const* ps = sym("p", bool_type());
  Term const* p = cnst(ps);
  tracer().trace_assert_formula(p);
  std::string const text = take();
  EXPECT_EQ(0u, text.find("(declare-fun p () Bool)\n")) << text;
  EXPECT_EQ(2, flushes());
  tracer().trace_symbol_declaration(ps);
  EXPECT_EQ("", take());
  EXPECT_EQ(1, flushes());
}

TEST_P(DeclarationTest, ReportedSymbolIsDeclaredEvenWhenInterpreted) {
  start(global());
  Symbol const* t = mgr_.make_true()->get_symbol();
  ASSERT_TRUE(mgr_.is_interpreted(t));
  tracer().trace_symbol_declaration(t);
  EXPECT_NE("", take()) << "the environment's report is written whatever the symbol";
  EXPECT_EQ(1, flushes());
  EXPECT_EQ(std::vector<Symbol const*>{t}, Access::declared_symbols(tracer()));
  tracer().trace_symbol_declaration(t);
  EXPECT_EQ("", take());
}

TEST_P(DeclarationTest, InterpretedTermOverBuiltinSortsDeclaresNothing) {
  start(global());
  Term const* one = num("1");
  Term const* minus3 = num("-3");
  Term const* e = mgr_.make_equal(one, minus3);
  tracer().trace_assert_formula(e);
  std::string const expected =
      global() ? def(one, "Int", "1") + def(minus3, "Int", "(- 3)") +
                     def(e, "Bool", "(= " + label(one) + " " + label(minus3) + ")") + "(assert " +
                     label(e) + ")\n"
               : std::string("(assert (= 1 (- 3)))\n");
  EXPECT_EQ(expected, take());
  EXPECT_EQ(1, flushes());
  EXPECT_TRUE(Access::declared_symbols(tracer()).empty());
  EXPECT_TRUE(Access::declared_types(tracer()).empty());
}

TEST_P(DeclarationTest, NewSortFirstThenSymbolsByAscendingIdWhateverTheirPlaceInTheTerm) {
  start(global());
  DataType const* u = mgr_.make_simple_type("U");
  Symbol const* ys = sym("y", u);  // made first: the smallest id
  Symbol const* xs = sym("x", u);
  Symbol const* gs = sym("g", fun_type({u, u}, u));
  Term const* x = cnst(xs);
  Term const* y = cnst(ys);
  Term const* g = app(gs, {x, y});
  tracer().do_print_new_declarations(g);
  EXPECT_EQ(
      "(declare-sort U 0)\n"
      "(declare-fun y () U)\n"
      "(declare-fun x () U)\n"
      "(declare-fun g (U U) U)\n",
      take());
  EXPECT_EQ(4, flushes()) << "each declaration is flushed by itself";
  expect_marks_clear();
}

TEST_P(DeclarationTest, AlreadyDeclaredSymbolIsLeftOut) {
  start(global());
  DataType const* u = mgr_.make_simple_type("U");
  Symbol const* xs = sym("x", u);
  Symbol const* ys = sym("y", u);
  Symbol const* gs = sym("g", fun_type({u, u}, u));
  Term const* g = app(gs, {cnst(xs), cnst(ys)});
  tracer().trace_symbol_declaration(ys);
  take();
  flushes();
  tracer().do_print_new_declarations(g);
  EXPECT_EQ("(declare-sort U 0)\n(declare-fun x () U)\n(declare-fun g (U U) U)\n", take());
  EXPECT_EQ(3, flushes());
}

TEST_P(DeclarationTest, TwoNewSortsComeBeforeAllSymbols) {
  start(global());
  DataType const* a = mgr_.make_simple_type("A");
  DataType const* b = mgr_.make_simple_type("B");
  Symbol const* hs = sym("h", fun_type({b, a}, bool_type()));
  Symbol const* bs = sym("b", b);
  Symbol const* as = sym("a", a);
  Term const* h = app(hs, {cnst(bs), cnst(as)});
  tracer().do_print_new_declarations(h);
  std::string const text = take();
  std::string const sorts_ab = "(declare-sort A 0)\n(declare-sort B 0)\n";
  std::string const sorts_ba = "(declare-sort B 0)\n(declare-sort A 0)\n";
  std::string const symbols =
      "(declare-fun h (B A) Bool)\n(declare-fun b () B)\n(declare-fun a () A)\n";
  EXPECT_TRUE(text == sorts_ab + symbols || text == sorts_ba + symbols) << text;
  EXPECT_EQ(5, flushes());
}

TEST_P(DeclarationTest, SortOfAConstantIsFoundThroughTheConstant) {
  // f : Int U -> Bool applied to a numeral and a constant of U: the numeral adds nothing, and
  // U is found through the constant, not through f's signature.
  start(global());
  DataType const* u = mgr_.make_simple_type("U");
  Symbol const* fs = sym("f", fun_type({int_type(), u}, bool_type()));
  Symbol const* cs = sym("c", u);
  Term const* f = app(fs, {num("5"), cnst(cs)});
  std::set<Symbol const*, TermPrinter::sym_ty_lt> symbols;
  std::set<DataType const*, TermPrinter::sym_ty_lt> types;
  tracer().find_symbols_and_types_to_declare(f, symbols, types);
  EXPECT_EQ((std::set<Symbol const*, TermPrinter::sym_ty_lt>{fs, cs}), symbols);
  EXPECT_EQ((std::set<DataType const*, TermPrinter::sym_ty_lt>{u}), types);
}

TEST_P(DeclarationTest, SearchEmptiesTheSetsWritesNothingAndClearsItsMarks) {
  start(global());
  DataType const* u = mgr_.make_simple_type("U");
  DataType const* v = mgr_.make_simple_type("V");
  Symbol const* stale = sym("stale", v);
  Symbol const* xs = sym("x", u);
  Symbol const* gs = sym("g", fun_type({u, u}, bool_type()));
  Term const* x = cnst(xs);
  Term const* g = app(gs, {x, x});
  std::set<Symbol const*, TermPrinter::sym_ty_lt> symbols{stale};
  std::set<DataType const*, TermPrinter::sym_ty_lt> types{v};
  tracer().find_symbols_and_types_to_declare(g, symbols, types);
  EXPECT_EQ((std::set<Symbol const*, TermPrinter::sym_ty_lt>{xs, gs}), symbols);
  EXPECT_EQ((std::set<DataType const*, TermPrinter::sym_ty_lt>{u}), types);
  EXPECT_EQ("", take());
  EXPECT_EQ(0, flushes());
  std::vector<bool> const& marks = Access::visit_marks(tracer());
  EXPECT_GE(marks.size(), 2 * g->get_id() + 2);
  expect_marks_clear();
  EXPECT_TRUE(Access::declared_symbols(tracer()).empty()) << "the search records nothing";
}

TEST_P(DeclarationTest, ConstantAsWholeTerm) {
  start(global());
  Term const* t = mgr_.make_true();
  std::set<Symbol const*, TermPrinter::sym_ty_lt> symbols;
  std::set<DataType const*, TermPrinter::sym_ty_lt> types;
  tracer().find_symbols_and_types_to_declare(t, symbols, types);
  EXPECT_TRUE(symbols.empty());
  EXPECT_TRUE(types.empty());
  EXPECT_GE(Access::visit_marks(tracer()).size(), 2 * t->get_id() + 2);
  expect_marks_clear();
  tracer().trace_assert_formula(t);
  std::string const expected = global() ? def(t, "Bool", "true") + "(assert " + label(t) + ")\n"
                                        : std::string("(assert true)\n");
  EXPECT_EQ(expected, take());
}

TEST_P(DeclarationTest, SharedSubtermsAreSearchedOnceAcrossAnExponentialDag) {
  // t_{i+1} = h(t_i, t_i): 2^200 paths, 201 distinct terms; a search that examined each path
  // would never end.
  start(global());
  DataType const* u = mgr_.make_simple_type("U");
  Symbol const* hs = sym("h", fun_type({u, u}, u));
  Symbol const* cs = sym("c", u);
  Term const* t = cnst(cs);
  for (int i = 0; i < 200; ++i) {
    t = app(hs, {t, t});
  }
  tracer().do_print_new_declarations(t);
  EXPECT_EQ("(declare-sort U 0)\n(declare-fun h (U U) U)\n(declare-fun c () U)\n", take());
  expect_marks_clear();
  EXPECT_GE(Access::visit_marks(tracer()).size(), 2 * t->get_id() + 2);
}

using DeclarationStackTest = TracerFixture;

TEST_F(DeclarationStackTest, ScopedStacksFollowDeclarationsAndMarkers) {
  start(false);
  DataType const* u = mgr_.make_simple_type("U");
  Symbol const* a = sym("a", u);
  Symbol const* b = sym("b", u);
  Symbol const* c = sym("c", u);
  tracer().trace_type_declaration(u);
  tracer().trace_symbol_declaration(a);
  tracer().trace_symbol_declaration(b);
  tracer().trace_push_backtrack_point();
  tracer().trace_symbol_declaration(c);
  EXPECT_EQ((std::vector<Symbol const*>{a, b, nullptr, c}), Access::symbol_decl_stack(tracer()));
  EXPECT_EQ((std::vector<DataType const*>{u, nullptr}), Access::type_decl_stack(tracer()));
}

TEST_F(DeclarationStackTest, GlobalStacksStayEmpty) {
  start(true);
  DataType const* u = mgr_.make_simple_type("U");
  Symbol const* a = sym("a", u);
  Symbol const* b = sym("b", u);
  Symbol const* gs = sym("g", fun_type({u}, bool_type()));
  tracer().trace_type_declaration(u);
  tracer().trace_symbol_declaration(a);
  tracer().trace_push_backtrack_point();
  tracer().trace_symbol_declaration(b);
  tracer().trace_assert_formula(app(gs, {cnst(a)}));
  tracer().trace_push_backtrack_point();
  EXPECT_TRUE(Access::symbol_decl_stack(tracer()).empty());
  EXPECT_TRUE(Access::type_decl_stack(tracer()).empty());
  EXPECT_EQ((std::vector<Symbol const*>{a, b, gs}), Access::declared_symbols(tracer()));
}

INSTANTIATE_TEST_SUITE_P(Modes, DeclarationTest, ::testing::Bool(), mode_name);

// ---------------------------------------------------------------------------------------------
// Formula output and assertions

class FormulaTest : public TracerFixture {
 protected:
  // U, x : U, f : U U -> Bool and u = f(x, x), declared already.
  void setup_example(bool global_decls) {
    start(global_decls);
    u_ = mgr_.make_simple_type("U");
    xs_ = sym("x", u_);
    fs_ = sym("f", fun_type({u_, u_}, bool_type()));
    x_ = cnst(xs_);
    fx_ = app(fs_, {x_, x_});
    tracer().trace_type_declaration(u_);
    tracer().trace_symbol_declaration(xs_);
    tracer().trace_symbol_declaration(fs_);
    take();
    flushes();
  }

  DataType const* u_ = nullptr;
  Symbol const* xs_ = nullptr;
  Symbol const* fs_ = nullptr;
  Term const* x_ = nullptr;
  Term const* fx_ = nullptr;
};

TEST_F(FormulaTest, GlobalDefinesEachSubtermOnceThenAssertsTheLabel) {
  setup_example(true);
  tracer().trace_assert_formula(fx_);
  std::string const lx = label(x_);
  EXPECT_EQ(def(x_, "U", "x") + def(fx_, "Bool", "(f " + lx + " " + lx + ")") + "(assert " +
                label(fx_) + ")\n",
            take());
  EXPECT_EQ(1, flushes());
  tracer().trace_assert_formula(fx_);
  EXPECT_EQ("(assert " + label(fx_) + ")\n", take());
  EXPECT_EQ(1, flushes());
  EXPECT_EQ(2u, Access::defined_terms_size(tracer()));
  EXPECT_TRUE(Access::is_defined(tracer(), x_));
  EXPECT_TRUE(Access::is_defined(tracer(), fx_));
  EXPECT_TRUE(Access::formula_scratch_empty(tracer()));
}

TEST_F(FormulaTest, GlobalWithGroupAnnotatesTheAssertion) {
  setup_example(true);
  tracer().trace_set_interpolation_group(3);
  tracer().trace_assert_formula(fx_);
  std::string const lx = label(x_);
  EXPECT_EQ(def(x_, "U", "x") + def(fx_, "Bool", "(f " + lx + " " + lx + ")") + "(assert (! " +
                label(fx_) + " :interpolation-group .g3))\n",
            take());
}

TEST_F(FormulaTest, GlobalGroupZeroIsAGroup) {
  setup_example(true);
  tracer().trace_assert_formula(fx_);
  take();
  tracer().trace_set_interpolation_group(0);
  tracer().trace_assert_formula(fx_);
  EXPECT_EQ("(assert (! " + label(fx_) + " :interpolation-group .g0))\n", take());
}

TEST_F(FormulaTest, GlobalNegativeGroupMeansNone) {
  setup_example(true);
  tracer().trace_assert_formula(fx_);
  take();
  tracer().trace_set_interpolation_group(-5);
  tracer().trace_assert_formula(fx_);
  EXPECT_EQ("(assert " + label(fx_) + ")\n", take());
}

TEST_F(FormulaTest, ScopedPrintsTheWholeAssertion) {
  setup_example(false);
  tracer().trace_assert_formula(fx_);
  EXPECT_EQ("(assert (f x x))\n", take());
  EXPECT_EQ(1, flushes());
  tracer().trace_assert_formula(fx_);
  EXPECT_EQ("(assert (f x x))\n", take()) << "scoped mode prints the term wherever it occurs";
  EXPECT_EQ(0u, Access::defined_terms_size(tracer()));
}

TEST_F(FormulaTest, ScopedAnnotationsByGroup) {
  setup_example(false);
  tracer().trace_set_interpolation_group(3);
  tracer().trace_assert_formula(fx_);
  EXPECT_EQ("(assert (! (f x x) :interpolation-group .g3))\n", take());
  tracer().trace_set_interpolation_group(12);
  take();
  tracer().trace_assert_formula(fx_);
  EXPECT_EQ("(assert (! (f x x) :interpolation-group .g12))\n", take());
  tracer().trace_reset_assertions();
  take();
  tracer().trace_set_interpolation_group(0);
  tracer().trace_assert_formula(fx_);
  EXPECT_EQ("(assert (! (f x x) :interpolation-group .g0))\n", take());
  tracer().trace_set_interpolation_group(-1);
  take();
  tracer().trace_assert_formula(fx_);
  EXPECT_EQ("(assert (f x x))\n", take());
}

TEST_F(FormulaTest, GlobalLinesAreInAscendingIdOrder) {
  // g(a, b) with id(a) < id(b): the walk reaches b first, the lines still go by id.
  start(true);
  Symbol const* as = sym("a", int_type());
  Symbol const* bs = sym("b", int_type());
  Symbol const* gs = sym("g", fun_type({int_type(), int_type()}, bool_type()));
  Term const* a = cnst(as);
  Term const* b = cnst(bs);
  Term const* g = app(gs, {a, b});
  ASSERT_LT(a->get_id(), b->get_id());
  tracer().trace_assert_formula(g);
  EXPECT_EQ(
      "(declare-fun a () Int)\n(declare-fun b () Int)\n"
      "(declare-fun g (Int Int) Bool)\n" +
          def(a, "Int", "a") + def(b, "Int", "b") +
          def(g, "Bool", "(g " + label(a) + " " + label(b) + ")") + "(assert " + label(g) + ")\n",
      take());
  EXPECT_EQ(4, flushes());
}

TEST_F(FormulaTest, GlobalManyDefinitionsAreSorted) {
  // More definitions than the sort handles by selection alone.
  start(true);
  std::vector<DataType const*> arg_types(40, int_type());
  std::vector<Symbol const*> symbols;
  for (int i = 0; i < 40; ++i) {
    symbols.push_back(sym("c" + std::to_string(i), int_type()));
  }
  Symbol const* hs = sym("h", fun_type(arg_types, bool_type()));
  std::vector<Term const*> args;
  for (Symbol const* s : symbols) {
    args.push_back(cnst(s));
  }
  Term const* h = app(hs, args);
  std::string expected_defs;
  std::string body = "(h";
  for (std::size_t i = 0; i < args.size(); ++i) {
    expected_defs += def(args[i], "Int", "c" + std::to_string(i));
    body += " " + label(args[i]);
  }
  body += ")";
  expected_defs += def(h, "Bool", body);
  tracer().trace_assert_formula(h);
  std::string const text = take();
  std::size_t const first_def = text.find("(define-fun ");
  ASSERT_NE(std::string::npos, first_def);
  EXPECT_EQ(expected_defs + "(assert " + label(h) + ")\n", text.substr(first_def));
  EXPECT_EQ(41 + 1, flushes());
}

TEST_F(FormulaTest, GlobalPartlyDefinedFormulaDefinesOnlyTheNewPart) {
  setup_example(true);
  tracer().trace_assert_formula(fx_);
  take();
  Term const* n = mgr_.make_not(fx_);
  tracer().trace_assert_formula(n);
  EXPECT_EQ(def(n, "Bool", "(not " + label(fx_) + ")") + "(assert " + label(n) + ")\n", take());
}

TEST_F(FormulaTest, GlobalPrefixIsReadAtEachLabel) {
  setup_example(true);
  config_.printer.defines_prefix = "p";
  tracer().trace_assert_formula(fx_);
  std::string const lx = "p" + std::to_string(x_->get_id());
  std::string const lf = "p" + std::to_string(fx_->get_id());
  EXPECT_EQ("(define-fun " + lx + " () U x)\n(define-fun " + lf + " () Bool (f " + lx + " " + lx +
                "))\n(assert " + lf + ")\n",
            take());
  config_.printer.defines_prefix = "def_";
  tracer().trace_assert_formula(fx_);
  EXPECT_EQ("(assert def_" + std::to_string(fx_->get_id()) + ")\n", take());
  config_.printer.defines_prefix.clear();
  tracer().trace_get_model_value(fx_);
  EXPECT_EQ("(get-value (." + std::to_string(fx_->get_id()) + "))\n", take());
}

TEST_F(FormulaTest, OutlabelWritesToTheGivenStreamOrToTheTrace) {
  setup_example(false);
  std::ostringstream os;
  std::ostream& r1 = tracer().outlabel(fx_, &os);
  EXPECT_EQ(&os, &r1);
  EXPECT_EQ("." + std::to_string(fx_->get_id()), os.str());
  EXPECT_EQ("", take());
  std::ostream& r2 = tracer().outlabel(x_, nullptr);
  EXPECT_EQ(&out_, &r2);
  EXPECT_EQ("." + std::to_string(x_->get_id()), take());
  EXPECT_EQ(0, flushes());
  config_.printer.defines_prefix = "q_";
  tracer().outlabel(x_, nullptr);
  EXPECT_EQ("q_" + std::to_string(x_->get_id()), take());
}

TEST_F(FormulaTest, DoPrintFormulaWritesDefinitionsOnlyAndDoesNotFlush) {
  setup_example(true);
  tracer().do_print_formula(fx_);
  std::string const lx = label(x_);
  EXPECT_EQ(def(x_, "U", "x") + def(fx_, "Bool", "(f " + lx + " " + lx + ")"), take());
  EXPECT_EQ(0, flushes());
  tracer().do_print_formula(fx_);
  EXPECT_EQ("", take());
  EXPECT_TRUE(Access::formula_scratch_empty(tracer()));
}

TEST_F(FormulaTest, GlobalDefinitionsSurvivePopAndReset) {
  setup_example(true);
  tracer().trace_push_backtrack_point();
  tracer().trace_assert_formula(fx_);
  tracer().trace_pop_backtrack_point();
  take();
  tracer().trace_assert_formula(fx_);
  EXPECT_EQ("(assert " + label(fx_) + ")\n", take());
  tracer().trace_reset_assertions();
  take();
  tracer().trace_assert_formula(fx_);
  EXPECT_EQ("(assert " + label(fx_) + ")\n", take());
  EXPECT_EQ(2u, Access::defined_terms_size(tracer()));
}

TEST_F(FormulaTest, GlobalDefinitionsOfAQueryAreNotRepeatedByAnAssertion) {
  setup_example(true);
  tracer().trace_get_model_value(x_);
  EXPECT_EQ(def(x_, "U", "x") + "(get-value (" + label(x_) + "))\n", take());
  tracer().trace_check_allsat({fx_});
  EXPECT_EQ(def(fx_, "Bool", "(f " + label(x_) + " " + label(x_) + ")") + "(check-allsat (" +
                label(fx_) + " ))\n",
            take());
  tracer().trace_assert_formula(fx_);
  EXPECT_EQ("(assert " + label(fx_) + ")\n", take());
}

TEST_F(FormulaTest, GlobalNumeralsAndBuiltinOperators) {
  start(true);
  Symbol const* ns = sym("n", int_type());
  Term const* n = cnst(ns);
  Term const* five = num("5");
  Term const* sum = mgr_.make_builtin("+", {n, five});
  Term const* minus3 = num("-3");
  Term const* gt = mgr_.make_builtin(">", {sum, minus3});
  tracer().trace_assert_formula(gt);
  EXPECT_EQ("(declare-fun n () Int)\n" + def(n, "Int", "n") + def(five, "Int", "5") +
                def(sum, "Int", "(+ " + label(n) + " " + label(five) + ")") +
                def(minus3, "Int", "(- 3)") +
                def(gt, "Bool", "(> " + label(sum) + " " + label(minus3) + ")") + "(assert " +
                label(gt) + ")\n",
            take());
  EXPECT_EQ(2, flushes());
}

TEST_F(FormulaTest, ScopedNumeralsAndBuiltinOperators) {
  start(false);
  Term const* n = cnst(sym("n", int_type()));
  Term const* gt = mgr_.make_builtin(">", {mgr_.make_builtin("+", {n, num("5")}), num("-3")});
  tracer().trace_assert_formula(gt);
  EXPECT_EQ("(declare-fun n () Int)\n(assert (> (+ n 5) (- 3)))\n", take());
  EXPECT_EQ(2, flushes());
}

TEST_F(FormulaTest, ScopedSortAndSymbolDeclaredBeforeTheAssertion) {
  start(false);
  DataType const* u = mgr_.make_simple_type("U");
  Symbol const* xs = sym("x", u);
  Symbol const* ys = sym("y", u);
  Term const* e = mgr_.make_equal(cnst(xs), cnst(ys));
  tracer().trace_assert_formula(e);
  EXPECT_EQ("(declare-sort U 0)\n(declare-fun x () U)\n(declare-fun y () U)\n(assert (= x y))\n",
            take());
  EXPECT_EQ(4, flushes());
  expect_marks_clear();
}

TEST_F(FormulaTest, GlobalEqualityOverAUserSort) {
  start(true);
  DataType const* u = mgr_.make_simple_type("U");
  Term const* x = cnst(sym("x", u));
  Term const* y = cnst(sym("y", u));
  Term const* e = mgr_.make_equal(x, y);
  tracer().trace_assert_formula(e);
  EXPECT_EQ("(declare-sort U 0)\n(declare-fun x () U)\n(declare-fun y () U)\n" + def(x, "U", "x") +
                def(y, "U", "y") + def(e, "Bool", "(= " + label(x) + " " + label(y) + ")") +
                "(assert " + label(e) + ")\n",
            take());
  EXPECT_EQ(4, flushes());
}

// ---------------------------------------------------------------------------------------------
// Backtrack points and reset

class BacktrackTest : public TracerFixture {
 protected:
  void setup(bool global_decls) {
    start(global_decls);
    u_ = mgr_.make_simple_type("U");
    a_ = sym("a", u_);
    b_ = sym("b", u_);
    c_ = sym("c", u_);
    p_ = sym("p", fun_type({u_}, bool_type()));
  }
  std::vector<Symbol const*> declared() { return Access::declared_symbols(tracer()); }

  DataType const* u_ = nullptr;
  Symbol const* a_ = nullptr;
  Symbol const* b_ = nullptr;
  Symbol const* c_ = nullptr;
  Symbol const* p_ = nullptr;
};

TEST_F(BacktrackTest, ScopedPopForgetsWhatWasDeclaredSincePush) {
  setup(false);
  tracer().trace_symbol_declaration(a_);
  tracer().trace_push_backtrack_point();
  tracer().trace_symbol_declaration(b_);
  tracer().trace_pop_backtrack_point();
  EXPECT_EQ("(declare-fun a () U)\n(push 1)\n(declare-fun b () U)\n(pop 1)\n", take());
  EXPECT_EQ(4, flushes());
  EXPECT_EQ(std::vector<Symbol const*>{a_}, declared());
  EXPECT_EQ(std::vector<Symbol const*>{a_}, Access::symbol_decl_stack(tracer()));
  EXPECT_TRUE(Access::type_decl_stack(tracer()).empty());
  tracer().trace_type_declaration(u_);
  tracer().trace_symbol_declaration(p_);
  take();
  tracer().trace_assert_formula(app(p_, {cnst(b_)}));
  EXPECT_EQ("(declare-fun b () U)\n(assert (p b))\n", take());
}

TEST_F(BacktrackTest, ScopedPushPopWithoutDeclarationsRemovesOnlyMarkers) {
  setup(false);
  tracer().trace_type_declaration(u_);
  tracer().trace_symbol_declaration(a_);
  tracer().trace_push_backtrack_point();
  EXPECT_EQ((std::vector<Symbol const*>{a_, nullptr}), Access::symbol_decl_stack(tracer()));
  EXPECT_EQ((std::vector<DataType const*>{u_, nullptr}), Access::type_decl_stack(tracer()));
  tracer().trace_pop_backtrack_point();
  EXPECT_EQ(std::vector<Symbol const*>{a_}, Access::symbol_decl_stack(tracer()));
  EXPECT_EQ(std::vector<DataType const*>{u_}, Access::type_decl_stack(tracer()));
  EXPECT_EQ(std::vector<Symbol const*>{a_}, declared());
  EXPECT_EQ(std::vector<DataType const*>{u_}, Access::declared_types(tracer()));
  EXPECT_EQ("(declare-sort U 0)\n(declare-fun a () U)\n(push 1)\n(pop 1)\n", take());
}

TEST_F(BacktrackTest, ScopedOnePopOfTwoForgetsOnlyTheInnerLevel) {
  setup(false);
  tracer().trace_push_backtrack_point();
  tracer().trace_symbol_declaration(a_);
  tracer().trace_push_backtrack_point();
  tracer().trace_symbol_declaration(b_);
  tracer().trace_pop_backtrack_point();
  EXPECT_EQ(std::vector<Symbol const*>{a_}, declared());
  EXPECT_EQ((std::vector<Symbol const*>{nullptr, a_}), Access::symbol_decl_stack(tracer()));
  EXPECT_EQ(std::vector<DataType const*>{nullptr}, Access::type_decl_stack(tracer()));
  tracer().trace_pop_backtrack_point();
  EXPECT_TRUE(declared().empty());
  EXPECT_TRUE(Access::symbol_decl_stack(tracer()).empty());
  EXPECT_TRUE(Access::type_decl_stack(tracer()).empty());
}

TEST_F(BacktrackTest, ScopedPopForgetsSortsFoundByAnAssertion) {
  setup(false);
  Term const* pa = app(p_, {cnst(a_)});
  tracer().trace_push_backtrack_point();
  tracer().trace_assert_formula(pa);
  tracer().trace_pop_backtrack_point();
  EXPECT_EQ(
      "(push 1)\n(declare-sort U 0)\n(declare-fun a () U)\n(declare-fun p (U) Bool)\n"
      "(assert (p a))\n(pop 1)\n",
      take());
  EXPECT_TRUE(Access::declared_types(tracer()).empty());
  EXPECT_TRUE(declared().empty());
  tracer().trace_assert_formula(pa);
  EXPECT_EQ("(declare-sort U 0)\n(declare-fun a () U)\n(declare-fun p (U) Bool)\n(assert (p a))\n",
            take());
  EXPECT_EQ(std::vector<DataType const*>{u_}, Access::type_decl_stack(tracer()));
  EXPECT_EQ((std::vector<Symbol const*>{a_, p_}), Access::symbol_decl_stack(tracer()));
}

TEST_F(BacktrackTest, ScopedResetKeepsLevelZeroOnly) {
  setup(false);
  tracer().trace_symbol_declaration(a_);
  tracer().trace_push_backtrack_point();
  tracer().trace_symbol_declaration(b_);
  tracer().trace_push_backtrack_point();
  tracer().trace_symbol_declaration(c_);
  take();
  flushes();
  tracer().trace_reset_assertions();
  EXPECT_EQ("(reset-assertions)\n", take());
  EXPECT_EQ(1, flushes());
  EXPECT_EQ(std::vector<Symbol const*>{a_}, declared());
  EXPECT_EQ(std::vector<Symbol const*>{a_}, Access::symbol_decl_stack(tracer()));
  EXPECT_TRUE(Access::type_decl_stack(tracer()).empty());
  EXPECT_TRUE(Access::declared_types(tracer()).empty());
  tracer().trace_type_declaration(u_);
  tracer().trace_symbol_declaration(p_);
  take();
  tracer().trace_assert_formula(app(p_, {cnst(c_)}));
  EXPECT_EQ("(declare-fun c () U)\n(assert (p c))\n", take()) << "c is declared again";
}

TEST_F(BacktrackTest, ScopedResetWithoutPushForgetsNothing) {
  setup(false);
  tracer().trace_type_declaration(u_);
  tracer().trace_symbol_declaration(a_);
  tracer().trace_symbol_declaration(b_);
  tracer().trace_reset_assertions();
  EXPECT_EQ((std::vector<Symbol const*>{a_, b_}), declared());
  EXPECT_EQ((std::vector<Symbol const*>{a_, b_}), Access::symbol_decl_stack(tracer()));
  EXPECT_EQ(std::vector<DataType const*>{u_}, Access::type_decl_stack(tracer()));
}

TEST_F(BacktrackTest, ScopedResetForgetsSortsAboveTheFirstMarker) {
  setup(false);
  tracer().trace_push_backtrack_point();
  tracer().trace_type_declaration(u_);
  tracer().trace_reset_assertions();
  EXPECT_TRUE(Access::declared_types(tracer()).empty());
  EXPECT_TRUE(Access::type_decl_stack(tracer()).empty());
  EXPECT_TRUE(Access::symbol_decl_stack(tracer()).empty());
  take();
  tracer().trace_type_declaration(u_);
  EXPECT_EQ("(declare-sort U 0)\n", take());
}

TEST_F(BacktrackTest, GlobalNothingIsForgotten) {
  setup(true);
  tracer().trace_symbol_declaration(a_);
  tracer().trace_push_backtrack_point();
  tracer().trace_symbol_declaration(b_);
  tracer().trace_pop_backtrack_point();
  EXPECT_EQ("(declare-fun a () U)\n(push 1)\n(declare-fun b () U)\n(pop 1)\n", take());
  EXPECT_EQ((std::vector<Symbol const*>{a_, b_}), declared());
  tracer().trace_type_declaration(u_);
  tracer().trace_symbol_declaration(p_);
  take();
  Term const* b = cnst(b_);
  Term const* pb = app(p_, {b});
  tracer().trace_assert_formula(pb);
  EXPECT_EQ(
      def(b, "U", "b") + def(pb, "Bool", "(p " + label(b) + ")") + "(assert " + label(pb) + ")\n",
      take());
  tracer().trace_push_backtrack_point();
  tracer().trace_symbol_declaration(c_);
  tracer().trace_reset_assertions();
  EXPECT_EQ("(push 1)\n(declare-fun c () U)\n(reset-assertions)\n", take());
  EXPECT_EQ((std::vector<Symbol const*>{a_, b_, c_, p_}), declared());
  EXPECT_EQ(std::vector<DataType const*>{u_}, Access::declared_types(tracer()));
}

TEST_F(BacktrackTest, ScopedPopWithoutPushStaysSound) {
  // Outside the caller contract: the tracer writes the command and must not break.
  setup(false);
  tracer().trace_symbol_declaration(a_);
  tracer().trace_pop_backtrack_point();
  EXPECT_EQ("(declare-fun a () U)\n(pop 1)\n", take());
  tracer().trace_push_backtrack_point();
  tracer().trace_symbol_declaration(b_);
  tracer().trace_pop_backtrack_point();
  EXPECT_FALSE(Access::is_declared(tracer(), b_));
}

TEST_P(GroupScopeTest, ResetClearsTheGroupAndTheNextSettingWritesNothing) {
  start(global());
  tracer().trace_set_interpolation_group(4);
  tracer().trace_reset_assertions();
  EXPECT_EQ(-1, Access::itp_group(tracer()));
  EXPECT_EQ("(reset-assertions)\n", take());
  tracer().trace_set_interpolation_group(6);
  EXPECT_EQ("", take());
  Term const* t = mgr_.make_true();
  tracer().trace_reset_assertions();
  take();
  tracer().trace_assert_formula(t);
  std::string const expected = global() ? def(t, "Bool", "true") + "(assert " + label(t) + ")\n"
                                        : std::string("(assert true)\n");
  EXPECT_EQ(expected, take());
}

TEST_P(GroupScopeTest, BacktrackPointsKeepTheGroup) {
  start(global());
  tracer().trace_set_interpolation_group(2);
  tracer().trace_push_backtrack_point();
  EXPECT_EQ(2, Access::itp_group(tracer()));
  tracer().trace_pop_backtrack_point();
  EXPECT_EQ(2, Access::itp_group(tracer()));
  EXPECT_EQ("(push 1)\n(pop 1)\n", take());
}

INSTANTIATE_TEST_SUITE_P(Modes, GroupScopeTest, ::testing::Bool(), mode_name);

// ---------------------------------------------------------------------------------------------
// Queries and interpolation groups

class QueryTest : public TracerFixture {
 protected:
  // Bool constants p and q (p made first), not declared.
  void setup(bool global_decls) {
    start(global_decls);
    ps_ = sym("p", bool_type());
    qs_ = sym("q", bool_type());
    p_ = cnst(ps_);
    q_ = cnst(qs_);
  }
  Symbol const* ps_ = nullptr;
  Symbol const* qs_ = nullptr;
  Term const* p_ = nullptr;
  Term const* q_ = nullptr;
};

struct FixedCommand {
  char const* name;
  void (SmtLib2ApiTracer::*op)();
  char const* text;
};

class FixedCommandTest : public TracerFixture,
                         public ::testing::WithParamInterface<std::tuple<FixedCommand, bool>> {};

TEST_P(FixedCommandTest, WritesItsCommandAndFlushesOnce) {
  FixedCommand const& c = std::get<0>(GetParam());
  start(std::get<1>(GetParam()));
  Term const* p = cnst(sym("p", bool_type()));
  tracer().trace_assert_formula(p);
  tracer().trace_set_interpolation_group(1);
  take();
  flushes();
  (tracer().*c.op)();
  EXPECT_EQ(c.text, take());
  EXPECT_EQ(1, flushes());
  EXPECT_EQ(buf_.text(), buf_.delivered());
}

INSTANTIATE_TEST_SUITE_P(
    Commands, FixedCommandTest,
    ::testing::Combine(
        ::testing::Values(
            FixedCommand{"check", &SmtLib2ApiTracer::trace_check, "(check-sat)\n"},
            FixedCommand{"unsat_core", &SmtLib2ApiTracer::trace_get_unsat_core,
                         "(get-unsat-core)\n"},
            FixedCommand{"unsat_assumptions", &SmtLib2ApiTracer::trace_get_unsat_assumptions,
                         "(get-unsat-assumptions)\n"},
            FixedCommand{"model", &SmtLib2ApiTracer::trace_get_model, "(get-model)\n"},
            FixedCommand{"push", &SmtLib2ApiTracer::trace_push_backtrack_point, "(push 1)\n"},
            FixedCommand{"reset", &SmtLib2ApiTracer::trace_reset_assertions,
                         "(reset-assertions)\n"}),
        ::testing::Bool()),
    [](::testing::TestParamInfo<std::tuple<FixedCommand, bool>> const& info) {
      return std::string(std::get<0>(info.param).name) +
             (std::get<1>(info.param) ? "_Global" : "_Scoped");
    });

TEST_F(QueryTest, ScopedCheckAllsatDeclaresPerTermThenListsEachWithASpace) {
  setup(false);
  Term const* nq = mgr_.make_not(q_);
  tracer().trace_check_allsat({nq, p_});
  EXPECT_EQ("(declare-fun q () Bool)\n(declare-fun p () Bool)\n(check-allsat ((not q) p ))\n",
            take());
  EXPECT_EQ(3, flushes());
}

TEST_F(QueryTest, ScopedCheckAllsatOneTerm) {
  setup(false);
  tracer().trace_check_allsat({p_});
  EXPECT_EQ("(declare-fun p () Bool)\n(check-allsat (p ))\n", take());
  EXPECT_EQ(2, flushes());
}

TEST_F(QueryTest, GlobalCheckAllsatDeclaresAllBeforeDefiningAny) {
  setup(true);
  Term const* nq = mgr_.make_not(q_);
  tracer().trace_check_allsat({nq, p_});
  EXPECT_EQ("(declare-fun q () Bool)\n(declare-fun p () Bool)\n" + def(q_, "Bool", "q") +
                def(nq, "Bool", "(not " + label(q_) + ")") + def(p_, "Bool", "p") +
                "(check-allsat (" + label(nq) + " " + label(p_) + " ))\n",
            take());
  EXPECT_EQ(3, flushes());
  tracer().trace_check_allsat({p_, nq});
  EXPECT_EQ("(check-allsat (" + label(p_) + " " + label(nq) + " ))\n", take());
  EXPECT_EQ(1, flushes());
}

TEST_F(QueryTest, CheckAllsatEmpty) {
  for (bool global_decls : {false, true}) {
    start(global_decls);
    tracer().trace_check_allsat({});
    EXPECT_EQ("(check-allsat ())\n", take());
    EXPECT_EQ(1, flushes());
  }
}

TEST_F(QueryTest, ScopedCheckWithAssumptionsWrapsNegatedLiteralsOnly) {
  setup(false);
  tracer().trace_check_with_assumptions({TheoryLit(q_, false), TheoryLit(p_, true)});
  EXPECT_EQ(
      "(declare-fun q () Bool)\n(declare-fun p () Bool)\n"
      "(check-sat-assuming (q (not p) ))\n",
      take());
  EXPECT_EQ(3, flushes());
  tracer().trace_check_with_assumptions({TheoryLit(p_, false)});
  EXPECT_EQ("(check-sat-assuming (p ))\n", take());
  EXPECT_EQ(1, flushes());
}

TEST_F(QueryTest, GlobalCheckWithAssumptionsUsesLabels) {
  setup(true);
  tracer().trace_check_with_assumptions({TheoryLit(p_, false), TheoryLit(q_, true)});
  EXPECT_EQ("(declare-fun p () Bool)\n(declare-fun q () Bool)\n" + def(p_, "Bool", "p") +
                def(q_, "Bool", "q") + "(check-sat-assuming (" + label(p_) + " (not " + label(q_) +
                ") ))\n",
            take());
  EXPECT_EQ(3, flushes());
}

TEST_F(QueryTest, CheckWithAssumptionsEmpty) {
  for (bool global_decls : {false, true}) {
    start(global_decls);
    tracer().trace_check_with_assumptions({});
    EXPECT_EQ("(check-sat-assuming ())\n", take());
    EXPECT_EQ(1, flushes());
  }
}

TEST_F(QueryTest, ScopedGetValueWritesNoDeclaration) {
  setup(false);
  tracer().trace_get_model_value(mgr_.make_and(p_, q_));
  EXPECT_EQ("(get-value ((and p q)))\n", take());
  EXPECT_EQ(1, flushes());
  EXPECT_TRUE(Access::declared_symbols(tracer()).empty());
}

TEST_F(QueryTest, GlobalGetValueDefinesButDeclaresNothing) {
  setup(true);
  Term const* a = mgr_.make_and(p_, q_);
  tracer().trace_get_model_value(a);
  EXPECT_EQ(def(p_, "Bool", "p") + def(q_, "Bool", "q") +
                def(a, "Bool", "(and " + label(p_) + " " + label(q_) + ")") + "(get-value (" +
                label(a) + "))\n",
            take());
  EXPECT_EQ(1, flushes());
  tracer().trace_get_model_value(a);
  EXPECT_EQ("(get-value (" + label(a) + "))\n", take());
  EXPECT_TRUE(Access::declared_symbols(tracer()).empty());
}

// A term defined by a query without declarations must still have its symbols declared when
// an assertion reaches it, however many assertions over declared subterms came before.
TEST_F(QueryTest, GlobalAssertionDeclaresWhatAQueryDefinedWithoutDeclaring) {
  setup(true);
  Term const* a = mgr_.make_and(p_, q_);
  tracer().trace_assert_formula(p_);
  tracer().trace_get_model_value(a);
  take();
  for (int i = 0; i < 3; ++i) {
    tracer().trace_assert_formula(mgr_.make_or(p_, a));
    std::string const text = take();
    EXPECT_EQ(i == 0, text.find("(declare-fun q () Bool)\n") != std::string::npos) << text;
    EXPECT_EQ(std::string::npos, text.find("(declare-fun p ")) << text;
  }
  expect_marks_clear();
}

// Asserting ever larger formulas over old subterms declares each new symbol once, at its
// first use, in both modes.
TEST_F(QueryTest, GrowingFormulasDeclareOnlyTheirNewSymbols) {
  for (bool global_decls : {false, true}) {
    start(global_decls);
    Term const* acc = mgr_.make_true();
    for (int i = 0; i < 50; ++i) {
      Term const* v = cnst(sym("v" + std::to_string(i) + (global_decls ? "g" : "s"), bool_type()));
      acc = mgr_.make_and(acc, v);
      tracer().trace_assert_formula(acc);
      std::string const text = take();
      EXPECT_EQ(1u, count(text, "(declare-fun ")) << text;
    }
    expect_marks_clear();
  }
}

TEST_F(QueryTest, InterpolationGroupsLeaveATrueAssertionInTheGroupThatIsLeft) {
  for (bool global_decls : {false, true}) {
    start(global_decls);
    tracer().trace_new_interpolation_group();
    EXPECT_EQ("", take());
    tracer().trace_set_interpolation_group(3);
    EXPECT_EQ("", take());
    EXPECT_EQ(3, Access::itp_group(tracer()));
    tracer().trace_new_interpolation_group();
    tracer().trace_set_interpolation_group(5);
    EXPECT_EQ("(assert (! true :interpolation-group .g3))\n", take());
    tracer().trace_set_interpolation_group(5);
    EXPECT_EQ("", take());
    tracer().trace_set_interpolation_group(12);
    EXPECT_EQ("(assert (! true :interpolation-group .g5))\n", take());
    tracer().trace_set_interpolation_group(-4);
    EXPECT_EQ("(assert (! true :interpolation-group .g12))\n", take());
    EXPECT_EQ(-4, Access::itp_group(tracer()));
    tracer().trace_set_interpolation_group(0);
    EXPECT_EQ("", take()) << "a negative group counts as none";
    tracer().trace_set_interpolation_group(1);
    EXPECT_EQ("(assert (! true :interpolation-group .g0))\n", take());
    EXPECT_EQ(0, flushes());
  }
}

TEST_F(QueryTest, SetGroupLineReachesTheDeviceOnlyWithTheNextFlush) {
  start(false);
  tracer().trace_set_interpolation_group(1);
  tracer().trace_set_interpolation_group(2);
  std::string const line = "(assert (! true :interpolation-group .g1))\n";
  EXPECT_EQ(line, take());
  EXPECT_EQ(std::string::npos, buf_.delivered().find(line)) << "delivered without a flush";
  tracer().trace_new_interpolation_group();
  EXPECT_EQ(std::string::npos, buf_.delivered().find(line));
  EXPECT_EQ(0, flushes());
  tracer().trace_check();
  EXPECT_EQ("(check-sat)\n", take());
  EXPECT_EQ(1, flushes());
  EXPECT_NE(std::string::npos, buf_.delivered().find(line + "(check-sat)\n"));
}

struct InterpolantCase {
  std::vector<int> groups;
  char const* text;
};

class InterpolantTest : public TracerFixture,
                        public ::testing::WithParamInterface<InterpolantCase> {};

TEST_P(InterpolantTest, GroupsSeparatedBySingleSpaces) {
  start(false);
  tracer().trace_get_interpolant(GetParam().groups);
  EXPECT_EQ(GetParam().text, take());
  EXPECT_EQ(1, flushes());
}

INSTANTIATE_TEST_SUITE_P(Groups, InterpolantTest,
                         ::testing::Values(InterpolantCase{{0, 2}, "(get-interpolant (.g0 .g2))\n"},
                                           InterpolantCase{{}, "(get-interpolant ())\n"},
                                           InterpolantCase{{7}, "(get-interpolant (.g7))\n"},
                                           InterpolantCase{{12, -1, 0},
                                                           "(get-interpolant (.g12 .g-1 .g0))\n"}));

// ---------------------------------------------------------------------------------------------
// Flushing: exactly one flush per operation, at its end, apart from the listed exceptions.

struct FlushCase {
  std::string name;
  bool global;
  std::function<void(SmtLib2ApiTracer&, TermManager&)> op;
  int flushes;
};

class FlushTest : public TracerFixture, public ::testing::WithParamInterface<FlushCase> {};

TEST_P(FlushTest, CountsFlushesAndDeliversEverything) {
  FlushCase const& c = GetParam();
  start(c.global);
  c.op(tracer(), mgr_);
  EXPECT_EQ(c.flushes, flushes());
  if (c.flushes > 0) {
    EXPECT_EQ(buf_.text(), buf_.delivered()) << "text left behind after the last flush";
  }
}

// Two new declarations (a sort and a constant) on the way.
Term const* fresh_u_equality(TermManager& m) {
  DataType const* u = m.make_simple_type("U");
  Term const* x = m.make_constant(m.make_symbol("x", u));
  return m.make_equal(x, x);
}

std::vector<FlushCase> flush_cases() {
  std::vector<FlushCase> cases;
  for (bool g : {false, true}) {
    std::string const mode = g ? "Global" : "Scoped";
    auto add = [&](std::string const& name, std::function<void(SmtLib2ApiTracer&, TermManager&)> op,
                   int n) {
      cases.push_back({name + "_" + mode, g, std::move(op), n});
    };
    add(
        "AssertWithTwoDeclarations",
        [](SmtLib2ApiTracer& t, TermManager& m) { t.trace_assert_formula(fresh_u_equality(m)); },
        3);
    add(
        "AssertNoDeclarations",
        [](SmtLib2ApiTracer& t, TermManager& m) { t.trace_assert_formula(m.make_true()); }, 1);
    add(
        "TypeDeclaration",
        [](SmtLib2ApiTracer& t, TermManager& m) {
          t.trace_type_declaration(m.make_simple_type("V"));
        },
        1);
    add(
        "RepeatedSymbolDeclaration",
        [](SmtLib2ApiTracer& t, TermManager& m) {
          Symbol const* s = m.make_symbol("s", m.get_bool_type());
          t.trace_symbol_declaration(s);
          t.trace_symbol_declaration(s);
        },
        2);
    add(
        "CheckAllsatWithTwoDeclarations",
        [](SmtLib2ApiTracer& t, TermManager& m) { t.trace_check_allsat({fresh_u_equality(m)}); },
        3);
    add(
        "CheckAssumingWithTwoDeclarations",
        [](SmtLib2ApiTracer& t, TermManager& m) {
          t.trace_check_with_assumptions({TheoryLit(fresh_u_equality(m), true)});
        },
        3);
    add(
        "GetValueOfUndeclared",
        [](SmtLib2ApiTracer& t, TermManager& m) { t.trace_get_model_value(fresh_u_equality(m)); },
        1);
    add(
        "NewInterpolationGroup",
        [](SmtLib2ApiTracer& t, TermManager&) { t.trace_new_interpolation_group(); }, 0);
    add(
        "SetInterpolationGroupTwice",
        [](SmtLib2ApiTracer& t, TermManager&) {
          t.trace_set_interpolation_group(1);
          t.trace_set_interpolation_group(2);
        },
        0);
    add(
        "GetInterpolant",
        [](SmtLib2ApiTracer& t, TermManager&) {
          t.trace_get_interpolant({1, 2});
        },
        1);
    add(
        "Pop",
        [](SmtLib2ApiTracer& t, TermManager&) {
          t.trace_push_backtrack_point();
          t.trace_pop_backtrack_point();
        },
        2);
    add(
        "DoPrintFormula",
        [](SmtLib2ApiTracer& t, TermManager& m) { t.do_print_formula(m.make_true()); }, 0);
  }
  return cases;
}

INSTANTIATE_TEST_SUITE_P(Operations, FlushTest, ::testing::ValuesIn(flush_cases()),
                         [](::testing::TestParamInfo<FlushCase> const& info) {
                           return info.param.name;
                         });

// ---------------------------------------------------------------------------------------------
// Deep terms: a chain of a million levels goes through every traversal without recursion.

class DeepTermTest : public TracerFixture {
 protected:
  static constexpr int kDepth = 1000000;
  // not(not(...(p)...)), kDepth applications of not.
  Term const* chain() {
    p_ = cnst(sym("p", bool_type()));
    Term const* t = p_;
    for (int i = 0; i < kDepth; ++i) {
      t = mgr_.make_not(t);
    }
    return t;
  }
  Term const* p_ = nullptr;
};

TEST_F(DeepTermTest, ScopedAssertionOfAMillionNots) {
  start(false);
  Term const* t = chain();
  tracer().trace_assert_formula(t);
  std::string expected = "(declare-fun p () Bool)\n(assert ";
  expected.reserve(expected.size() + 6 * kDepth + 8);
  for (int i = 0; i < kDepth; ++i) {
    expected += "(not ";
  }
  expected += "p";
  expected.append(kDepth, ')');
  expected += ")\n";
  std::string const text = take();
  EXPECT_TRUE(text == expected) << "text of " << text.size() << " characters differs";
  EXPECT_EQ(2, flushes());
  expect_marks_clear();
  EXPECT_GE(Access::visit_marks(tracer()).size(), 2 * t->get_id() + 2);
}

TEST_F(DeepTermTest, GlobalAssertionOfAMillionNots) {
  start(true);
  Term const* t = chain();
  tracer().trace_assert_formula(t);
  std::string expected = "(declare-fun p () Bool)\n" + def(p_, "Bool", "p");
  expected.reserve(static_cast<std::size_t>(kDepth) * 40);
  // Every not of the chain has an id greater than its argument's; collect them from the top.
  std::vector<Term const*> nots;
  for (Term const* u = t; u != p_; u = u->get_arg(0)) {
    nots.push_back(u);
  }
  ASSERT_EQ(static_cast<std::size_t>(kDepth), nots.size());
  for (auto it = nots.rbegin(); it != nots.rend(); ++it) {
    expected += def(*it, "Bool", "(not " + label((*it)->get_arg(0)) + ")");
  }
  expected += "(assert " + label(t) + ")\n";
  std::string const text = take();
  EXPECT_TRUE(text == expected) << "text of " << text.size() << " characters differs";
  EXPECT_EQ(2, flushes());
  EXPECT_EQ(static_cast<std::size_t>(kDepth) + 1, Access::defined_terms_size(tracer()));
  expect_marks_clear();
  tracer().trace_assert_formula(t);
  EXPECT_EQ("(assert " + label(t) + ")\n", take());
}

TEST_F(DeepTermTest, ScopedQueryOfAMillionNotsPrintsTheWholeTerm) {
  start(false);
  Term const* t = chain();
  tracer().trace_check_with_assumptions({TheoryLit(t, true)});
  std::string expected = "(declare-fun p () Bool)\n(check-sat-assuming ((not ";
  expected.reserve(expected.size() + 6 * kDepth + 16);
  for (int i = 0; i < kDepth; ++i) {
    expected += "(not ";
  }
  expected += "p";
  expected.append(kDepth, ')');
  expected += ") ))\n";
  std::string const text = take();
  EXPECT_TRUE(text == expected) << "text of " << text.size() << " characters differs";
  EXPECT_EQ(2, flushes());
  expect_marks_clear();
}

}  // namespace
}  // namespace tvx
