// The SMT-LIB names the reader classifies: command names, the built-in operators it treats
// apart (arithmetic mixing, arrays, ...), and the names of theories and commands outside the
// supported fragment, so that they are reported as not supported rather than unknown.
#include <unordered_map>

#include "smt2/reader_impl.h"

namespace tvx {
namespace smt2 {

// Names of theories the term layer does not model, and "const" outside (as const S).
bool is_unsupported_symbol(std::string const& name) {
  return TermManager::is_foreign_theory_name(name, false) || eq(name, "const");
}

bool is_unsupported_sort(std::string const& name) {
  return TermManager::is_foreign_theory_name(name, true);
}

Op classify_op(std::string const& name) {
  switch (TermManager::builtin_tag(name)) {
    case SymbolTag::UNINTERPRETED:
      return Op::kNone;
    case SymbolTag::TRUE:
    case SymbolTag::FALSE:
      return Op::kTrueFalse;
    case SymbolTag::ADD:
      return Op::kAdd;
    case SymbolTag::MUL:
      return Op::kMul;
    case SymbolTag::SUB:
      return Op::kSub;
    case SymbolTag::DIV:
      return Op::kDiv;
    case SymbolTag::ITE:
      return Op::kIte;
    case SymbolTag::LT:
    case SymbolTag::LE:
    case SymbolTag::GT:
    case SymbolTag::GE:
    case SymbolTag::EQUAL:
    case SymbolTag::DISTINCT:
      return Op::kCompare;
    case SymbolTag::AND:
    case SymbolTag::OR:
    case SymbolTag::XOR:
      return Op::kAndOrXor;
    case SymbolTag::TO_INT:
    case SymbolTag::IS_INT:
      return Op::kRealArg;
    case SymbolTag::SELECT:
    case SymbolTag::STORE:
      return Op::kArray;
    default:
      return Op::kOther;
  }
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
      {"get-assertions", Command::kGetAssertions},
      {"get-assignment", Command::kGetAssignment},
      {"define-fun-rec", Command::kDefineFunRec},
      {"define-funs-rec", Command::kDefineFunsRec},
      {"declare-datatype", Command::kDeclareDatatype},
      {"declare-datatypes", Command::kDeclareDatatypes},
      {"declare-codatatypes", Command::kDatatypes},
  };
  auto it = kCommands.find(name);
  return it == kCommands.end() ? Command::kUnknown : it->second;
}

}  // namespace smt2
}  // namespace tvx
