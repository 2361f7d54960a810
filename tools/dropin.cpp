// The drop-in solver: see dropin.h.
#include "dropin.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <vector>

#include <tvx/core/configuration.h>
#include <tvx/core/error.h>
#include <tvx/core/term_manager.h>
#include <tvx/smt2/response_writer.h>
#include <tvx/smt2/script_reader.h>
#include <tvx/solver/engine.h>
#include <tvx/solver/solver.h>

namespace tvx {
namespace dropin {

namespace {

// What the caller's command line asks of the solver.
struct Invocation {
  std::string solver;
  std::vector<std::string> files;
  bool version = false;
  bool help = false;
  double timeout = 0.0;  // seconds per check; 0 for none
  unsigned seed = 0;
  bool produce_models = false;
  bool produce_cores = false;
  bool interactive = false;  // cvc5: an error does not end the session
};

bool starts_with(std::string const& s, char const* prefix) {
  return s.compare(0, std::strlen(prefix), prefix) == 0;
}

unsigned long long number_or_zero(std::string const& text) {
  char* end = nullptr;
  errno = 0;
  unsigned long long const v = std::strtoull(text.c_str(), &end, 10);
  return errno != 0 || end == text.c_str() || *end != 0 ? 0 : v;
}

// z3's command line: -in, -smt2, -T:N (seconds), -t:N (milliseconds per check), -version,
// -file:F, key=value parameters; every other option is taken and left alone.
Invocation parse_z3(std::vector<std::string> const& args) {
  Invocation inv;
  inv.solver = "z3";
  inv.produce_models = true;  // z3 keeps a model unless told otherwise
  for (std::string const& a : args) {
    if (a == "-version" || a == "--version") {
      inv.version = true;
    } else if (a == "-h" || a == "-?" || a == "--help" || a == "-help") {
      inv.help = true;
    } else if (starts_with(a, "-T:")) {
      inv.timeout = static_cast<double>(number_or_zero(a.substr(3)));
    } else if (starts_with(a, "-t:")) {
      inv.timeout = static_cast<double>(number_or_zero(a.substr(3))) / 1000.0;
    } else if (starts_with(a, "-file:")) {
      inv.files.push_back(a.substr(6));
    } else if (!a.empty() && a[0] == '-') {
      // -in, -smt2, -st, -v:N, ...: input format and reporting, nothing that changes answers.
    } else if (a.find('=') != std::string::npos) {
      std::string const key = a.substr(0, a.find('='));
      std::string const value = a.substr(a.find('=') + 1);
      if (key == "timeout") {
        inv.timeout = static_cast<double>(number_or_zero(value)) / 1000.0;
      } else if (key == "random_seed" || key == "smt.random_seed") {
        inv.seed = static_cast<unsigned>(number_or_zero(value));
      } else if (key == "model") {
        inv.produce_models = value != "false";
      }
    } else {
      inv.files.push_back(a);
    }
  }
  return inv;
}

// cvc5's command line: --incremental, --lang smt2, --tlimit-per=N, --produce-models,
// --produce-unsat-cores, --interactive, --seed=N, --version; other options are taken and left
// alone (those that take their value as the next argument skip it).
Invocation parse_cvc5(std::vector<std::string> const& args) {
  Invocation inv;
  inv.solver = "cvc5";
  for (std::size_t i = 0; i < args.size(); ++i) {
    std::string const& a = args[i];
    std::string value;
    std::size_t const eq = a.find('=');
    std::string const key = starts_with(a, "--") && eq != std::string::npos ? a.substr(0, eq) : a;
    bool const separate_value =
        eq == std::string::npos &&
        (a == "--lang" || a == "-L" || a == "--tlimit-per" || a == "--tlimit" || a == "--seed" ||
         a == "--output-lang" || a == "-o" || a == "--output");
    if (separate_value && i + 1 < args.size()) {
      value = args[++i];
    } else if (eq != std::string::npos) {
      value = a.substr(eq + 1);
    }
    if (key == "--version" || key == "-V") {
      inv.version = true;
    } else if (key == "--help" || key == "-h") {
      inv.help = true;
    } else if (key == "--tlimit-per" || key == "--tlimit") {
      inv.timeout = static_cast<double>(number_or_zero(value)) / 1000.0;
    } else if (key == "--seed") {
      inv.seed = static_cast<unsigned>(number_or_zero(value));
    } else if (key == "--produce-models" || key == "-m") {
      inv.produce_models = true;
    } else if (key == "--produce-unsat-cores") {
      inv.produce_cores = true;
    } else if (key == "--interactive") {
      inv.interactive = true;
    } else if (key == "--no-interactive") {
      inv.interactive = false;
    } else if (!a.empty() && a[0] == '-') {
      // --incremental, --lang smt2, --quiet, ...
    } else {
      inv.files.push_back(a);
    }
  }
  return inv;
}

std::string real_path(std::string const& path) {
  char buf[PATH_MAX];
  return realpath(path.c_str(), buf) != nullptr ? std::string(buf) : std::string();
}

// The real solver: the first program of that name on PATH that is not this program.
std::string find_real_solver(std::string const& name) {
  char const* path = std::getenv("PATH");
  std::string const self = real_path("/proc/self/exe");
  std::string dirs = path != nullptr ? path : "";
  std::size_t start = 0;
  while (start <= dirs.size()) {
    std::size_t end = dirs.find(':', start);
    if (end == std::string::npos) {
      end = dirs.size();
    }
    std::string dir = dirs.substr(start, end - start);
    start = end + 1;
    if (dir.empty()) {
      dir = ".";
    }
    std::string const candidate = dir + "/" + name;
    if (access(candidate.c_str(), X_OK) == 0 && real_path(candidate) != self) {
      return candidate;
    }
  }
  return "";
}

// A stream buffer over a file descriptor that it owns.
class FdBuf : public std::streambuf {
 public:
  explicit FdBuf(int fd) : fd_(fd) { setp(buf_, buf_ + sizeof(buf_)); }
  ~FdBuf() override {
    sync();
    close(fd_);
  }
  FdBuf(FdBuf const&) = delete;
  FdBuf& operator=(FdBuf const&) = delete;

 protected:
  int overflow(int c) override {
    if (sync() != 0) {
      return traits_type::eof();
    }
    if (c != traits_type::eof()) {
      *pptr() = static_cast<char>(c);
      pbump(1);
    }
    return traits_type::not_eof(c);
  }
  int sync() override {
    char const* p = pbase();
    while (p < pptr()) {
      ssize_t const n = write(fd_, p, static_cast<std::size_t>(pptr() - p));
      if (n < 0 && errno == EINTR) {
        continue;
      }
      if (n <= 0) {
        return -1;
      }
      p += n;
    }
    setp(buf_, buf_ + sizeof(buf_));
    return 0;
  }

 private:
  int fd_;
  char buf_[1 << 16];
};

// The directory traces go to: TVX_TRACE_DIR, else $XDG_STATE_HOME/tvx/traces, else
// ~/.local/state/tvx/traces.
std::string trace_directory() {
  if (char const* dir = std::getenv("TVX_TRACE_DIR"); dir != nullptr && *dir != 0) {
    return dir;
  }
  if (char const* state = std::getenv("XDG_STATE_HOME"); state != nullptr && *state != 0) {
    return std::string(state) + "/tvx/traces";
  }
  char const* home = std::getenv("HOME");
  return std::string(home != nullptr ? home : ".") + "/.local/state/tvx/traces";
}

// Makes `dir` and the directories above it that are missing, each one made with mode 0700 (a
// trace holds a program's formulas). False, with errno, when that fails.
bool make_directories(std::string const& dir) {
  std::string path;
  std::size_t start = 0;
  while (start < dir.size()) {
    std::size_t end = dir.find('/', start);
    if (end == std::string::npos) {
      end = dir.size();
    }
    path = dir.substr(0, end);
    start = end + 1;
    if (path.empty()) {
      continue;
    }
    if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) {
      return false;
    }
  }
  struct stat st;
  return stat(dir.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// A new trace file, named by the time (so names sort by time), the process and a count (so
// concurrent sessions never collide); created new, never through a link or over a file. Null,
// with `why` set, when it cannot be made.
std::unique_ptr<FdBuf> open_trace(std::string const& solver, std::string& path, std::string& why) {
  std::string const dir = trace_directory();
  if (!make_directories(dir)) {
    why = "cannot make the directory " + dir + ": " + std::strerror(errno);
    return nullptr;
  }
  struct timeval now;
  gettimeofday(&now, nullptr);
  std::tm local;
  localtime_r(&now.tv_sec, &local);
  char stamp[64];
  std::strftime(stamp, sizeof(stamp), "%Y%m%dT%H%M%S", &local);
  char micros[16];
  std::snprintf(micros, sizeof(micros), ".%06ld", static_cast<long>(now.tv_usec));
  for (int attempt = 0; attempt < 100; ++attempt) {
    path = dir + "/" + stamp + micros + "-" + std::to_string(getpid()) +
           (attempt == 0 ? "" : "-" + std::to_string(attempt)) + "-" + solver + ".smt2";
    int const fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd >= 0) {
      return std::make_unique<FdBuf>(fd);
    }
    if (errno != EEXIST) {
      break;
    }
  }
  why = "cannot create a file in " + dir + ": " + std::strerror(errno);
  return nullptr;
}

// Answers a version or help query as the real solver does: by the real solver when there is
// one, else from the library built in.
int answer_query(Invocation const& inv, std::vector<std::string> const& args) {
  std::string const real = find_real_solver(inv.solver);
  if (!real.empty()) {
    std::vector<char*> argv;
    std::string name = inv.solver;
    argv.push_back(name.data());
    std::vector<std::string> copy = args;
    for (std::string& a : copy) {
      argv.push_back(a.data());
    }
    argv.push_back(nullptr);
    std::cout.flush();
    execv(real.c_str(), argv.data());
  }
  std::string const version = builtin_engine_version(inv.solver);
  if (inv.help) {
    std::cout << "tvx-trace standing in for " << inv.solver
              << ": answers SMT-LIB 2 as it does and traces each session into " << trace_directory()
              << "\n";
    return 0;
  }
  if (inv.solver == "z3") {
    std::cout << "Z3 version " << (version.empty() ? "unknown" : version) << " - 64 bit\n";
  } else {
    std::cout << "This is cvc5 version " << (version.empty() ? "unknown" : version) << "\n";
  }
  return 0;
}

}  // namespace

std::string solver_of_program(std::string const& argv0) {
  std::string const base =
      argv0.substr(argv0.rfind('/') == std::string::npos ? 0 : argv0.rfind('/') + 1);
  if (base == "z3" || base == "cvc5") {
    return base;
  }
  // TVX_DROPIN_NAMES: further names, NAME=SOLVER separated by blanks ("z3-4.8=z3").
  if (char const* names = std::getenv("TVX_DROPIN_NAMES"); names != nullptr) {
    std::istringstream words(names);
    for (std::string entry; words >> entry;) {
      std::size_t const eq = entry.find('=');
      if (eq == base.size() && entry.compare(0, eq, base) == 0) {
        std::string const solver = entry.substr(eq + 1);
        if (solver == "z3" || solver == "cvc5") {
          return solver;
        }
      }
    }
  }
  return "";
}

int run(std::string const& solver, std::vector<std::string> const& args) {
  Invocation const inv = solver == "z3" ? parse_z3(args) : parse_cvc5(args);
  if (inv.version || inv.help) {
    return answer_query(inv, args);
  }
  std::string const prefix = "tvx (as " + solver + "): ";
  Configuration config;
  // TVX_TRACE_CONFIG: configuration entries for the trace, KEY=VALUE separated by blanks (such
  // as printer.defines_prefix=d_, whose labels cvc5 reads back).
  if (char const* entries = std::getenv("TVX_TRACE_CONFIG"); entries != nullptr) {
    std::istringstream words(entries);
    ConfigurationSetter setter;
    for (std::string entry; words >> entry;) {
      std::size_t const eq = entry.find('=');
      try {
        if (eq == std::string::npos) {
          throw std::invalid_argument("expected KEY=VALUE, found '" + entry + "'");
        }
        setter.set(&config, entry.substr(0, eq), entry.substr(eq + 1));
      } catch (std::invalid_argument const& e) {
        std::cerr << prefix << "warning: TVX_TRACE_CONFIG: " << e.what() << "; left out\n";
      }
    }
  }
  config.model_generation = inv.produce_models;
  config.unsat_core_generation = inv.produce_cores;
  config.timeout = inv.timeout;
  config.random_seed = inv.seed;

  // The engine: in process when built in, else the real solver next on PATH. It is made able
  // to give models and cores, which the session then allows as its options say.
  Configuration engine_config = config;
  engine_config.model_generation = true;
  engine_config.unsat_core_generation = true;
  TermManager mgr;
  std::unique_ptr<Engine> engine;
  std::string version = builtin_engine_version(solver);
  try {
    std::vector<std::string> const builtin = builtin_engine_names();
    if (std::find(builtin.begin(), builtin.end(), solver) != builtin.end()) {
      engine = make_engine(solver, mgr, engine_config);
    } else {
      std::string const real = find_real_solver(solver);
      if (real.empty()) {
        std::cerr << prefix << "error: " << solver
                  << " is neither built in nor found on PATH after this program\n";
        return 1;
      }
      engine =
          make_engine("'" + real + "'" + (solver == "z3" ? " -in" : " --incremental --lang smt2"),
                      mgr, engine_config);
    }
  } catch (Error const& e) {
    std::cerr << prefix << "error: " << e.what() << "\n";
    return 1;
  }

  // The trace: a session that cannot be traced is answered all the same.
  std::string path;
  std::string why;
  std::unique_ptr<FdBuf> trace_buf = open_trace(solver, path, why);
  std::unique_ptr<std::ostream> trace;
  std::unique_ptr<Solver> session;
  if (trace_buf != nullptr) {
    trace = std::make_unique<std::ostream>(trace_buf.get());
    char const* global = std::getenv("TVX_TRACE_GLOBAL_DECLS");
    bool const global_decls = global != nullptr && std::string(global) == "1";
    session = std::make_unique<Solver>(mgr, config, std::move(engine), *trace, global_decls, false);
  } else {
    std::cerr << prefix << "warning: " << why << "; this session is not traced\n";
    session = std::make_unique<Solver>(mgr, config, std::move(engine));
  }

  smt2::ScriptReader reader(*session);
  smt2::ResponseWriter responses(mgr, config, std::cout);
  reader.set_response_writer(&responses);
  smt2::SolverPersona persona;
  if (solver == "z3") {
    persona.name = "Z3";
    persona.authors = "Leonardo de Moura, Nikolaj Bjorner and Christoph Wintersteiger";
    persona.continued_execution = true;
    persona.echo_quoted = false;
    persona.reset_keeps_print_success = true;
  } else {
    persona.name = "cvc5";
    persona.authors = "the cvc5 authors";
    persona.continued_execution = inv.interactive;
    persona.echo_success = true;
  }
  persona.version = version;
  reader.set_persona(persona);

  int status = 0;
  auto read = [&](std::istream& in, std::string const& name) {
    try {
      reader.read(in, name);
    } catch (smt2::ReadError const& e) {
      responses.error(e.what());
      status = 1;
      return false;
    } catch (std::bad_alloc const&) {
      responses.error("out of memory");
      status = 1;
      return false;
    }
    return true;
  };
  if (inv.files.empty()) {
    read(std::cin, "<stdin>");
  }
  for (std::string const& file : inv.files) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
      responses.error("cannot open '" + file + "'");
      status = 1;
      break;
    }
    if (!read(in, file)) {
      break;
    }
  }
  session.reset();  // the trace is complete before its stream goes
  trace.reset();
  return status;
}

}  // namespace dropin
}  // namespace tvx
