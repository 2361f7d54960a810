// Tests of Configuration and ConfigurationSetter: parsing by set() with its errors, and dump()
// calling the entry printer once per entry, with the entry's type, in the registry's order.
#include "core/configuration.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace tvx {
namespace {

// Records each entry the dump presents as "key:type=value".
class RecordingPrinter : public ConfigurationSetter::ConfigEntryPrinter {
 public:
  mutable std::vector<std::string> lines;
  void operator()(std::ostream&, std::string const& key, bool value) const override {
    lines.push_back(key + ":bool=" + (value ? "true" : "false"));
  }
  void operator()(std::ostream&, std::string const& key, int value) const override {
    lines.push_back(key + ":int=" + std::to_string(value));
  }
  void operator()(std::ostream&, std::string const& key, unsigned value) const override {
    lines.push_back(key + ":unsigned=" + std::to_string(value));
  }
  void operator()(std::ostream&, std::string const& key, double value) const override {
    std::ostringstream text;
    text << value;
    lines.push_back(key + ":double=" + text.str());
  }
  void operator()(std::ostream&, std::string const& key, std::string const& value) const override {
    lines.push_back(key + ":string=" + value);
  }
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
    std::string const prefix = std::string(e.key) + ":" + e.type + "=";
    EXPECT_EQ(lines[k].rfind(prefix, 0), 0u) << lines[k] << " at " << k << ", expected " << prefix;
    EXPECT_NE(std::string(e.description), "") << e.key;
    EXPECT_NO_THROW(ConfigurationSetter().set(&config, e.key, e.default_value)) << e.key;
  }
  EXPECT_EQ(dump(config), lines) << "setting the defaults changes nothing";
  for (char const* line :
       {"model_generation:bool=false", "random_seed:unsigned=0", "verbosity:int=0",
        "printer.defines_prefix:string=", "printer.let_prefix:string=",
        "debug.api_call_trace:int=0",
        "debug.api_call_trace_filename:string=", "debug.api_call_trace_dump_config:bool=false"}) {
    EXPECT_NE(std::find(lines.begin(), lines.end(), line), lines.end()) << line;
  }
}

TEST(ConfigurationTest, SetParsesTheValueForTheEntryType) {
  struct Row {
    char const* key;
    char const* text;
    char const* dumped;
  };
  for (Row const& row : {Row{"model_generation", "true", "model_generation:bool=true"},
                         Row{"random_seed", "4294967295", "random_seed:unsigned=4294967295"},
                         Row{"timeout", "2.5", "timeout:double=2.5"},
                         Row{"verbosity", "-2147483648", "verbosity:int=-2147483648"},
                         Row{"printer.let_prefix", "a \"b\"", "printer.let_prefix:string=a \"b\""},
                         Row{"debug.api_call_trace", "2", "debug.api_call_trace:int=2"}}) {
    Configuration config;
    ConfigurationSetter().set(&config, row.key, row.text);
    std::vector<std::string> const lines = dump(config);
    EXPECT_NE(std::find(lines.begin(), lines.end(), row.dumped), lines.end()) << row.dumped;
  }
}

TEST(ConfigurationTest, BadKeysAndValuesAreRefusedNamingTheKey) {
  struct Row {
    char const* key;
    char const* text;
  };
  for (Row const& row :
       {Row{"no_such_key", "1"}, Row{"printer", "x"}, Row{"model_generation", "yes"},
        Row{"verbosity", "1.5"}, Row{"verbosity", "2147483648"}, Row{"random_seed", "-1"},
        Row{"random_seed", "7 "}, Row{"timeout", "1.5x"}, Row{"timeout", ""}}) {
    Configuration config;
    std::string msg = "NO EXCEPTION";
    try {
      ConfigurationSetter().set(&config, row.key, row.text);
    } catch (std::invalid_argument const& e) {
      msg = e.what();
    }
    EXPECT_NE(msg.find(row.key), std::string::npos) << row.key << "=" << row.text << ": " << msg;
    Configuration fresh;
    EXPECT_EQ(dump(config), dump(fresh)) << "a refused value changes nothing";
  }
}

}  // namespace
}  // namespace tvx
