// Terms a million levels deep through the tracer, in both modes: assertion, check-allsat and
// get-value must neither overflow the call stack nor lose text. The trace goes to a stream
// buffer that keeps only counts, so that memory stays with the terms.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

#include "core/configuration.h"
#include "core/term_manager.h"
#include "tracer/smtlib2_api_tracer.h"

namespace tvx {
namespace {

constexpr std::size_t kDepth = 1000000;

// Counts bytes, lines and parentheses, and the deepest nesting, of everything written.
class CountingBuf : public std::streambuf {
 public:
  std::uint64_t bytes = 0;
  std::uint64_t lines = 0;
  std::uint64_t opens = 0;
  std::uint64_t closes = 0;
  std::uint64_t max_depth = 0;
  std::uint64_t depth = 0;
  std::string line;       // the line being written
  std::string last_line;  // the last complete line (its first 200 characters)

 protected:
  int_type overflow(int_type ch) override {
    if (!traits_type::eq_int_type(ch, traits_type::eof())) {
      put(traits_type::to_char_type(ch));
    }
    return traits_type::not_eof(ch);
  }
  std::streamsize xsputn(char const* s, std::streamsize n) override {
    for (std::streamsize i = 0; i < n; ++i) {
      put(s[i]);
    }
    return n;
  }

 private:
  void put(char c) {
    ++bytes;
    if (c == '(') {
      ++opens;
      if (++depth > max_depth) {
        max_depth = depth;
      }
    } else if (c == ')') {
      ++closes;
      --depth;
    }
    if (c == '\n') {
      ++lines;
      last_line.swap(line);
      line.clear();
    } else if (line.size() < 200) {
      line.push_back(c);
    }
  }
};

class DeepTermTest : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    U_ = mgr_.make_simple_type("U");
    g_ = mgr_.make_symbol("g", mgr_.get_function_type({U_}, U_));
    p_ = mgr_.make_symbol("p", mgr_.get_function_type({U_}, mgr_.get_bool_type()));
    a_ = mgr_.make_constant(mgr_.make_symbol("a", U_));
  }
  // g applied `depth` times to a.
  Term const* chain(std::size_t depth) {
    Term const* t = a_;
    for (std::size_t i = 0; i < depth; ++i) {
      t = mgr_.make_term(g_, &t, 1);
    }
    return t;
  }
  std::unique_ptr<SmtLib2ApiTracer> tracer(CountingBuf& buf, std::ostream& out) {
    auto t = std::make_unique<SmtLib2ApiTracer>(&config_, &mgr_, out, GetParam(), false);
    t->trace_type_declaration(U_);
    t->trace_symbol_declaration(g_);
    t->trace_symbol_declaration(p_);
    t->trace_symbol_declaration(a_->get_symbol());
    buf = CountingBuf();
    return t;
  }

  TermManager mgr_;
  Configuration config_;
  DataType const* U_ = nullptr;
  Symbol const* g_ = nullptr;
  Symbol const* p_ = nullptr;
  Term const* a_ = nullptr;
};

// One chain of g a million levels deep, under p, shared by the three operations; each runs
// on a tracer of its own, so that in global mode each defines every level itself.
TEST_P(DeepTermTest, MillionLevelsThroughAssertCheckAllsatAndGetValue) {
  bool const global = GetParam();
  Term const* deep = chain(kDepth);
  Term const* formula = mgr_.make_term(p_, &deep, 1);
  std::string const label = "." + std::to_string(formula->get_id());
  {
    CountingBuf buf;
    std::ostream out(&buf);
    auto t = tracer(buf, out);
    t->trace_assert_formula(formula);
    EXPECT_EQ(buf.opens, buf.closes);
    if (global) {
      EXPECT_EQ(kDepth + 3, buf.lines);  // a, each level of g, p, the assertion
      EXPECT_EQ("(assert " + label + ")", buf.last_line);
    } else {
      EXPECT_EQ(1u, buf.lines);
      EXPECT_GE(buf.max_depth, kDepth + 2);
    }
  }
  {
    CountingBuf buf;
    std::ostream out(&buf);
    auto t = tracer(buf, out);
    t->trace_check_allsat({formula});
    EXPECT_EQ(buf.opens, buf.closes);
    if (global) {
      EXPECT_EQ(kDepth + 3, buf.lines);
      EXPECT_EQ("(check-allsat (" + label + " ))", buf.last_line);
    } else {
      EXPECT_EQ(1u, buf.lines);
      EXPECT_GE(buf.max_depth, kDepth + 2);
    }
  }
  {
    CountingBuf buf;
    std::ostream out(&buf);
    auto t = tracer(buf, out);
    t->trace_get_model_value(deep);
    EXPECT_EQ(buf.opens, buf.closes);
    if (global) {
      EXPECT_EQ(kDepth + 2, buf.lines);  // a, each level of g, the query
      EXPECT_EQ("(get-value (." + std::to_string(deep->get_id()) + "))", buf.last_line);
    } else {
      EXPECT_EQ(1u, buf.lines);
      EXPECT_GE(buf.max_depth, kDepth + 2);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Modes, DeepTermTest, ::testing::Bool(),
                         [](::testing::TestParamInfo<bool> const& info) {
                           return info.param ? "Global" : "Scoped";
                         });

}  // namespace
}  // namespace tvx
