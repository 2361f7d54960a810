// Tests of SmtLib2ApiTracer: the exact text and the flushes of every traced operation in both
// modes (scoped and global declarations), the header, the declaration record, and replays of
// a whole trace by real solvers.
#include <tvx/tracer/smtlib2_api_tracer.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <ios>
#include <locale>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <tvx/core/configuration.h>
#include <tvx/core/local_time.h>
#include <tvx/core/term_manager.h>
#include "tracer_test_access.h"

namespace tvx {
namespace {

using Access = SmtLib2ApiTracerTestAccess;

// Text written since the last flush (sync) is pending; `delivered` holds what flushes delivered.
struct RecordingBuf : std::stringbuf {
  int sync() override { return ++syncs, delivered = str(), 0; }
  std::string delivered;
  int syncs = 0;
};

// The dump of a configuration whose entries outside the trace family have these value texts.
std::string config_lines(std::vector<std::string> const& values) {
  std::istringstream keys(
      "model_generation unsat_core_generation random_seed timeout verbosity "
      "printer.defines_prefix printer.let_prefix");
  std::string text, key;
  for (std::string const& value : values) {
    text += "(set-option :config \"" + (keys >> key, key) + "=" + value + "\")\n";
  }
  return text + "\n";
}

std::string const kTitle = ";; Tarvex API call trace\n";
std::string const kDeclUxf =
    "(declare-sort U 0)\n(declare-fun x () U)\n(declare-fun f (U U) Bool)\n";

// A term manager with a small vocabulary (symbols made in the order x, y, f, p, q, n, a, b, c, h,
// w), a recording stream and one tracer at a time over them.
class TracerTest : public ::testing::Test {
 public:
  TracerTest() {
    DataType const *b = m.get_bool_type(), *i = m.get_integer_type();
    Term const* x = def("x", m.make_constant(m.make_symbol("x", U)));
    Term const* y = def("y", m.make_constant(m.make_symbol("y", U)));
    Symbol const* f = m.make_symbol("f", m.get_function_type({U, U}, b));
    def("fxx", m.make_term(f, {x, x}));
    Term const* p = def("p", m.make_constant(m.make_symbol("p", b)));
    Term const* q = def("q", m.make_constant(m.make_symbol("q", b)));
    def("nq", m.make_not(q));
    def("pq", m.make_and(p, q));
    Term const* n = def("n", m.make_constant(m.make_symbol("n", i)));
    Term const* sum = def("sum", m.make_builtin("+", {n, def("5", m.make_number("5", i))}));
    def("gt", m.make_builtin(">", {sum, def("-3", m.make_number("-3", i))}));
    for (char const* name : {"a", "b", "c"}) {
      def(name, m.make_constant(m.make_symbol(name, U)));
    }
    def("abcx", m.make_and(m.make_term(f, {t("a"), t("b")}), m.make_term(f, {t("c"), x})));
    Symbol const* h = m.make_symbol("h", m.get_function_type({U, U}, U));
    Term const* chain = x;
    for (int k = 0; k < 30; ++k) {  // 2^30 paths through 31 distinct terms
      chain = m.make_term(h, {chain, chain});
    }
    def("deep", m.make_equal(chain, y));
    def("nxy", m.make_not(def("xy", m.make_equal(x, y))));
    def("xa", m.make_equal(x, t("a")));
    def("ya", m.make_equal(y, t("a")));
    def("fab", m.make_term(f, {t("a"), t("b")}));
    def("w5",
        m.make_equal(def("w", m.make_constant(m.make_symbol("w", i))), m.make_number("5", i)));
  }
  Term const* def(std::string const& name, Term const* t) { return terms[name] = t; }
  Term const* t(std::string const& name) { return terms.at(name); }

  // Runs a script of calls separated by blanks, each a command with its arguments after a
  // colon, separated by commas: terms by name (! negates an assumption), or group numbers.
  // symbol:T declares the symbol of term T; type declares U.
  void run(std::string const& script) {
    std::istringstream calls(script);
    for (std::string call; calls >> call;) {
      std::string const cmd = call.substr(0, call.find(':'));
      std::istringstream list(call.substr(cmd.size() + (cmd.size() < call.size())));
      std::vector<Term const*> ts;
      std::vector<TheoryLit> lits;
      std::vector<int> groups;
      for (std::string arg; std::getline(list, arg, ',');) {
        if (cmd == "group" || cmd == "interpolant") {
          groups.push_back(std::stoi(arg));
        } else {
          ts.push_back(t(arg[0] == '!' ? arg.substr(1) : arg));
          lits.emplace_back(ts.back(), arg[0] == '!');
        }
      }
      SmtLib2ApiTracer& x = *tracer;
      cmd == "check"         ? x.trace_check()
      : cmd == "core"        ? x.trace_get_unsat_core()
      : cmd == "assumptions" ? x.trace_get_unsat_assumptions()
      : cmd == "model"       ? x.trace_get_model()
      : cmd == "push"        ? x.trace_push_backtrack_point()
      : cmd == "pop"         ? x.trace_pop_backtrack_point()
      : cmd == "reset"       ? x.trace_reset_assertions()
      : cmd == "newgroup"    ? x.trace_new_interpolation_group()
      : cmd == "group"       ? x.trace_set_interpolation_group(groups[0])
      : cmd == "interpolant" ? x.trace_get_interpolant(groups)
      : cmd == "type"        ? x.trace_type_declaration(U)
      : cmd == "symbol"      ? x.trace_symbol_declaration(ts[0]->get_symbol())
      : cmd == "decls"       ? x.do_print_new_declarations(ts[0])
      : cmd == "assert"      ? x.trace_assert_formula(ts[0])
      : cmd == "define"      ? x.do_print_formula(ts[0])
      : cmd == "value"       ? x.trace_get_model_value(ts[0])
      : cmd == "allsat"      ? x.trace_check_allsat(ts)
      : cmd == "assume"      ? x.trace_check_with_assumptions(lits)
                             : (ADD_FAILURE() << "unknown call " << call);
    }
  }

  // Builds a tracer; returns its header and keeps its flush count in header_flushes.
  std::string start(bool global, bool dump_config = false) {
    tracer.reset();
    take();
    flushes();
    tracer = std::make_unique<SmtLib2ApiTracer>(&config, &m, out, global, dump_config);
    header_flushes = flushes();
    return take();
  }
  // The text written since the last call.
  std::string take() {
    std::string const all = buf.str();
    return all.substr(std::exchange(mark, all.size()));
  }
  int flushes() { return buf.syncs - std::exchange(sync_mark, buf.syncs); }
  std::string label(Term const* u) const {
    std::string const& prefix = config.printer.defines_prefix;
    return (prefix.empty() ? "." : prefix) + std::to_string(u->get_id());
  }
  // The text with each {name} replaced by the label of that term.
  std::string expand(std::string text) const {
    for (std::size_t at = text.find('{'); at != std::string::npos; at = text.find('{', at)) {
      std::size_t const end = text.find('}', at);
      text.replace(at, end + 1 - at, label(terms.at(text.substr(at + 1, end - at - 1))));
    }
    return text;
  }

  TermManager m;
  Configuration config;
  RecordingBuf buf;
  std::ostream out{&buf};
  std::unique_ptr<SmtLib2ApiTracer> tracer;
  std::size_t mark = 0;
  int sync_mark = 0, header_flushes = 0;
  DataType const* U = m.make_simple_type("U");
  std::map<std::string, Term const*> terms;
};

std::string stamp_line(std::time_t when) {
  std::tm const local = get_local_time(&when);
  char text[255] = "";
  std::strftime(text, 255, "%c", &local);
  return text[0] == 0 ? "" : ";; generated on " + std::string(text) + "\n";
}

TEST_F(TracerTest, HeaderInEveryFlagCombinationAndConfigDump) {
  std::string const dump = config_lines({"false", "false", "0", "0", "0", "", ""});
  for (int flags = 0; flags < 4; ++flags) {
    bool const global = (flags & 1) != 0, dump_config = (flags & 2) != 0;
    std::time_t const before = std::time(nullptr);
    std::size_t const delivered_before = buf.delivered.size();
    std::string const header = start(global, dump_config);
    std::string const rest =
        (global ? "(set-option :global-decls true)\n" : "") + (dump_config ? dump : "");
    EXPECT_TRUE(header == kTitle + stamp_line(before) + rest ||
                header == kTitle + stamp_line(std::time(nullptr)) + rest)
        << header;
    EXPECT_EQ(dump_config ? 2 : 1, header_flushes);
    EXPECT_EQ(header, buf.delivered.substr(delivered_before));
    tracer.reset();  // the destructor writes nothing and does not flush
    EXPECT_EQ("", take());
    EXPECT_EQ(0, flushes());
  }
  // The dump skips the trace family and formats values as text.
  for (std::string const setting :
       {"model_generation=true", "random_seed=4294967295", "verbosity=-7",
        "printer.defines_prefix=a\"b\\c", "debug.api_call_trace=true",
        "debug.api_call_trace_filename=t\".smt2", "debug.api_call_trace_dump_config=true"}) {
    ConfigurationSetter().set(&config, setting.substr(0, setting.find('=')),
                              setting.substr(setting.find('=') + 1));
  }
  for (auto const& [value, text] : std::vector<std::pair<double, std::string>>{
           {0.5, "0.5"}, {2, "2"}, {0.7, "0.7"}, {1e6, "1e+06"}, {1e-10, "1e-10"}}) {
    config.timeout = value;
    std::string const header = start(false, true);
    EXPECT_EQ(config_lines({"true", "false", "4294967295", text, "-7", "a\\\"b\\c", ""}),
              header.substr(header.find('\n', kTitle.size()) + 1));
  }
}

// One script of traced calls (see TracerTest::run), the text it writes ({name}: the label of
// that term) and its flushes.
struct Row {
  char const* name;
  char mode;  // 'S' scoped, 'G' global, 'B' both
  char const* script;
  std::string text;
  int flushes;
};

std::string const kDefsXx = "(define-fun {x} () U x)\n(define-fun {fxx} () Bool (f {x} {x}))\n";
std::string const kGroupLine = "(assert (! true :interpolation-group .g";
std::string const kDeclQP = "(declare-fun q () Bool)\n(declare-fun p () Bool)\n";
std::string const kDefP = "(define-fun {p} () Bool p)\n", kDefQ = "(define-fun {q} () Bool q)\n";

std::vector<Row> const kRows = {
    {"Commands", 'B', "check core assumptions model push pop reset",
     "(check-sat)\n(get-unsat-core)\n(get-unsat-assumptions)\n(get-model)\n(push 1)\n(pop 1)\n"
     "(reset-assertions)\n",
     7},
    {"DeclareTwice", 'B', "type type symbol:fxx symbol:fxx",
     "(declare-sort U 0)\n(declare-fun f (U U) Bool)\n", 4},
    {"ReportedThenAsserted", 'S', "symbol:p assert:p", "(declare-fun p () Bool)\n(assert p)\n", 2},
    {"AssertedThenReported", 'G', "assert:p symbol:p",
     "(declare-fun p () Bool)\n(define-fun {p} () Bool p)\n(assert {p})\n", 3},
    {"AssertTwice", 'S', "assert:fxx assert:fxx", kDeclUxf + "(assert (f x x))\n(assert (f x x))\n",
     5},
    {"AssertTwice", 'G', "assert:fxx assert:fxx",
     kDeclUxf + kDefsXx + "(assert {fxx})\n(assert {fxx})\n", 5},
    {"AssertInGroup3", 'S', "group:3 assert:fxx",
     kDeclUxf + "(assert (! (f x x) :interpolation-group .g3))\n", 4},
    {"AssertInGroup0", 'G', "group:0 assert:fxx",
     kDeclUxf + kDefsXx + "(assert (! {fxx} :interpolation-group .g0))\n", 4},
    {"Builtins", 'S', "assert:gt", "(declare-fun n () Int)\n(assert (> (+ n 5) (- 3)))\n", 2},
    {"AssertAcrossPopAndReset", 'S', "push assert:fxx pop reset assert:fxx",
     "(push 1)\n" + kDeclUxf + "(assert (f x x))\n(pop 1)\n(reset-assertions)\n" + kDeclUxf +
         "(assert (f x x))\n",
     11},
    {"AssertAcrossPopAndReset", 'G', "push assert:fxx pop reset assert:fxx",
     "(push 1)\n" + kDeclUxf + kDefsXx + "(assert {fxx})\n(pop 1)\n(reset-assertions)\n" +
         "(assert {fxx})\n",
     8},
    {"QueryDefinitionsServeAssertions", 'G', "value:x assert:fxx",
     "(define-fun {x} () U x)\n(get-value ({x}))\n" + kDeclUxf +
         "(define-fun {fxx} () Bool (f {x} {x}))\n(assert {fxx})\n",
     5},
    {"DoPrintFormula", 'G', "define:fxx define:fxx", kDefsXx, 0},
    {"CheckAllsat", 'S', "allsat:nq,p", kDeclQP + "(check-allsat ((not q) p ))\n", 3},
    {"CheckAllsat", 'G', "allsat:nq,p",
     kDeclQP + kDefQ + "(define-fun {nq} () Bool (not {q}))\n" + kDefP +
         "(check-allsat ({nq} {p} ))\n",
     3},
    {"CheckAssuming", 'S', "assume:q,!p", kDeclQP + "(check-sat-assuming (q (not p) ))\n", 3},
    {"CheckAssuming", 'G', "assume:q,!p",
     kDeclQP + kDefQ + kDefP + "(check-sat-assuming ({q} (not {p}) ))\n", 3},
    {"EmptyLists", 'B', "allsat: assume:", "(check-allsat ())\n(check-sat-assuming ())\n", 2},
    // 2^30 paths through 31 distinct terms: each shared subterm is searched once.
    {"SharedSubterms", 'B', "decls:deep",
     "(declare-sort U 0)\n(declare-fun x () U)\n(declare-fun y () U)\n(declare-fun h (U U) U)\n",
     4},
    {"LeaveGroup", 'B', "newgroup group:3 newgroup group:5 group:5", kGroupLine + "3))\n", 0},
    {"NegativeGroupIsNone", 'B', "group:-4 group:0 group:1", kGroupLine + "0))\n", 0},
    {"ResetLeavesNoGroup", 'B', "group:3 reset group:6", "(reset-assertions)\n", 1},
    {"BacktrackingKeepsTheGroup", 'B', "group:2 push pop group:3 check",
     "(push 1)\n(pop 1)\n" + kGroupLine + "2))\n(check-sat)\n", 3},
    {"Interpolant", 'B', "interpolant:0,2 interpolant: interpolant:12,-1,0",
     "(get-interpolant (.g0 .g2))\n(get-interpolant ())\n(get-interpolant (.g12 .g-1 .g0))\n", 3},
};

// Flushes deliver everything written before them; text after the last flush stays pending.
TEST_F(TracerTest, OperationsWriteTheirTextAndFlush) {
  for (Row const& row : kRows) {
    for (char mode : row.mode == 'B' ? std::string("SG") : std::string(1, row.mode)) {
      SCOPED_TRACE(std::string(row.name) + mode);
      start(mode == 'G');
      std::size_t const delivered_before = buf.delivered.size();
      run(row.script);
      std::string const text = take();
      EXPECT_EQ(expand(row.text), text);
      EXPECT_EQ(row.flushes, flushes());
      EXPECT_EQ(row.flushes > 0 ? text : "", buf.delivered.substr(delivered_before));
      EXPECT_EQ("", Access::record_fault(*tracer));
    }
  }
}

// The declaration record under backtracking, after a level-0 declaration of U and f: the
// symbol stack (| a marker), then the symbols that a later assertion over a, b, c and x
// declares again.
TEST_F(TracerTest, BacktrackPointsAndResetKeepTheRecordInStep) {
  // {calls, stack, redeclared}: an empty stack is global mode, which keeps no record; a null one
  // follows a pop without push, outside the caller contract, where only the record is checked.
  char const* const scripts[][3] = {{"symbol:a push symbol:b pop", "fa", "xbc"},
                                    {"push symbol:a push symbol:b pop", "f|a", "xbc"},
                                    {"symbol:a symbol:b push symbol:c", "fab|c", "x"},
                                    {"symbol:a push symbol:b push symbol:c reset", "fa", "xbc"},
                                    {"symbol:a symbol:b reset", "fab", "xc"},
                                    {"pop symbol:a pop push symbol:b pop", nullptr, ""},
                                    {"symbol:a push symbol:b pop", "", "xc"}};
  for (auto const& [calls, expected_stack, redeclared_expected] : scripts) {
    bool const global = expected_stack != nullptr && *expected_stack == 0;
    SCOPED_TRACE(calls);
    start(global);
    run(std::string("type symbol:fxx ") + calls);
    ASSERT_EQ("", Access::record_fault(*tracer));
    if (expected_stack == nullptr) {
      continue;
    }
    std::string stack;
    for (Symbol const* s : Access::symbol_stack(*tracer)) {
      stack += s == nullptr ? '|' : s->get_name()[0];
    }
    EXPECT_EQ(expected_stack, stack);
    EXPECT_EQ(global ? 0 : 1 + std::count(stack.begin(), stack.end(), '|'),
              Access::type_stack(*tracer).size());
    take();
    run("assert:abcx");
    std::string const text = take();
    std::string redeclared;
    for (std::size_t at = 0; (at = text.find("(declare-fun ", at)) != std::string::npos;) {
      redeclared += text[at += 13];
    }
    EXPECT_EQ(redeclared_expected, redeclared);
  }
}

// A datatype is declared once, with its whole group, before its first use and after the sorts
// its fields take (uninterpreted sorts, another group); its constructors, selectors and testers
// never are. In scoped mode a pop forgets the group, which the next use declares again.
TEST_F(TracerTest, DatatypesAreDeclaredByGroupBeforeFirstUse) {
  DataType const* i = m.get_integer_type();
  DataType const* color = m.make_datatype_sort("Color");
  m.define_datatypes({color}, {{{"red", {}}, {"blue", {{"shade", U}}}}});
  DataType const* list = m.make_datatype_sort("L");
  DataType const* tree = m.make_datatype_sort("T");
  m.define_datatypes({list, tree}, {{{"nil", {}}, {"cons", {{"hd", tree}, {"tl", list}}}},
                                    {{"leaf", {{"col", color}}}, {"node", {{"kids", list}}}}});
  auto const& lc = m.datatype_info(list)->constructors;
  Term const* l = m.make_constant(m.make_symbol("l", list));
  Term const* k = m.make_constant(m.make_symbol("k", i));
  def("is_cons", m.make_term(lc[1].tester, {l}));
  def("hd_is_l",
      m.make_equal(m.make_term(lc[1].selectors[0], {l}),
                   m.make_term(m.datatype_info(tree)->constructors[1].constructor, {l})));
  def("k5", m.make_equal(k, m.make_number("5", i)));
  std::string const declarations =
      "(declare-sort U 0)\n"
      "(declare-datatypes ((Color 0)) (((red) (blue (shade U)))))\n"
      "(declare-datatypes ((L 0) (T 0)) (((nil) (cons (hd T) (tl L))) ((leaf (col Color)) "
      "(node (kids L)))))\n";
  start(false);
  run("push assert:is_cons");
  EXPECT_EQ(take(),
            "(push 1)\n" + declarations + "(declare-fun l () L)\n(assert ((_ is cons) l))\n");
  run("assert:hd_is_l pop assert:k5 assert:is_cons");
  EXPECT_EQ(take(),
            "(assert (= (hd l) (node l)))\n(pop 1)\n(declare-fun k () Int)\n"
            "(assert (= k 5))\n" +
                declarations + "(declare-fun l () L)\n(assert ((_ is cons) l))\n");
  start(true);
  run("push assert:is_cons pop assert:hd_is_l");
  std::string const text = take();
  EXPECT_EQ(text.find(declarations), text.find("(push 1)\n") + 9) << text;
  EXPECT_EQ(text.find("(declare-datatypes", text.find("(pop 1)")), std::string::npos)
      << "global mode declares once: " << text;
  EXPECT_NE(text.find(expand("(define-fun {is_cons} () Bool ((_ is cons) .")), std::string::npos)
      << text;
}

using QueryTest = TracerTest;

// A term defined by a query without declarations must still have its symbols declared when
// an assertion reaches it, however many assertions over declared subterms came before.
TEST_F(QueryTest, GlobalAssertionDeclaresWhatAQueryDefinedWithoutDeclaring) {
  start(true);
  run("assert:p value:pq");
  take();
  for (int i = 0; i < 3; ++i) {
    tracer->trace_assert_formula(m.make_or(t("p"), t("pq")));
    std::string const text = take();
    EXPECT_EQ(i == 0, text.find("(declare-fun q () Bool)\n") != std::string::npos) << text;
    EXPECT_EQ(std::string::npos, text.find("(declare-fun p ")) << text;
  }
  EXPECT_EQ("", Access::record_fault(*tracer));
}

// Asserting ever larger formulas over old subterms declares each new symbol once, at its
// first use, in both modes.
TEST_F(QueryTest, GrowingFormulasDeclareOnlyTheirNewSymbols) {
  for (bool global : {false, true}) {
    start(global);
    Term const* acc = m.make_true();
    for (int i = 0; i < 50; ++i) {
      std::string const name = "v" + std::to_string(i) + (global ? "g" : "s");
      acc = m.make_and(acc, m.make_constant(m.make_symbol(name, m.get_bool_type())));
      tracer->trace_assert_formula(acc);
      std::string const text = take();
      EXPECT_EQ(0u, text.find("(declare-fun " + name + " () Bool)\n")) << text;
      EXPECT_EQ(text.rfind("(declare-fun "), 0u) << text;
    }
    EXPECT_EQ("", Access::record_fault(*tracer));
  }
}

// Digits grouped one by one, with an apostrophe between two groups.
struct GroupEveryDigit : std::numpunct<char> {
  char do_thousands_sep() const override { return '\''; }
  std::string do_grouping() const override { return "\1"; }
};

// A number as a stream with this locale and base writes it.
std::string formatted(std::uint64_t n, std::locale const& locale, bool hex) {
  std::ostringstream text;
  text.imbue(locale);
  text << (hex ? std::hex : std::dec) << n;
  return text.str();
}

// Labels and group numbers that go to the trace stream take its number format, as the stream
// writes them; define-fun lines and the scoped annotation are composed in string streams of
// their own, in the global locale, whatever the format of the trace stream.
TEST_F(TracerTest, NumbersFollowTheStreamThatComposesThem) {
  std::locale const grouping(std::locale::classic(), new GroupEveryDigit);
  auto shown = [&](std::uint64_t n) { return formatted(n, grouping, true); };
  auto shown_label = [&](char const* name) { return "." + shown(t(name)->get_id()); };
  ASSERT_GT(t("xy")->get_id(), 16u);  // so that hexadecimal and grouped digits differ
  std::string const decl_uxy = "(declare-sort U 0)\n(declare-fun x () U)\n(declare-fun y () U)\n";
  std::string const group_tail =
      kGroupLine + shown(26) + "))\n(get-interpolant (.g" + shown(26) + " .g" + shown(27) + "))\n";
  for (bool global : {false, true}) {
    SCOPED_TRACE(global);
    start(global);
    out.imbue(grouping);
    out << std::hex;
    if (!global) {
      run("group:26 assert:xy group:27 interpolant:26,27");
      EXPECT_EQ(decl_uxy + "(assert (! (= x y) :interpolation-group .g26))\n" + group_tail, take());
    } else {
      run("group:26 assert:xy allsat:nxy,xa assume:ya,!xy group:27");
      out.width(20);  // taken by the first piece of the command
      run("value:x interpolant:26,27");
      EXPECT_EQ(decl_uxy +
                    expand("(define-fun {x} () U x)\n(define-fun {y} () U y)\n"
                           "(define-fun {xy} () Bool (= {x} {y}))\n") +
                    "(assert (! " + shown_label("xy") + " :interpolation-group .g" + shown(26) +
                    "))\n(declare-fun a () U)\n" +
                    expand("(define-fun {nxy} () Bool (not {xy}))\n(define-fun {a} () U a)\n"
                           "(define-fun {xa} () Bool (= {x} {a}))\n") +
                    "(check-allsat (" + shown_label("nxy") + " " + shown_label("xa") + " ))\n" +
                    expand("(define-fun {ya} () Bool (= {y} {a}))\n") + "(check-sat-assuming (" +
                    shown_label("ya") + " (not " + shown_label("xy") + ") ))\n" + kGroupLine +
                    shown(26) + "))\n" + std::string(8, ' ') + "(get-value (" + shown_label("x") +
                    "))\n(get-interpolant (.g" + shown(26) + " .g" + shown(27) + "))\n",
                take());
    }
  }
  // Under a global locale that groups digits, the tracer's own string streams group them too,
  // while the trace stream keeps the classic format it is given back here.
  out.imbue(std::locale::classic());
  out << std::dec;
  struct GlobalLocale {
    std::locale const saved;
    explicit GlobalLocale(std::locale const& l) : saved(std::locale::global(l)) {}
    ~GlobalLocale() { std::locale::global(saved); }
  };
  auto grouped_label = [&](char const* name) {
    return "." + formatted(t(name)->get_id(), grouping, false);
  };
  for (bool global : {false, true}) {
    SCOPED_TRACE(global);
    GlobalLocale const guard(grouping);
    start(global);
    run("group:26 assert:xy");
    EXPECT_EQ(decl_uxy + (global ? "(define-fun .1 () U x)\n(define-fun .2 () U y)\n(define-fun " +
                                       grouped_label("xy") + " () Bool (= .1 .2))\n(assert (! " +
                                       label(t("xy")) + " :interpolation-group .g26))\n"
                                 : "(assert (! (= x y) :interpolation-group .g2'6))\n"),
              take());
    tracer.reset();
  }
}

// An override of trace_symbol_declaration that runs the public search on another term while
// the tracer's own declaration pass is under way.
class SearchingTracer : public SmtLib2ApiTracer {
 public:
  using SmtLib2ApiTracer::SmtLib2ApiTracer;
  void trace_symbol_declaration(Symbol const* sym) override {
    std::set<Symbol const*, TermPrinter::sym_ty_lt> symbols;
    std::set<DataType const*, TermPrinter::sym_ty_lt> types;
    find_symbols_and_types_to_declare(other, symbols, types);
    found.emplace_back();
    for (Symbol const* s : symbols) {
      found.back() += s->get_name() + " ";
    }
    SmtLib2ApiTracer::trace_symbol_declaration(sym);
  }
  Term const* other = nullptr;
  std::vector<std::string> found;
};

TEST_F(TracerTest, SearchFromADeclarationHookLeavesThePassAlone) {
  auto sum = [&](char const* prefix) {
    std::vector<Term const*> c;
    for (int i = 0; i < 4; ++i) {
      std::string const name = prefix + std::to_string(i);
      c.push_back(m.make_constant(m.make_symbol(name, m.get_integer_type())));
    }
    return m.make_builtin("<=",
                          {m.make_builtin("+", {c[0], c[1]}), m.make_builtin("+", {c[2], c[3]})});
  };
  Term const* xs = sum("x");
  Term const* zs = sum("z");
  for (bool global : {false, true}) {
    SCOPED_TRACE(global);
    start(global);
    SearchingTracer hooked(&config, &m, out, global, false);
    hooked.other = zs;
    take();
    hooked.trace_assert_formula(xs);
    std::string const text = take();
    std::string declared;
    for (std::size_t at = 0; (at = text.find("(declare-fun ", at)) != std::string::npos;) {
      declared += text.substr(at += 13, 2) + " ";
    }
    EXPECT_EQ("x0 x1 x2 x3 ", declared) << text;
    EXPECT_EQ(std::vector<std::string>(4, "z0 z1 z2 z3 "), hooked.found);
    EXPECT_EQ("", Access::record_fault(hooked));
  }
}

// The definition lines of one call stand in ascending id order, each term once, whether the
// new terms' ids are packed together or spread out among other terms.
TEST_F(TracerTest, DefinitionsOfOneCallInAscendingIdOrder) {
  for (int spread : {0, 1, 3}) {
    SCOPED_TRACE(spread);
    std::vector<Term const*> leaves;
    for (int i = 0; i < 60; ++i) {
      std::string const name = "d" + std::to_string(spread) + "_" + std::to_string(i);
      leaves.push_back(m.make_constant(m.make_symbol(name, m.get_bool_type())));
      for (int k = 0; k < spread; ++k) {  // terms of no interest between the leaves
        m.make_not(m.make_not(leaves.back()));
      }
    }
    Term const* conj = leaves.back();
    for (std::size_t i = leaves.size() - 1; i-- > 0;) {
      conj = m.make_or(leaves[i], conj);
    }
    start(true);
    tracer->trace_assert_formula(conj);
    std::string const text = take();
    std::vector<std::uint64_t> ids;
    for (std::size_t at = 0; (at = text.find("(define-fun .", at)) != std::string::npos;) {
      ids.push_back(std::stoull(text.substr(at += 13)));
    }
    EXPECT_EQ(2 * leaves.size() - 1, ids.size());
    EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end())) << text;
    EXPECT_EQ(ids.end(), std::adjacent_find(ids.begin(), ids.end())) << text;
    EXPECT_EQ(conj->get_id(), ids.back());
  }
}

// not(not(...(p)...)) a million levels deep through assert and get-value, each on a fresh
// tracer, in both modes.
TEST_F(TracerTest, MillionDeepChain) {
  constexpr int kDepth = 1000000;
  Term const* chain = t("p");
  std::string nots, defs = expand(kDefP);
  for (int i = 0; i < kDepth; ++i) {
    Term const* next = m.make_not(chain);
    defs += "(define-fun " + label(next) + " () Bool (not " + label(chain) + "))\n";
    chain = next;
    nots += "(not ";
  }
  for (bool global : {false, true}) {
    std::string const d = global ? defs : "";
    std::string const term = global ? label(chain) : nots + "p" + std::string(kDepth, ')');
    start(global);
    tracer->trace_assert_formula(chain);
    EXPECT_TRUE(take() == "(declare-fun p () Bool)\n" + d + "(assert " + term + ")\n") << global;
    EXPECT_EQ(2, flushes());
    start(global);
    tracer->trace_get_model_value(chain);
    EXPECT_TRUE(take() == d + "(get-value (" + term + "))\n") << global;
    EXPECT_EQ(1, flushes());
    EXPECT_EQ("", Access::record_fault(*tracer));
  }
}

// A whole session replayed by each real solver, in both modes: declarations reported and found
// in terms, a symbol needed again after its scope was popped, shared subterms, assumptions,
// model queries and a reset. The solver must accept it and agree on every check. cvc5 reserves
// symbols that begin with "." and names the option :global-declarations.
TEST_F(TracerTest, SolversAcceptTheTraceAndAgree) {
  if (std::system("command -v z3 >/dev/null && command -v cvc5 >/dev/null") != 0) {
    GTEST_SKIP() << "needs z3 and cvc5";
  }
  for (int run_number = 0; run_number < 4; ++run_number) {
    bool const cvc5 = run_number >= 2, global = run_number % 2 == 1;
    std::string const command =
        cvc5 ? "cvc5 --lang=smt2 --incremental --produce-models" : "z3 -smt2";
    SCOPED_TRACE(command + (global ? " global" : " scoped"));
    config.printer.defines_prefix = cvc5 && global ? "d_" : "";
    std::string text = start(global);
    run("type symbol:x assert:nxy assert:deep check push assert:xa assert:ya check pop push "
        "assert:fab check value:fab pop assume:p,!xy assume:xy assert:gt check model value:sum "
        "reset assert:w5 check value:w");
    text += take();
    if (global && cvc5) {
      text.replace(text.find(":global-decls"), 13, ":global-declarations");
    }
    std::string const path = ::testing::TempDir() + "tvx_replay.smt2";
    std::ofstream(path) << text;
    // The answers and error lines, joined by commas.
    std::system((command + " " + path +
                 " 2>&1 | grep -E '^(sat|unsat|unknown)$|^\\(error' | paste -sd, >" + path + ".out")
                    .c_str());
    std::string answers;
    std::getline(std::ifstream(path + ".out"), answers);
    EXPECT_EQ("sat,unsat,sat,sat,unsat,sat,sat", answers) << "trace:\n" << text;
  }
}

}  // namespace
}  // namespace tvx
