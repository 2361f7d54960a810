// tvx-trace: reads an SMT-LIB 2 script and writes the API-call trace that the same calls,
// made through the library, would produce; with --solver it also answers the script through
// an engine, as a solver would. Exit status: 0 success, 1 input error, 2 usage.

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <tvx/core/configuration.h>
#include <tvx/core/error.h>
#include <tvx/core/term_manager.h>
#include <tvx/smt2/response_writer.h>
#include <tvx/smt2/script_reader.h>
#include <tvx/solver/engine.h>
#include <tvx/solver/solver.h>

#include "dropin.h"

namespace {

constexpr int kExitOk = 0;
constexpr int kExitInput = 1;
constexpr int kExitUsage = 2;

void print_usage(std::ostream& os) {
  std::string engines;
  for (std::string const& name : tvx::builtin_engine_names()) {
    engines += (engines.empty() ? "" : ", ") + name;
  }
  os << "usage: tvx-trace [--solver NAME] [--global-decls] [--dump-config] [--set KEY=VALUE]...\n"
        "                 [-o FILE | --trace FILE] [FILE | -]\n"
        "       tvx-trace --as z3|cvc5 [SOLVER OPTIONS] [FILE...]\n"
        "\n"
        "Reads an SMT-LIB 2 script (standard input for '-' or no FILE) and writes its API-call\n"
        "trace to standard output or to the file given with -o. With --solver, answers the\n"
        "script as a solver would: the responses (sat, values, models, cores, errors) go to\n"
        "standard output, and the trace, when wanted, to the file given with --trace.\n"
        "\n"
        "  --solver NAME      answer through the engine NAME: one built in ("
     << (engines.empty() ? "none here" : engines)
     << "),\n"
        "                     or the command line of any solver that reads SMT-LIB 2 on\n"
        "                     standard input, such as 'z3 -in' or 'cvc5 --incremental'\n"
        "                     (model and unsat core generation are on; --set turns them off)\n"
        "  --global-decls     trace in global-declarations mode: every term is defined once\n"
        "                     and named by its label afterwards\n"
        "  --dump-config      write the configuration into the trace header\n"
        "  --set KEY=VALUE    set a configuration entry before the tracer is built\n"
        "                     (for example printer.defines_prefix=d_ or timeout=10)\n"
        "  -o, --trace FILE   write the trace to FILE\n"
        "  --as SOLVER        stand in for SOLVER (z3 or cvc5), as when called by that\n"
        "                     name: take its command line, answer as it does, and trace each\n"
        "                     session into $TVX_TRACE_DIR (default\n"
        "                     ~/.local/state/tvx/traces)\n"
        "  --help             show this help and exit\n"
        "  --version          show the version and exit\n"
        "\n"
        "Exit status: 0 on success, 1 on an error in the input or from the solver, 2 on a\n"
        "usage error.\n";
}

int usage_error(std::string const& message) {
  std::cerr << "tvx-trace: error: " << message << "\n"
            << "Try 'tvx-trace --help' for more information.\n";
  return kExitUsage;
}

// Reports progress on a terminal once reading has taken more than a second.
class Progress {
 public:
  explicit Progress(bool enabled) : enabled_(enabled), start_(Clock::now()), last_(start_) {}
  ~Progress() { finish(); }

  void update(std::uint64_t bytes, std::uint64_t commands) {
    if (!enabled_ || (commands & 63) != 0) {
      return;
    }
    auto const now = Clock::now();
    if (now - start_ < std::chrono::seconds(1) || now - last_ < std::chrono::milliseconds(250)) {
      return;
    }
    last_ = now;
    std::fprintf(stderr, "\rtvx-trace: %.1f MB read, %llu commands", bytes / 1048576.0,
                 static_cast<unsigned long long>(commands));
    std::fflush(stderr);
    shown_ = true;
  }

  void finish() {
    if (shown_) {
      std::fprintf(stderr, "\r\033[K");
      std::fflush(stderr);
      shown_ = false;
    }
  }

 private:
  using Clock = std::chrono::steady_clock;
  bool enabled_;
  Clock::time_point start_;
  Clock::time_point last_;
  bool shown_ = false;
};

// What the command line asks for.
struct Options {
  bool global_decls = false;
  bool dump_config = false;
  std::vector<std::string> settings;  // KEY=VALUE, in the order given
  std::string output;                 // the trace file; empty for none
  std::string solver_name;            // empty: trace only
  std::string input;
  bool have_input = false;
};

// Reads the command line into `opts`. Returns an exit status when the program is done (help,
// version, a usage error), and nothing when it goes on to run.
std::optional<int> parse_options(int argc, char** argv, Options& opts) {
  for (int i = 1; i < argc; ++i) {
    std::string const arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      print_usage(std::cout);
      return kExitOk;
    }
    if (arg == "--version") {
      std::cout << "tvx-trace " << TVX_VERSION << "\n";
      return kExitOk;
    }
    if (arg == "--global-decls") {
      opts.global_decls = true;
    } else if (arg == "--dump-config") {
      opts.dump_config = true;
    } else if (arg == "--set" || arg == "-o" || arg == "--trace" || arg == "--solver") {
      if (i + 1 >= argc) {
        return usage_error("option '" + arg + "' needs an argument");
      }
      (arg == "--set"      ? opts.settings.emplace_back()
       : arg == "--solver" ? opts.solver_name
                           : opts.output) = argv[++i];
      if (arg == "--solver" && opts.solver_name.empty()) {
        return usage_error("option '--solver' needs a solver name");
      }
    } else if (arg.compare(0, 6, "--set=") == 0) {
      opts.settings.push_back(arg.substr(6));
    } else if (arg.size() > 1 && arg[0] == '-' && arg != "-") {
      return usage_error("unknown option '" + arg + "'");
    } else {
      if (opts.have_input) {
        return usage_error("more than one input file");
      }
      opts.input = arg;
      opts.have_input = true;
    }
  }
  return std::nullopt;
}

// Applies the --set entries to `config`; returns the exit status of a usage error, if any.
std::optional<int> apply_settings(Options const& opts, tvx::Configuration& config) {
  tvx::ConfigurationSetter setter;
  for (std::string const& s : opts.settings) {
    std::size_t const eq = s.find('=');
    if (eq == std::string::npos) {
      return usage_error("expected KEY=VALUE after --set, found '" + s + "'");
    }
    try {
      setter.set(&config, s.substr(0, eq), s.substr(eq + 1));
    } catch (std::invalid_argument const& e) {
      return usage_error(e.what());
    }
  }
  return std::nullopt;
}

// Reads the script from `in` through a Solver that traces to `out` (not at all when it is
// null) and, with a solver named, answers on standard output. Returns the exit status.
int run_session(Options const& opts, tvx::Configuration& config, std::istream& in,
                std::string const& name, std::ostream* out) {
  bool const answering = !opts.solver_name.empty();
  tvx::TermManager mgr;
  std::unique_ptr<tvx::Engine> engine;
  if (answering) {
    try {
      engine = tvx::make_engine(opts.solver_name, mgr, config);
    } catch (tvx::Error const& e) {
      std::cerr << "tvx-trace: error: " << e.what() << "\n";
      return kExitInput;
    }
  }
  // Without a trace file, a solver's session is answered and not traced.
  std::unique_ptr<tvx::Solver> solver;
  if (out != nullptr) {
    solver = std::make_unique<tvx::Solver>(mgr, config, std::move(engine), *out, opts.global_decls,
                                           opts.dump_config);
  } else {
    solver = std::make_unique<tvx::Solver>(mgr, config, std::move(engine));
  }
  tvx::smt2::ScriptReader reader(*solver);
  tvx::smt2::ResponseWriter responses(mgr, config, std::cout);
  if (answering) {
    reader.set_response_writer(&responses);
    // Answered as the solver named would answer: z3 goes on after an error, cvc5 stops.
    std::string const program =
        tvx::dropin::solver_of_program(opts.solver_name.substr(0, opts.solver_name.find(' ')));
    tvx::smt2::SolverPersona persona;
    if (program == "z3") {
      persona.name = "Z3";
      persona.continued_execution = true;
    } else if (program == "cvc5") {
      persona.name = "cvc5";
    }
    persona.version = tvx::builtin_engine_version(program);
    reader.set_persona(persona);
  }
  Progress progress(isatty(2) != 0 && !answering);
  reader.set_progress_callback([&progress](std::uint64_t bytes, std::uint64_t commands) {
    progress.update(bytes, commands);
  });
  try {
    reader.read(in, name);
  } catch (tvx::smt2::ReadError const& e) {
    progress.finish();
    // An answered session reports the error as its answer, once; a trace run on stderr.
    if (answering) {
      responses.error(e.what());
    } else {
      std::cerr << e.what() << "\n";
    }
    return kExitInput;
  } catch (std::bad_alloc const&) {
    progress.finish();
    std::cerr << "tvx-trace: error: out of memory\n";
    return kExitInput;
  }
  return reader.errors_answered() == 0 ? kExitOk : kExitInput;
}

}  // namespace

int main(int argc, char** argv) {
  std::ios::sync_with_stdio(false);
  // Called under a solver's name, or told to stand in for one: the drop-in solver.
  std::string as = argc > 0 ? tvx::dropin::solver_of_program(argv[0]) : "";
  int first = 1;
  if (as.empty() && argc > 1 && std::string(argv[1]) == "--as") {
    if (argc < 3 || (std::string(argv[2]) != "z3" && std::string(argv[2]) != "cvc5")) {
      return usage_error("option '--as' needs a solver to stand in for: z3 or cvc5");
    }
    as = argv[2];
    first = 3;
  }
  if (!as.empty()) {
    return tvx::dropin::run(as, std::vector<std::string>(argv + first, argv + argc));
  }
  Options opts;
  if (std::optional<int> const done = parse_options(argc, argv, opts)) {
    return *done;
  }
  bool const answering = !opts.solver_name.empty();
  tvx::Configuration config;
  config.model_generation = answering;
  config.unsat_core_generation = answering;
  if (std::optional<int> const error = apply_settings(opts, config)) {
    return *error;
  }

  std::ifstream file_in;
  std::istream* in = &std::cin;
  std::string name = "<stdin>";
  if (opts.have_input && opts.input != "-") {
    file_in.open(opts.input, std::ios::binary);
    if (!file_in) {
      std::cerr << "tvx-trace: error: cannot open '" << opts.input << "' for reading\n";
      return kExitInput;
    }
    in = &file_in;
    name = opts.input;
  }
  std::ofstream file_out;
  std::ostream* out = answering ? nullptr : &std::cout;
  if (!opts.output.empty()) {
    file_out.open(opts.output, std::ios::binary | std::ios::trunc);
    if (!file_out) {
      std::cerr << "tvx-trace: error: cannot open '" << opts.output << "' for writing\n";
      return kExitInput;
    }
    out = &file_out;
  }

  int const status = run_session(opts, config, *in, name, out);
  if (out == nullptr) {
    return status;
  }
  out->flush();
  if (!*out) {
    std::cerr << "tvx-trace: error: writing the trace failed\n";
    return kExitInput;
  }
  return status;
}
