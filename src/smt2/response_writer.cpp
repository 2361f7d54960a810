#include <tvx/smt2/response_writer.h>

#include <string>

#include <tvx/support/str.h>

namespace tvx {
namespace smt2 {

ResponseWriter::ResponseWriter(TermManager& mgr, Configuration& config, std::ostream& out)
    : printer_(&mgr, &config.printer, "", "", false, nullptr), out_(out) {}

void ResponseWriter::end() {
  out_ << '\n';
  out_.flush();
  ++count_;
}

void ResponseWriter::check(CheckResult result) {
  out_ << to_string(result);
  end();
}

void ResponseWriter::values(std::vector<std::pair<Term const*, Term const*>> const& pairs) {
  out_ << '(';
  for (std::size_t i = 0; i < pairs.size(); ++i) {
    out_ << (i ? " (" : "(") << printer_.term_text(pairs[i].first) << ' '
         << printer_.term_text(pairs[i].second) << ')';
  }
  out_ << ')';
  end();
}

void ResponseWriter::values(std::vector<std::pair<std::string, Term const*>> const& pairs) {
  out_ << '(';
  for (std::size_t i = 0; i < pairs.size(); ++i) {
    out_ << (i ? " (" : "(") << pairs[i].first << ' ' << printer_.term_text(pairs[i].second) << ')';
  }
  out_ << ')';
  end();
}

void ResponseWriter::model(Model const& model) {
  out_ << '(';
  for (auto const& [symbol, value] : model.constants) {
    out_ << "\n  (define-fun " << printer_.symbol_text(symbol) << " () "
         << printer_.type_text(symbol->get_output_type()) << ' ' << printer_.term_text(value)
         << ')';
  }
  for (auto const& [symbol, value] : model.functions) {
    DataType const* type = symbol->get_type();
    std::size_t const arity = symbol->get_arity();
    // The parameters are named x!0, x!1, ...: values are closed, so no name in them can clash.
    out_ << "\n  (define-fun " << printer_.symbol_text(symbol) << " (";
    for (std::size_t i = 0; i < arity; ++i) {
      out_ << (i ? " " : "") << "(x!" << i << ' ' << printer_.type_text(type->get_component(i))
           << ')';
    }
    out_ << ") " << printer_.type_text(symbol->get_output_type()) << "\n    ";
    for (FunctionValue::Point const& p : value.points) {
      // The condition fixes the arguments the point fixes; a free one (null) matches any value.
      std::size_t fixed = 0;
      for (Term const* arg : p.args) {
        fixed += arg != nullptr ? 1 : 0;
      }
      out_ << "(ite " << (fixed > 1 ? "(and" : "");
      for (std::size_t i = 0; i < arity; ++i) {
        if (p.args[i] != nullptr) {
          out_ << (fixed > 1 ? " " : "") << "(= x!" << i << ' ' << printer_.term_text(p.args[i])
               << ')';
        }
      }
      out_ << (fixed > 1 ? ")" : "") << ' ' << printer_.term_text(p.value) << ' ';
    }
    out_ << printer_.term_text(value.otherwise) << std::string(value.points.size(), ')') << ')';
  }
  out_ << (model.constants.empty() && model.functions.empty() ? ")" : "\n)");
  end();
}

void ResponseWriter::names(std::vector<std::string> const& names) {
  out_ << '(';
  for (std::size_t i = 0; i < names.size(); ++i) {
    out_ << (i ? " " : "") << SmtLibTermPrinter::quote(names[i]);
  }
  out_ << ')';
  end();
}

void ResponseWriter::assignment(std::vector<std::pair<std::string, bool>> const& values) {
  out_ << '(';
  for (std::size_t i = 0; i < values.size(); ++i) {
    out_ << (i ? " (" : "(") << SmtLibTermPrinter::quote(values[i].first)
         << (values[i].second ? " true)" : " false)");
  }
  out_ << ')';
  end();
}

void ResponseWriter::literals(std::vector<TheoryLit> const& literals) {
  out_ << '(';
  for (std::size_t i = 0; i < literals.size(); ++i) {
    out_ << (i ? " " : "");
    if (literals[i].is_negated()) {
      out_ << "(not " << printer_.term_text(literals[i].get_term()) << ')';
    } else {
      out_ << printer_.term_text(literals[i].get_term());
    }
  }
  out_ << ')';
  end();
}

void ResponseWriter::cubes(std::vector<std::vector<TheoryLit>> const& cubes,
                           std::string const& reason_unknown) {
  for (std::vector<TheoryLit> const& cube : cubes) {
    literals(cube);
  }
  check(reason_unknown.empty() ? CheckResult::Unsat : CheckResult::Unknown);
}

void ResponseWriter::term(Term const* t) {
  out_ << printer_.term_text(t);
  end();
}

void ResponseWriter::info(std::string const& keyword, std::string const& value) {
  out_ << '(' << keyword << ' ' << value << ')';
  end();
}

void ResponseWriter::text(std::string const& response) {
  out_ << response;
  end();
}

void ResponseWriter::string(std::string const& text) {
  out_ << str::smtlib_string(text);
  end();
}

void ResponseWriter::unsupported() {
  out_ << "unsupported";
  end();
}

void ResponseWriter::error(std::string const& message) {
  out_ << "(error " << str::smtlib_string(message) << ')';
  end();
}

}  // namespace smt2
}  // namespace tvx
