// Sexpr: a solver's answer parsed into atoms and lists; one expression exactly, at any depth.
#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "solver/sexpr.h"

namespace tvx {
namespace {

TEST(SexprTest, ParsesOneExpressionAtAnyDepthAndRefusesTheRest) {
  Sexpr e;
  ASSERT_TRUE(e.parse(" ; comment\n((x |a b|) \"s \"\" t\" (- 5)) "));
  ASSERT_EQ(e.size(e.root()), 3u);
  EXPECT_EQ(e.node(e.kid(e.kid(e.root(), 0), 1)).atom, "a b");
  EXPECT_EQ(e.node(e.kid(e.root(), 1)).atom, "\"s \"\" t\"");
  EXPECT_TRUE(e.is_app(e.kid(e.root(), 2), "-", 2));
  for (char const* bad : {"", "(", ")", "(a))", "a b", "|open", "\"open", "(a) (b)"}) {
    EXPECT_FALSE(e.parse(bad)) << bad;
  }
  std::size_t const depth = 1000000;
  std::string deep(depth, '(');
  deep += "x";
  deep += std::string(depth, ')');
  ASSERT_TRUE(e.parse(deep));
  std::size_t n = e.root();
  for (std::size_t i = 0; i < depth; ++i) {
    ASSERT_EQ(e.size(n), 1u);
    n = e.kid(n, 0);
  }
  EXPECT_TRUE(e.is_atom(n, "x"));
}

}  // namespace
}  // namespace tvx
