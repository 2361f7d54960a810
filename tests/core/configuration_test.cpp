// Tests of Configuration and ConfigurationSetter: parsing by set() with its errors, dump()
// calling the entry printer once per entry, with the entry's type, in the registry's order.
#include "core/configuration.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace tvx {
namespace {

using Key = std::string const&;

// Records each entry the dump presents as "key:type=value".
struct RecordingPrinter : ConfigurationSetter::ConfigEntryPrinter {
  mutable std::vector<std::string> lines;
  template <typename T>
  void add(Key key, char const* type, T v) const {
    std::ostringstream text;
    text << std::boolalpha << v;
    lines.push_back(key + ":" + type + "=" + text.str());
  }
  void operator()(std::ostream&, Key k, bool v) const override { add(k, "bool", v); }
  void operator()(std::ostream&, Key k, int v) const override { add(k, "int", v); }
  void operator()(std::ostream&, Key k, unsigned v) const override { add(k, "unsigned", v); }
  void operator()(std::ostream&, Key k, double v) const override { add(k, "double", v); }
  void operator()(std::ostream&, Key k, Key v) const override { add(k, "string", v); }
};

std::vector<std::string> dump(Configuration& config) {
  RecordingPrinter printer;
  std::ostringstream os;
  ConfigurationSetter().dump(&config, os, printer);
  EXPECT_EQ(os.str(), "") << "the entry printer writes, not dump";
  return printer.lines;
}

TEST(ConfigurationTest, DumpPresentsEveryEntryInRegistryOrderWithItsDefault) {
  Configuration config;
  std::vector<std::string> const lines = dump(config);
  ASSERT_EQ(lines.size(), ConfigurationSetter::num_entries());
  for (std::size_t k = 0; k < lines.size(); ++k) {
    ConfigurationSetter::EntryInfo const& e = ConfigurationSetter::entry(k);
    EXPECT_EQ(lines[k].rfind(std::string(e.key) + ":" + e.type + "=", 0), 0u) << lines[k];
    EXPECT_NE(std::string(e.description), "") << e.key;
    EXPECT_NO_THROW(ConfigurationSetter().set(&config, e.key, e.default_value)) << e.key;
  }
  EXPECT_EQ(dump(config), lines) << "setting the defaults changes nothing";
  for (char const* line :
       {"model_generation:bool=false", "random_seed:unsigned=0", "verbosity:int=0",
        "printer.defines_prefix:string=", "debug.api_call_trace_filename:string=",
        "debug.api_call_trace_dump_config:bool=false"}) {
    EXPECT_NE(std::find(lines.begin(), lines.end(), line), lines.end()) << line;
  }
}

// set() parses the value for the entry's type; a refused key or value throws naming the key
// and changes nothing.
TEST(ConfigurationTest, SetParsesOrRefusesNamingTheKey) {
  struct Row {
    char const* key;
    char const* text;
    char const* dumped;  // null: refused
  };
  for (Row const& row : {Row{"model_generation", "true", "model_generation:bool=true"},
                         Row{"random_seed", "4294967295", "random_seed:unsigned=4294967295"},
                         Row{"timeout", "2.5", "timeout:double=2.5"},
                         Row{"verbosity", "-2147483648", "verbosity:int=-2147483648"},
                         Row{"printer.let_prefix", "a \"b\"", "printer.let_prefix:string=a \"b\""},
                         Row{"no_such_key", "1", nullptr}, Row{"printer", "x", nullptr},
                         Row{"model_generation", "yes", nullptr}, Row{"verbosity", "1.5", nullptr},
                         Row{"verbosity", "2147483648", nullptr}, Row{"random_seed", "-1", nullptr},
                         Row{"random_seed", "7 ", nullptr}, Row{"timeout", "1.5x", nullptr},
                         Row{"timeout", "", nullptr}}) {
    Configuration config;
    Configuration fresh;
    std::string msg = "NO EXCEPTION";
    try {
      ConfigurationSetter().set(&config, row.key, row.text);
    } catch (std::invalid_argument const& e) {
      msg = e.what();
    }
    std::vector<std::string> const lines = dump(config);
    if (row.dumped != nullptr) {
      EXPECT_NE(std::find(lines.begin(), lines.end(), row.dumped), lines.end()) << row.dumped;
    } else {
      EXPECT_NE(msg.find(row.key), std::string::npos) << row.key << "=" << row.text << ": " << msg;
      EXPECT_EQ(lines, dump(fresh)) << "a refused value changes nothing";
    }
  }
}

}  // namespace
}  // namespace tvx
