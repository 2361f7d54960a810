// Tests of SmtLib2ApiTracer: the exact text and the flushes of every traced operation in both
// modes (scoped and global declarations), the header, the declaration record, and replays of
// a whole trace by real solvers.
#include "tracer/smtlib2_api_tracer.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <map>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "core/configuration.h"
#include "core/local_time.h"
#include "core/term_manager.h"
#include "tracer_test_access.h"

namespace tvx {
namespace {

using Access = SmtLib2ApiTracerTestAccess;

// Text written since the last flush (sync) is pending; `delivered` holds what flushes delivered.
struct RecordingBuf : std::stringbuf {
  int sync() override { return ++syncs, delivered = str(), 0; }
  std::string text() const { return str(); }
  std::string delivered;
  int syncs = 0;
};

// The dump of a configuration whose entries outside the trace family have these value texts.
std::string config_lines(std::vector<std::string> const& values) {
  static char const* const keys[] = {
      "model_generation", "unsat_core_generation",  "interpolation",     "random_seed", "timeout",
      "verbosity",        "printer.defines_prefix", "printer.let_prefix"};
  std::string text;
  for (std::size_t i = 0; i < values.size(); ++i) {
    text += "(set-option :config \"" + std::string(keys[i]) + "=" + values[i] + "\")\n";
  }
  return text + "\n";
}

std::string const kTitle = ";; Tarvex API call trace\n";
std::string const kGlobalOption = "(set-option :global-decls true)\n";
std::string const kDeclUxf =
    "(declare-sort U 0)\n(declare-fun x () U)\n(declare-fun f (U U) Bool)\n";
std::string const kDeclUxyf =
    "(declare-sort U 0)\n(declare-fun x () U)\n(declare-fun y () U)\n(declare-fun f (U U) Bool)\n";

// A term manager with a small vocabulary (symbols made in the order x, y, f, p, q, n, a, b, c, h,
// w), a recording stream and one tracer at a time over them.
class TracerTest : public ::testing::Test {
 public:
  TracerTest() {
    U = m.make_simple_type("U");
    DataType const* b = m.get_bool_type();
    DataType const* i = m.get_integer_type();
    Term const* x = def("x", m.make_constant(m.make_symbol("x", U)));
    Term const* y = def("y", m.make_constant(m.make_symbol("y", U)));
    f = m.make_symbol("f", m.get_function_type({U, U}, b));
    def("fxy", m.make_term(f, {x, y}));
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
    h = m.make_symbol("h", m.get_function_type({U, U}, U));
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
  SmtLib2ApiTracer& tr() { return *tracer; }

  // Runs a script of calls separated by blanks, each a command with its arguments after a
  // colon, separated by commas: terms by name (! negates an assumption), or group numbers.
  // symbol:T declares the symbol of term T; type declares U; prefix:P sets the label prefix.
  void run(std::string const& script) {
    std::istringstream calls(script);
    for (std::string call; calls >> call;) {
      std::size_t const colon = std::min(call.find(':'), call.size());
      std::string const cmd = call.substr(0, colon);
      std::istringstream list(call.substr(std::min(colon + 1, call.size())));
      std::vector<Term const*> ts;
      std::vector<TheoryLit> lits;
      std::vector<int> groups;
      for (std::string arg; cmd != "prefix" && std::getline(list, arg, ',');) {
        if (cmd == "group" || cmd == "interpolant") {
          groups.push_back(std::stoi(arg));
        } else {
          ts.push_back(t(arg[0] == '!' ? arg.substr(1) : arg));
          lits.emplace_back(ts.back(), arg[0] == '!');
        }
      }
      SmtLib2ApiTracer& x = tr();
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
      : cmd == "prefix"      ? void(config.printer.defines_prefix = call.substr(colon + 1))
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
    std::string const all = buf.text();
    std::string const result = all.substr(mark);
    mark = all.size();
    return result;
  }
  int flushes() {
    int const result = buf.syncs - sync_mark;
    sync_mark = buf.syncs;
    return result;
  }
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
  int sync_mark = 0;
  int header_flushes = 0;
  DataType const* U = nullptr;
  Symbol const* f = nullptr;
  Symbol const* h = nullptr;
  std::map<std::string, Term const*> terms;
};

std::string stamp_line(std::time_t when) {
  std::tm const local = get_local_time(&when);
  char text[255];
  text[0] = 0;
  std::strftime(text, 255, "%c", &local);
  return text[0] == 0 ? "" : ";; generated on " + std::string(text) + "\n";
}

TEST_F(TracerTest, HeaderInEveryFlagCombination) {
  std::string const dump = config_lines({"false", "false", "false", "0", "0", "0", "", ""});
  for (int flags = 0; flags < 4; ++flags) {
    bool const global = (flags & 1) != 0;
    bool const dump_config = (flags & 2) != 0;
    std::time_t const before = std::time(nullptr);
    std::size_t const delivered_before = buf.delivered.size();
    std::string const header = start(global, dump_config);
    std::string const rest = (global ? kGlobalOption : "") + (dump_config ? dump : "");
    EXPECT_TRUE(header == kTitle + stamp_line(before) + rest ||
                header == kTitle + stamp_line(std::time(nullptr)) + rest)
        << header;
    EXPECT_EQ(dump_config ? 2 : 1, header_flushes);
    EXPECT_EQ(header, buf.delivered.substr(delivered_before));
    tracer.reset();  // the destructor writes nothing and does not flush
    EXPECT_EQ("", take());
    EXPECT_EQ(0, flushes());
  }
}

TEST_F(TracerTest, ConfigDumpSkipsTheTraceFamilyAndFormatsValues) {
  for (char const* setting :
       {"model_generation=true", "random_seed=4294967295", "verbosity=-7",
        "printer.defines_prefix=a\"b\\c", "debug.api_call_trace=2",
        "debug.api_call_trace_filename=t\".smt2", "debug.api_call_trace_dump_config=true"}) {
    std::string const text = setting;
    ConfigurationSetter().set(&config, text.substr(0, text.find('=')),
                              text.substr(text.find('=') + 1));
  }
  for (auto const& [value, text] : std::vector<std::pair<double, std::string>>{
           {0.5, "0.5"}, {2, "2"}, {0.7, "0.7"}, {1e6, "1e+06"}, {1e-10, "1e-10"}}) {
    config.timeout = value;
    std::string const header = start(false, true);
    EXPECT_EQ(config_lines({"true", "false", "false", "4294967295", text, "-7", "a\\\"b\\c", ""}),
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

std::vector<Row> const kRows = {
    {"Commands", 'B', "check core assumptions model push pop reset",
     "(check-sat)\n(get-unsat-core)\n(get-unsat-assumptions)\n(get-model)\n(push 1)\n(pop 1)\n"
     "(reset-assertions)\n",
     7},
    {"TypeTwice", 'B', "type type", "(declare-sort U 0)\n", 2},
    {"SymbolTwice", 'B', "symbol:fxx symbol:fxx", "(declare-fun f (U U) Bool)\n", 2},
    {"ReportedThenAsserted", 'S', "symbol:p assert:p", "(declare-fun p () Bool)\n(assert p)\n", 2},
    {"AssertedThenReported", 'G', "assert:p symbol:p",
     "(declare-fun p () Bool)\n(define-fun {p} () Bool p)\n(assert {p})\n", 3},
    {"DeclarationPass", 'B', "decls:fxy", kDeclUxyf, 4},
    {"Assert", 'S', "assert:fxy", kDeclUxyf + "(assert (f x y))\n", 5},
    {"Assert", 'G', "assert:fxy",
     kDeclUxyf + "(define-fun {x} () U x)\n(define-fun {y} () U y)\n" +
         "(define-fun {fxy} () Bool (f {x} {y}))\n(assert {fxy})\n",
     5},
    {"AssertTwice", 'S', "assert:fxx assert:fxx", kDeclUxf + "(assert (f x x))\n(assert (f x x))\n",
     5},
    {"AssertTwice", 'G', "assert:fxx assert:fxx",
     kDeclUxf + kDefsXx + "(assert {fxx})\n(assert {fxx})\n", 5},
    {"AssertInGroup3", 'S', "group:3 assert:fxx",
     kDeclUxf + "(assert (! (f x x) :interpolation-group .g3))\n", 4},
    {"AssertInGroup3", 'G', "group:3 assert:fxx",
     kDeclUxf + kDefsXx + "(assert (! {fxx} :interpolation-group .g3))\n", 4},
    {"AssertInGroup0WithPrefix", 'G', "prefix:d_ group:0 assert:fxx",
     kDeclUxf + kDefsXx + "(assert (! {fxx} :interpolation-group .g0))\n", 4},
    {"AssertInNegativeGroup", 'S', "group:-5 assert:fxx", kDeclUxf + "(assert (f x x))\n", 4},
    {"Builtins", 'S', "assert:gt", "(declare-fun n () Int)\n(assert (> (+ n 5) (- 3)))\n", 2},
    {"Builtins", 'G', "assert:gt",
     "(declare-fun n () Int)\n(define-fun {n} () Int n)\n(define-fun {5} () Int 5)\n"
     "(define-fun {sum} () Int (+ {n} {5}))\n(define-fun {-3} () Int (- 3))\n"
     "(define-fun {gt} () Bool (> {sum} {-3}))\n(assert {gt})\n",
     2},
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
    {"CheckAllsat", 'S', "allsat:nq,p",
     "(declare-fun q () Bool)\n(declare-fun p () Bool)\n(check-allsat ((not q) p ))\n", 3},
    {"CheckAllsat", 'G', "allsat:nq,p",
     "(declare-fun q () Bool)\n(declare-fun p () Bool)\n(define-fun {q} () Bool q)\n"
     "(define-fun {nq} () Bool (not {q}))\n(define-fun {p} () Bool p)\n"
     "(check-allsat ({nq} {p} ))\n",
     3},
    {"CheckAllsatEmpty", 'B', "allsat:", "(check-allsat ())\n", 1},
    {"CheckAssuming", 'S', "assume:q,!p",
     "(declare-fun q () Bool)\n(declare-fun p () Bool)\n(check-sat-assuming (q (not p) ))\n", 3},
    {"CheckAssuming", 'G', "assume:q,!p",
     "(declare-fun q () Bool)\n(declare-fun p () Bool)\n(define-fun {q} () Bool q)\n"
     "(define-fun {p} () Bool p)\n(check-sat-assuming ({q} (not {p}) ))\n",
     3},
    {"CheckAssumingEmpty", 'B', "assume:", "(check-sat-assuming ())\n", 1},
    {"GetValue", 'S', "value:pq", "(get-value ((and p q)))\n", 1},
    {"GetValue", 'G', "value:pq",
     "(define-fun {p} () Bool p)\n(define-fun {q} () Bool q)\n"
     "(define-fun {pq} () Bool (and {p} {q}))\n(get-value ({pq}))\n",
     1},
    {"NewGroup", 'B', "newgroup", "", 0},
    {"LeaveGroup", 'B', "newgroup group:3 newgroup group:5 group:5", kGroupLine + "3))\n", 0},
    {"NegativeGroupIsNone", 'B', "group:-4 group:0 group:1", kGroupLine + "0))\n", 0},
    {"ResetLeavesNoGroup", 'B', "group:3 reset group:6", "(reset-assertions)\n", 1},
    {"BacktrackingKeepsTheGroup", 'B', "group:2 push pop group:3 check",
     "(push 1)\n(pop 1)\n" + kGroupLine + "2))\n(check-sat)\n", 3},
    {"Interpolant", 'B', "interpolant:0,2 interpolant: interpolant:12,-1,0",
     "(get-interpolant (.g0 .g2))\n(get-interpolant ())\n(get-interpolant (.g12 .g-1 .g0))\n", 3},
};

class OperationTest : public TracerTest, public ::testing::WithParamInterface<Row> {};

// Flushes deliver everything written before them; text after the last flush stays pending.
TEST_P(OperationTest, WritesItsTextAndFlushes) {
  Row const& row = GetParam();
  for (bool global : {false, true}) {
    if (row.mode != 'B' && (row.mode == 'G') != global) {
      continue;
    }
    start(global);
    std::size_t const delivered_before = buf.delivered.size();
    run(row.script);
    std::string const text = take();
    EXPECT_EQ(expand(row.text), text) << (global ? "global" : "scoped");
    EXPECT_EQ(row.flushes, flushes());
    EXPECT_EQ(row.flushes > 0 ? text : "", buf.delivered.substr(delivered_before));
    EXPECT_EQ("", Access::record_fault(tr()));
    config.printer.defines_prefix.clear();
  }
}

INSTANTIATE_TEST_SUITE_P(Table, OperationTest, ::testing::ValuesIn(kRows),
                         [](::testing::TestParamInfo<Row> const& info) {
                           return std::string(info.param.name) + info.param.mode;
                         });

// The declaration record under backtracking, after a level-0 declaration of U and f: the
// symbol stack (| a marker), then the symbols that a later assertion over a, b, c and x
// declares again.
TEST_F(TracerTest, BacktrackPointsAndResetKeepTheRecordInStep) {
  struct Script {
    bool global;
    char const* calls;
    char const* stack;  // null: a pop without push, outside the caller contract
    char const* redeclared;
  };
  Script const scripts[] = {{false, "symbol:a push symbol:b pop", "fa", "xbc"},
                            {false, "symbol:a push pop", "fa", "xbc"},
                            {false, "push symbol:a push symbol:b pop", "f|a", "xbc"},
                            {false, "symbol:a symbol:b push symbol:c", "fab|c", "x"},
                            {false, "symbol:a push symbol:b push symbol:c reset", "fa", "xbc"},
                            {false, "symbol:a symbol:b reset", "fab", "xc"},
                            {false, "pop symbol:a pop push symbol:b pop", nullptr, ""},
                            {true, "symbol:a push symbol:b pop", "", "xc"},
                            {true, "symbol:a symbol:b push symbol:c reset", "", "x"}};
  for (Script const& sc : scripts) {
    SCOPED_TRACE(sc.calls);
    start(sc.global);
    run(std::string("type symbol:fxx ") + sc.calls);
    ASSERT_EQ("", Access::record_fault(tr()));
    if (sc.stack == nullptr) {
      continue;
    }
    std::string stack;
    for (Symbol const* s : Access::symbol_stack(tr())) {
      stack += s == nullptr ? '|' : s->get_name()[0];
    }
    EXPECT_EQ(sc.stack, stack);
    std::size_t const markers = std::count(stack.begin(), stack.end(), '|');
    EXPECT_EQ(sc.global ? 0 : 1 + markers, Access::type_stack(tr()).size());
    take();
    run("assert:abcx");
    std::string redeclared;
    std::string const text = take();
    for (std::size_t at = text.find("(declare-fun "); at != std::string::npos;
         at = text.find("(declare-fun ", at + 1)) {
      redeclared += text[at + 13];
    }
    EXPECT_EQ(sc.redeclared, redeclared);
  }
}

TEST_F(TracerTest, SharedSubtermsAreSearchedOnceAndTheMarksCleared) {
  start(false);
  Term const* u = m.make_constant(m.make_symbol("k", U));
  for (int i = 0; i < 200; ++i) {  // 2^200 paths, 201 distinct terms
    u = m.make_term(h, {u, u});
  }
  tr().do_print_new_declarations(u);
  EXPECT_EQ("(declare-sort U 0)\n(declare-fun h (U U) U)\n(declare-fun k () U)\n", take());
  EXPECT_GE(Access::marks_size(tr()), 2 * u->get_id() + 2);
  EXPECT_EQ("", Access::record_fault(tr()));
}

using QueryTest = TracerTest;

// A term defined by a query without declarations must still have its symbols declared when
// an assertion reaches it, however many assertions over declared subterms came before.
TEST_F(QueryTest, GlobalAssertionDeclaresWhatAQueryDefinedWithoutDeclaring) {
  start(true);
  tr().trace_assert_formula(t("p"));
  tr().trace_get_model_value(t("pq"));
  take();
  for (int i = 0; i < 3; ++i) {
    tr().trace_assert_formula(m.make_or(t("p"), t("pq")));
    std::string const text = take();
    EXPECT_EQ(i == 0, text.find("(declare-fun q () Bool)\n") != std::string::npos) << text;
    EXPECT_EQ(std::string::npos, text.find("(declare-fun p ")) << text;
  }
  EXPECT_EQ("", Access::record_fault(tr()));
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
      tr().trace_assert_formula(acc);
      std::string const text = take();
      EXPECT_EQ(0u, text.find("(declare-fun " + name + " () Bool)\n")) << text;
      EXPECT_EQ(text.rfind("(declare-fun "), 0u) << text;
    }
    EXPECT_EQ("", Access::record_fault(tr()));
  }
}

// not(not(...(p)...)) a million levels deep through assert, check-allsat and get-value, each
// on a fresh tracer, in both modes.
TEST_F(TracerTest, MillionDeepChain) {
  constexpr int kDepth = 1000000;
  Term const* p = t("p");
  Term const* chain = p;
  for (int i = 0; i < kDepth; ++i) {
    chain = m.make_not(chain);
  }
  std::string nots;
  for (int i = 0; i < kDepth; ++i) {
    nots += "(not ";
  }
  std::string const full = nots + "p" + std::string(kDepth, ')');
  for (bool global : {false, true}) {
    std::string defs = expand("(define-fun {p} () Bool p)\n");
    std::vector<Term const*> path;
    for (Term const* u = chain; global && u != p; u = u->get_arg(0)) {
      path.push_back(u);
    }
    for (auto it = path.rbegin(); it != path.rend(); ++it) {
      defs += "(define-fun " + label(*it) + " () Bool (not " + label((*it)->get_arg(0)) + "))\n";
    }
    std::string const term = global ? label(chain) : full;
    std::string const decl = "(declare-fun p () Bool)\n" + (global ? defs : "");
    std::string const expected[] = {decl + "(assert " + term + ")\n",
                                    decl + "(check-allsat (" + term + " ))\n",
                                    (global ? defs : "") + "(get-value (" + term + "))\n"};
    for (int op = 0; op < 3; ++op) {
      start(global);
      op == 0   ? tr().trace_assert_formula(chain)
      : op == 1 ? tr().trace_check_allsat({chain})
                : tr().trace_get_model_value(chain);
      EXPECT_TRUE(take() == expected[op]) << (global ? "global " : "scoped ") << op;
      EXPECT_EQ(op == 2 ? 1 : 2, flushes());
      EXPECT_EQ("", Access::record_fault(tr()));
    }
  }
}

struct Replay {
  char const* name;
  char const* command;
  bool global;
  char const* prefix;
  char const* option;  // how the solver spells the global-declarations option
};

class ReplayTest : public TracerTest, public ::testing::WithParamInterface<Replay> {};

// A whole session replayed by a real solver: declarations reported and found in terms, a
// symbol needed again after its scope was popped, shared subterms, assumptions, model
// queries and a reset. The solver must accept it and agree on every check.
TEST_P(ReplayTest, SolverAcceptsTheTraceAndAgrees) {
  Replay const& r = GetParam();
  std::string const command = "/usr/bin/" + std::string(r.command);
  if (access(command.substr(0, command.find(' ')).c_str(), X_OK) != 0) {
    GTEST_SKIP() << r.command << ": not installed";
  }
  config.printer.defines_prefix = r.prefix;
  std::string text = start(r.global);
  run("type symbol:x assert:nxy assert:deep check push assert:xa assert:ya check pop push "
      "assert:fab check value:fab pop assume:p,!xy assume:xy assert:gt check model value:sum "
      "reset assert:w5 check value:w");
  text += take();
  if (r.global) {
    text.replace(text.find(":global-decls"), 13, r.option);
  }
  std::string const path = ::testing::TempDir() + "tvx_replay_" + r.name + ".smt2";
  std::ofstream(path) << text;
  std::string output;
  if (FILE* pipe = popen((command + " " + path + " 2>&1").c_str(), "r")) {
    char chunk[4096];
    for (std::size_t got; (got = std::fread(chunk, 1, sizeof chunk, pipe)) > 0;) {
      output.append(chunk, got);
    }
    pclose(pipe);
  }
  std::vector<std::string> answers;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    if (line == "sat" || line == "unsat" || line == "unknown") {
      answers.push_back(line);
    }
  }
  EXPECT_EQ(std::string::npos, output.find("(error")) << output << "\ntrace:\n" << text;
  EXPECT_EQ((std::vector<std::string>{"sat", "unsat", "sat", "sat", "unsat", "sat", "sat"}),
            answers);
}

// cvc5 reserves symbols that begin with "." and names the option :global-declarations.
INSTANTIATE_TEST_SUITE_P(
    Solvers, ReplayTest,
    ::testing::Values(Replay{"Z3Scoped", "z3 -smt2", false, "", ""},
                      Replay{"Z3Global", "z3 -smt2", true, "", ":global-decls"},
                      Replay{"Cvc5Scoped", "cvc5 --lang=smt2 --incremental --produce-models", false,
                             "", ""},
                      Replay{"Cvc5Global", "cvc5 --lang=smt2 --incremental --produce-models", true,
                             "d_", ":global-declarations"}),
    [](::testing::TestParamInfo<Replay> const& info) { return info.param.name; });

}  // namespace
}  // namespace tvx
