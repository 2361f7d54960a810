#include <tvx/core/configuration.h>

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <stdexcept>
#include <string>

namespace tvx {

namespace {

enum class Type { Bool, Int, Unsigned, Double, String };

// One row of the registry: where the value lives in a Configuration and how it is described.
struct Entry {
  ConfigurationSetter::EntryInfo info;
  Type type;
  bool Configuration::*bool_field;
  int Configuration::*int_field;
  unsigned Configuration::*unsigned_field;
  double Configuration::*double_field;
  std::string* (*string_field)(Configuration*);
};

std::string* defines_prefix(Configuration* c) {
  return &c->printer.defines_prefix;
}
std::string* let_prefix(Configuration* c) {
  return &c->printer.let_prefix;
}
std::string* trace_filename(Configuration* c) {
  return &c->api_call_trace_filename;
}

Entry make_bool(char const* key, char const* def, char const* desc, bool Configuration::*f) {
  return {{key, "bool", def, desc}, Type::Bool, f, nullptr, nullptr, nullptr, nullptr};
}
Entry make_int(char const* key, char const* def, char const* desc, int Configuration::*f) {
  return {{key, "int", def, desc}, Type::Int, nullptr, f, nullptr, nullptr, nullptr};
}
Entry make_unsigned(char const* key, char const* def, char const* desc,
                    unsigned Configuration::*f) {
  return {{key, "unsigned", def, desc}, Type::Unsigned, nullptr, nullptr, f, nullptr, nullptr};
}
Entry make_double(char const* key, char const* def, char const* desc, double Configuration::*f) {
  return {{key, "double", def, desc}, Type::Double, nullptr, nullptr, nullptr, f, nullptr};
}
Entry make_string(char const* key, char const* def, char const* desc,
                  std::string* (*f)(Configuration*)) {
  return {{key, "string", def, desc}, Type::String, nullptr, nullptr, nullptr, nullptr, f};
}

// The registry, in dump order.
Entry const kEntries[] = {
    make_bool("model_generation", "false", "compute a model after a satisfiable check",
              &Configuration::model_generation),
    make_bool("unsat_core_generation", "false",
              "compute an unsat core after an unsatisfiable check",
              &Configuration::unsat_core_generation),
    make_unsigned("random_seed", "0", "seed of the solver's pseudo-random choices",
                  &Configuration::random_seed),
    make_double("timeout", "0", "time limit of each check in seconds, 0 for none",
                &Configuration::timeout),
    make_int("verbosity", "0", "amount of the engine's diagnostic output, 0 for none",
             &Configuration::verbosity),
    make_string("printer.defines_prefix", "",
                "prefix of the names of defined terms in traces (empty: \".\")", &defines_prefix),
    make_string("printer.let_prefix", "",
                "prefix of let-bound names in printed terms (empty: \"_let_\")", &let_prefix),
    make_bool("debug.api_call_trace", "false", "trace the API calls of every solver",
              &Configuration::api_call_trace),
    make_string("debug.api_call_trace_filename", "",
                "file the API call trace is written to, \"-\" for standard output",
                &trace_filename),
    make_bool("debug.api_call_trace_global_decls", "false",
              "trace in global-declarations mode: every term defined once and named by its label",
              &Configuration::api_call_trace_global_decls),
    make_bool("debug.api_call_trace_dump_config", "false",
              "write the configuration at the start of the API call trace",
              &Configuration::api_call_trace_dump_config),
};

[[noreturn]] void bad_value(Entry const& e, std::string const& value) {
  throw Error("invalid value '" + value + "' for configuration key '" + e.info.key +
              "': expected " + e.info.type);
}

bool parse_integer(std::string const& value, long long min, long long max, long long* out) {
  if (value.empty() || std::isspace(static_cast<unsigned char>(value[0]))) {
    return false;
  }
  if (min >= 0 && value[0] == '-') {
    return false;
  }
  errno = 0;
  char* end = nullptr;
  long long v = std::strtoll(value.c_str(), &end, 10);
  if (errno != 0 || end != value.c_str() + value.size() || v < min || v > max) {
    return false;
  }
  *out = v;
  return true;
}

}  // namespace

ConfigurationSetter::ConfigEntryPrinter::~ConfigEntryPrinter() = default;

std::size_t ConfigurationSetter::num_entries() {
  return sizeof(kEntries) / sizeof(kEntries[0]);
}

ConfigurationSetter::EntryInfo const& ConfigurationSetter::entry(std::size_t i) {
  return kEntries[i].info;
}

void ConfigurationSetter::set(Configuration* config, std::string const& key,
                              std::string const& value) const {
  for (Entry const& e : kEntries) {
    if (key != e.info.key) {
      continue;
    }
    switch (e.type) {
      case Type::Bool:
        if (value == "true") {
          config->*e.bool_field = true;
        } else if (value == "false") {
          config->*e.bool_field = false;
        } else {
          bad_value(e, value);
        }
        return;
      case Type::Int: {
        long long v;
        if (!parse_integer(value, std::numeric_limits<int>::min(), std::numeric_limits<int>::max(),
                           &v)) {
          bad_value(e, value);
        }
        config->*e.int_field = static_cast<int>(v);
        return;
      }
      case Type::Unsigned: {
        long long v;
        if (!parse_integer(value, 0, std::numeric_limits<unsigned>::max(), &v)) {
          bad_value(e, value);
        }
        config->*e.unsigned_field = static_cast<unsigned>(v);
        return;
      }
      case Type::Double: {
        if (value.empty() || std::isspace(static_cast<unsigned char>(value[0]))) {
          bad_value(e, value);
        }
        errno = 0;
        char* end = nullptr;
        double v = std::strtod(value.c_str(), &end);
        if (errno != 0 || end != value.c_str() + value.size() || !std::isfinite(v)) {
          bad_value(e, value);
        }
        config->*e.double_field = v;
        return;
      }
      case Type::String:
        *e.string_field(config) = value;
        return;
    }
  }
  throw Error("unknown configuration key '" + key + "'");
}

void ConfigurationSetter::dump(Configuration* config, std::ostream& os,
                               ConfigEntryPrinter const& printer) const {
  for (Entry const& e : kEntries) {
    switch (e.type) {
      case Type::Bool:
        printer(os, e.info.key, config->*e.bool_field);
        break;
      case Type::Int:
        printer(os, e.info.key, config->*e.int_field);
        break;
      case Type::Unsigned:
        printer(os, e.info.key, config->*e.unsigned_field);
        break;
      case Type::Double:
        printer(os, e.info.key, config->*e.double_field);
        break;
      case Type::String:
        printer(os, e.info.key, *e.string_field(config));
        break;
    }
  }
}

}  // namespace tvx
