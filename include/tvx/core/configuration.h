// Configuration: the environment's typed settings under dotted keys, and ConfigurationSetter,
// which sets them from text and walks them in one fixed order (the order of the registry).
#ifndef TVX_CORE_CONFIGURATION_H
#define TVX_CORE_CONFIGURATION_H

#include <cstddef>
#include <ostream>
#include <string>

#include <tvx/core/error.h>

namespace tvx {

class Configuration {
 public:
  // Settings of the term printers.
  struct Printer {
    // Prefix of the labels that name defined terms in a global-declarations trace; empty
    // means ".".
    std::string defines_prefix;
    // Prefix of the names that print_term gives to let-bound subterms; empty means "_let_".
    std::string let_prefix;
  };

  // Engine behaviour; every engine reads these when it is made.
  bool model_generation = false;       // keep a model after a satisfiable check
  bool unsat_core_generation = false;  // track assertions for unsat cores
  unsigned random_seed = 0;
  double timeout = 0.0;  // seconds per check; 0 means none
  int verbosity = 0;     // the engine's diagnostics on standard error; 0 for none
  Printer printer;
  // API call tracing by a Solver: on or off, where to (a file name, "-" for standard output),
  // in which mode, and whether the trace starts with the configuration.
  bool api_call_trace = false;
  std::string api_call_trace_filename;
  bool api_call_trace_global_decls = false;
  bool api_call_trace_dump_config = false;
};

class ConfigurationSetter {
 public:
  // Receives one entry of a dump: the stream given to dump, the key and the typed value.
  class ConfigEntryPrinter {
   public:
    virtual ~ConfigEntryPrinter();
    virtual void operator()(std::ostream& os, std::string const& key, bool value) const = 0;
    virtual void operator()(std::ostream& os, std::string const& key, int value) const = 0;
    virtual void operator()(std::ostream& os, std::string const& key, unsigned value) const = 0;
    virtual void operator()(std::ostream& os, std::string const& key, double value) const = 0;
    virtual void operator()(std::ostream& os, std::string const& key,
                            std::string const& value) const = 0;
  };

  // One registry row, for help texts and tools.
  struct EntryInfo {
    char const* key;
    char const* type;  // "bool", "int", "unsigned", "double" or "string"
    char const* default_value;
    char const* description;
  };

  ConfigurationSetter() = default;
  ~ConfigurationSetter() = default;

  // Parses `value` for the type of the entry `key` and stores it. Throws
  // tvx::Error naming the key for an unknown key or a value that does not parse
  // (bool: true/false; int, unsigned: decimal in range; double: a decimal number).
  void set(Configuration* config, std::string const& key, std::string const& value) const;

  // Calls `printer` once per entry, in registry order (the order of `entries()`).
  void dump(Configuration* config, std::ostream& os, ConfigEntryPrinter const& printer) const;

  static std::size_t num_entries();
  static EntryInfo const& entry(std::size_t i);
};

}  // namespace tvx

#endif  // TVX_CORE_CONFIGURATION_H
