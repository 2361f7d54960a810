// The SMT-LIB names the reader classifies: command names, the built-in operators it treats
// apart (arithmetic mixing, arrays, ...), and the names of theories and commands outside the
// supported fragment, so that they are reported as not supported rather than unknown.
#include <unordered_map>

#include "smt2/reader_impl.h"

namespace tvx {
namespace smt2 {

namespace {

// Names of theories and constructs outside the supported fragment, so that they are reported
// as unsupported rather than unknown.
constexpr char const* kUnsupportedPrefixes[] = {"str.",  "re.",  "fp.", "seq.", "set.", "bag.",
                                                "char.", "int.", "bv2", "int2", "nat2"};
constexpr char const* kUnsupportedSymbols[] = {"to_fp",
                                               "to_fp_unsigned",
                                               "fp",
                                               "RNE",
                                               "RNA",
                                               "RTP",
                                               "RTN",
                                               "RTZ",
                                               "roundNearestTiesToEven",
                                               "roundNearestTiesToAway",
                                               "roundTowardPositive",
                                               "roundTowardNegative",
                                               "roundTowardZero",
                                               "+oo",
                                               "-oo",
                                               "+zero",
                                               "-zero",
                                               "NaN",
                                               "const",
                                               "ubv_to_int",
                                               "sbv_to_int",
                                               "iand",
                                               "bvredor",
                                               "bvredand",
                                               "bvite",
                                               "bvuaddo",
                                               "bvsaddo",
                                               "bvumulo",
                                               "bvsmulo",
                                               "bvnego",
                                               "bvusubo",
                                               "bvssubo",
                                               "bvsdivo",
                                               "to_int_bv"};
constexpr char const* kUnsupportedSorts[] = {
    "String",       "RegLan", "FloatingPoint", "Float16", "Float32",   "Float64", "Float128",
    "RoundingMode", "Seq",    "Set",           "Bag",     "UnitTuple", "Tuple"};

}  // namespace

bool is_unsupported_symbol(std::string const& name) {
  for (char const* p : kUnsupportedPrefixes) {
    if (name.compare(0, std::strlen(p), p) == 0) {
      return true;
    }
  }
  for (char const* s : kUnsupportedSymbols) {
    if (name == s) {
      return true;
    }
  }
  return false;
}

bool is_unsupported_sort(std::string const& name) {
  for (char const* s : kUnsupportedSorts) {
    if (name == s) {
      return true;
    }
  }
  return false;
}

bool is_builtin_sort_name(std::string const& name) {
  return eq(name, "Bool") || eq(name, "Int") || eq(name, "Real") || eq(name, "BitVec") ||
         eq(name, "Array");
}

Op classify_op(std::string const& name) {
  if (!TermManager::is_builtin_name(name) || is_builtin_sort_name(name)) {
    return Op::kNone;
  }
  if (eq(name, "true") || eq(name, "false")) {
    return Op::kTrueFalse;
  }
  if (eq(name, "+")) {
    return Op::kAdd;
  }
  if (eq(name, "*")) {
    return Op::kMul;
  }
  if (eq(name, "-")) {
    return Op::kSub;
  }
  if (eq(name, "/")) {
    return Op::kDiv;
  }
  if (eq(name, "ite")) {
    return Op::kIte;
  }
  if (eq(name, "<") || eq(name, "<=") || eq(name, ">") || eq(name, ">=") || eq(name, "=") ||
      eq(name, "distinct")) {
    return Op::kCompare;
  }
  if (eq(name, "and") || eq(name, "or") || eq(name, "xor")) {
    return Op::kAndOrXor;
  }
  if (eq(name, "to_int") || eq(name, "is_int")) {
    return Op::kRealArg;
  }
  if (eq(name, "select") || eq(name, "store")) {
    return Op::kArray;
  }
  return Op::kOther;
}

// Operators that take Int and Real arguments together, the Int ones made Real.
bool is_arith_mixing_op(Op op) {
  return op == Op::kAdd || op == Op::kMul || op == Op::kSub || op == Op::kDiv || op == Op::kIte ||
         op == Op::kCompare;
}

// A sort for messages; a function sort as declare-fun writes it: "(Int U) Bool".
std::string sort_text(DataType const* t) {
  if (!t->is_function()) {
    return t->to_string();
  }
  std::string s = "(";
  for (std::size_t i = 0; i + 1 < t->get_num_components(); ++i) {
    s += (i ? " " : "") + t->get_component(i)->to_string();
  }
  return s + ") " + t->get_function_result()->to_string();
}

Command command_of(std::string const& name) {
  static std::unordered_map<std::string, Command> const kCommands = {
      {"assert", Command::kAssert},
      {"declare-fun", Command::kDeclareFun},
      {"declare-const", Command::kDeclareConst},
      {"define-fun", Command::kDefineFun},
      {"define-const", Command::kDefineConst},
      {"declare-sort", Command::kDeclareSort},
      {"define-sort", Command::kDefineSort},
      {"push", Command::kPush},
      {"pop", Command::kPop},
      {"check-sat", Command::kCheckSat},
      {"check-sat-assuming", Command::kCheckSatAssuming},
      {"check-allsat", Command::kCheckAllsat},
      {"get-value", Command::kGetValue},
      {"get-model", Command::kGetModel},
      {"get-unsat-core", Command::kGetUnsatCore},
      {"get-unsat-assumptions", Command::kGetUnsatAssumptions},
      {"get-interpolant", Command::kGetInterpolant},
      {"reset-assertions", Command::kResetAssertions},
      {"set-option", Command::kSetOption},
      {"set-logic", Command::kSetLogic},
      {"set-info", Command::kSetInfo},
      {"get-info", Command::kGetInfo},
      {"get-option", Command::kGetOption},
      {"echo", Command::kEcho},
      {"exit", Command::kExit},
      {"reset", Command::kReset},
      {"define-fun-rec", Command::kRecursive},
      {"define-funs-rec", Command::kRecursive},
      {"declare-datatype", Command::kDatatypes},
      {"declare-datatypes", Command::kDatatypes},
      {"declare-codatatypes", Command::kDatatypes},
      {"get-assertions", Command::kNotSupported},
      {"get-assignment", Command::kNotSupported},
      {"get-proof", Command::kNotSupported},
      {"simplify", Command::kNotSupported},
      {"get-abduct", Command::kNotSupported},
      {"block-model", Command::kNotSupported},
      {"get-qe", Command::kNotSupported},
      {"declare-pool", Command::kNotSupported},
      {"get-difficulty", Command::kNotSupported},
      {"get-learned-literals", Command::kNotSupported},
      {"check-synth", Command::kNotSupported},
      {"get-timeout-core", Command::kNotSupported},
      {"block-model-values", Command::kNotSupported},
  };
  auto it = kCommands.find(name);
  return it == kCommands.end() ? Command::kUnknown : it->second;
}

}  // namespace smt2
}  // namespace tvx
