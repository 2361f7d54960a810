// Allocation failure at every allocation point of each traced operation: the k-th allocation
// of the operation fails, for k = 1, 2, ... until the operation completes. After each failure
// the exception is std::bad_alloc, nothing leaks, the visit marks are clear, the declaration
// record matches the text written, and the same tracer goes on to trace correctly: retried,
// the operation completes the text a fault-free run writes, and the calls after it write
// exactly what they write in the fault-free run.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <functional>
#include <map>
#include <new>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "failing_allocator.h"
#include "scenarios.h"
#include "trace_session.h"
#include "tracer/tracer_test_access.h"

namespace tvx {
namespace test {
namespace {

using Access = SmtLib2ApiTracerTestAccess;

// The text up to and including its last newline.
std::string complete_lines(std::string const& text) {
  std::size_t const end = text.rfind('\n');
  return end == std::string::npos ? std::string() : text.substr(0, end + 1);
}

// The last lines of a text, for messages.
std::string tail(std::string const& text) {
  return text.size() <= 160 ? text : "..." + text.substr(text.size() - 160);
}

// True when `text` holds a complete line that begins with `start`.
bool has_line(std::string const& text, std::string const& start) {
  std::size_t const at = text.find("\n" + start);
  return at != std::string::npos && text.find('\n', at + 1) != std::string::npos;
}

// Findings of one scenario, by kind, each with its count and first example.
class Findings {
 public:
  void add(std::string const& kind, std::string const& example) {
    long const before = live_allocations();
    auto& entry = found_[kind];
    if (entry.first++ == 0) {
      entry.second = example;
    }
    own_blocks_ += live_allocations() - before;
  }
  // Blocks that the findings themselves hold: not a leak of the code under test.
  long own_blocks() const { return own_blocks_; }
  void report() const {
    for (auto const& [kind, entry] : found_) {
      ADD_FAILURE() << kind << " (" << entry.first << " failure points); first: " << entry.second;
    }
  }

 private:
  std::map<std::string, std::pair<int, std::string>> found_;
  long own_blocks_ = 0;
};

// Checks the tracer's record against itself and against the text written so far.
void check_record(TraceSession& s, std::string const& where, Findings& findings) {
  SmtLib2ApiTracer const& t = *s.tracer;
  std::string const text = s.buf.text();
  if (Access::any_visit_mark(t)) {
    findings.add("visit mark left set", where);
  }
  auto const& sym_stack = Access::symbol_decl_stack(t);
  auto const& type_stack = Access::type_decl_stack(t);
  auto const declared_symbols = Access::declared_symbols(t);
  auto const declared_types = Access::declared_types(t);
  if (s.global) {
    if (!sym_stack.empty() || !type_stack.empty()) {
      findings.add("declaration stack not empty in global mode", where);
    }
  } else {
    std::multiset<Symbol const*> on_stack;
    std::size_t sym_markers = 0;
    for (Symbol const* e : sym_stack) {
      if (e == nullptr) {
        ++sym_markers;
      } else {
        on_stack.insert(e);
      }
    }
    std::multiset<DataType const*> types_on_stack;
    std::size_t type_markers = 0;
    for (DataType const* e : type_stack) {
      if (e == nullptr) {
        ++type_markers;
      } else {
        types_on_stack.insert(e);
      }
    }
    if (on_stack !=
        std::multiset<Symbol const*>(declared_symbols.begin(), declared_symbols.end())) {
      findings.add("symbol stack differs from the declared symbols", where);
    }
    if (types_on_stack !=
        std::multiset<DataType const*>(declared_types.begin(), declared_types.end())) {
      findings.add("type stack differs from the declared types", where);
    }
    if (sym_markers != type_markers) {
      findings.add(
          "the two stacks hold different numbers of scope markers",
          where + ": " + std::to_string(sym_markers) + " vs " + std::to_string(type_markers));
    }
  }
  for (Symbol const* sym : declared_symbols) {
    if (!has_line(text, "(declare-fun " + std::string(sym->get_name()) + " (")) {
      findings.add("symbol recorded as declared without its declaration in the trace",
                   where + ": " + std::string(sym->get_name()));
    }
  }
  for (DataType const* ty : declared_types) {
    if (!has_line(text, "(declare-sort " + std::string(ty->get_name()) + " 0)")) {
      findings.add("sort recorded as declared without its declaration in the trace",
                   where + ": " + std::string(ty->get_name()));
    }
  }
  if (s.global) {
    std::vector<Term const*> work(s.terms.begin(), s.terms.end());
    std::set<Term const*> seen;
    while (!work.empty()) {
      Term const* u = work.back();
      work.pop_back();
      if (!seen.insert(u).second) {
        continue;
      }
      bool const defined = Access::is_defined(t, u);
      if (defined && !has_line(text, "(define-fun ." + std::to_string(u->get_id()) + " ")) {
        findings.add("term recorded as defined without its define-fun in the trace",
                     where + ": term " + std::to_string(u->get_id()));
      }
      for (std::size_t i = 0; i < u->get_arity(); ++i) {
        if (defined && !Access::is_defined(t, u->get_arg(i))) {
          findings.add("defined term with an undefined argument", where);
        }
        work.push_back(u->get_arg(i));
      }
    }
  }
}

struct Reference {
  std::string op_text;        // what the operation writes
  std::string probe_after;    // what the probe writes after the operation
  std::string probe_without;  // what the probe writes when the operation never ran
};

Reference reference(Scenario const& sc, bool global) {
  Reference ref;
  {
    TraceSession s(global);
    sc.setup(s);
    std::size_t const before = s.buf.size();
    sc.op(s);
    ref.op_text = without_stamp(s.buf.text().substr(before));
    std::size_t const mid = s.buf.size();
    probe(s);
    ref.probe_after = s.buf.text().substr(mid);
  }
  if (!sc.constructs) {
    TraceSession s(global);
    sc.setup(s);
    std::size_t const before = s.buf.size();
    probe(s);
    ref.probe_without = s.buf.text().substr(before);
  }
  return ref;
}

class AllocFailureTest : public ::testing::TestWithParam<std::tuple<int, bool>> {};

TEST_P(AllocFailureTest, EveryFailurePointLeavesATracerThatWorks) {
  Scenario const& sc = scenarios()[static_cast<std::size_t>(std::get<0>(GetParam()))];
  bool const global = std::get<1>(GetParam());
  Reference const ref = reference(sc, global);
  // A first full run warms up whatever the C++ runtime caches on first use.
  reference(sc, global);

  Findings findings;
  std::size_t survived = 0;
  bool completed = false;
  constexpr std::size_t kLimit = 100000;
  for (std::size_t k = 1; k <= kLimit && !completed; ++k) {
    std::string const where = "k=" + std::to_string(k);
    long const baseline = live_allocations() - findings.own_blocks();
    {
      TraceSession s(global);
      sc.setup(s);
      std::size_t const before = s.buf.size();
      bool threw = false;
      arm_allocation_failure(k);
      try {
        sc.op(s);
      } catch (std::bad_alloc const&) {
        threw = true;
      } catch (...) {
        disarm_allocation_failure();
        findings.add("an exception other than std::bad_alloc", where);
        continue;
      }
      bool const fired = disarm_allocation_failure();
      std::string const op_text = s.buf.text().substr(before);
      std::string expected_probe = ref.probe_after;
      if (!fired) {
        completed = true;
        if (without_stamp(op_text) != ref.op_text) {
          findings.add("fault-free run wrote other text", where + ": " + op_text);
        }
      } else if (!threw) {
        findings.add("allocation failure swallowed", where);
        if (without_stamp(op_text) != ref.op_text) {
          findings.add("allocation failure swallowed and the text differs",
                       where + ": wrote \"" + tail(op_text) + "\"");
        }
      } else {
        ++survived;
        if (sc.constructs) {
          if (s.tracer != nullptr) {
            findings.add("a failed construction left a tracer", where);
          }
          std::size_t const retry_from = s.buf.size();
          s.start(true);
          std::string const retry = without_stamp(s.buf.text().substr(retry_from));
          if (retry != ref.op_text) {
            findings.add("construction after a failed one wrote other text", where);
          }
        } else {
          check_record(s, where + " after the failure", findings);
          if (op_text != complete_lines(op_text)) {
            findings.add("partial command left in the trace",
                         where + ": \"" + tail(op_text) + "\"");
          }
          if (sc.atomic) {
            if (op_text.empty()) {
              expected_probe = ref.probe_without;
            } else if (op_text != ref.op_text) {
              findings.add("a failed push/pop/reset wrote part of its text", where);
            }
          } else {
            std::size_t const retry_from = s.buf.size();
            sc.op(s);
            std::string const combined = complete_lines(op_text) + s.buf.text().substr(retry_from);
            if (combined != ref.op_text) {
              findings.add("failed call and its retry together wrote other text than one call",
                           where + ": failed call wrote \"" + op_text + "\", retry wrote \"" +
                               s.buf.text().substr(retry_from) + "\"");
            }
          }
        }
      }
      check_record(s, where + " before the probe", findings);
      std::size_t const probe_from = s.buf.size();
      probe(s);
      std::string const probe_text = s.buf.text().substr(probe_from);
      if (probe_text != expected_probe) {
        findings.add("later calls write other text than in a fault-free run",
                     where + ": got\n" + probe_text + "expected\n" + expected_probe);
      }
      check_record(s, where + " after the probe", findings);
    }
    long const after = live_allocations() - findings.own_blocks();
    if (after != baseline) {
      findings.add("allocations leaked",
                   where + ": " + std::to_string(after - baseline) + " blocks");
    }
  }
  EXPECT_TRUE(completed) << "the operation never completed within " << kLimit << " allocations";
  findings.report();
  std::printf("[ alloc    ] %s %s: %zu allocation failure points survived\n", sc.name,
              global ? "global" : "scoped", survived);
  RecordProperty("failure_points", static_cast<int>(survived));
}

INSTANTIATE_TEST_SUITE_P(
    Operations, AllocFailureTest,
    ::testing::Combine(::testing::Range(0, static_cast<int>(scenarios().size())),
                       ::testing::Bool()),
    [](::testing::TestParamInfo<std::tuple<int, bool>> const& info) {
      return std::string(scenarios()[static_cast<std::size_t>(std::get<0>(info.param))].name) +
             (std::get<1>(info.param) ? "Global" : "Scoped");
    });

}  // namespace
}  // namespace test
}  // namespace tvx
