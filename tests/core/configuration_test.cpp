// Tests of Configuration and ConfigurationSetter: parsing by set() with its errors, dump()
// calling the entry printer once per entry, with the entry's type, in the registry's order.
#include <tvx/core/configuration.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace tvx {
namespace {

using Key = std::string const&;
using ::testing::Contains;

// Records each entry the dump presents as "key:type=value".
struct RecordingPrinter : ConfigurationSetter::ConfigEntryPrinter {
  mutable std::vector<std::string> lines;
  template <typename T>
  void add(Key key, char const* type, T v) const {
    std::ostringstream text;
    text << key << ":" << type << "=" << std::boolalpha << v;
    lines.push_back(text.str());
  }
  void operator()(std::ostream&, Key k, bool v) const override { add(k, "bool", v); }
  void operator()(std::ostream&, Key k, int v) const override { add(k, "int", v); }
  void operator()(std::ostream&, Key k, unsigned v) const override { add(k, "unsigned", v); }
  void operator()(std::ostream&, Key k, double v) const override { add(k, "double", v); }
  void operator()(std::ostream&, Key k, Key v) const override { add(k, "string", v); }
};

std::vector<std::string> dump(Configuration config) {
  RecordingPrinter printer;
  std::ostringstream os;
  ConfigurationSetter().dump(&config, os, printer);
  EXPECT_EQ(os.str(), "") << "the entry printer writes, not dump";
  return printer.lines;
}

TEST(ConfigurationTest, DumpPresentsEntriesInRegistryOrderAndSetParsesOrRefuses) {
  Configuration config;
  std::vector<std::string> const defaults = dump(config);
  ASSERT_EQ(defaults.size(), ConfigurationSetter::num_entries());
  for (std::size_t k = 0; k < defaults.size(); ++k) {
    ConfigurationSetter::EntryInfo const& e = ConfigurationSetter::entry(k);
    EXPECT_EQ(defaults[k].rfind(std::string(e.key) + ":" + e.type + "=", 0), 0u) << defaults[k];
    EXPECT_NE(std::string(e.description), "") << e.key;
    ConfigurationSetter().set(&config, e.key, e.default_value);
  }
  EXPECT_EQ(dump(config), defaults) << "setting the defaults changes nothing";
  for (char const* line :
       {"model_generation:bool=false", "random_seed:unsigned=0", "verbosity:int=0",
        "printer.defines_prefix:string=", "debug.api_call_trace_filename:string=",
        "debug.api_call_trace_dump_config:bool=false"})
    EXPECT_THAT(defaults, Contains(line));
  // set() parses the value for the entry's type; a refused key or value throws naming the key
  // and changes nothing.
  struct Row {
    char const *key, *text, *dumped;  // dumped null: refused
  };
  for (Row const& row :
       {Row{"model_generation", "true", "model_generation:bool=true"},
        Row{"random_seed", "4294967295", "random_seed:unsigned=4294967295"},
        Row{"timeout", "2.5", "timeout:double=2.5"},
        Row{"verbosity", "-2147483648", "verbosity:int=-2147483648"},
        Row{"printer.let_prefix", "a \"b\"", "printer.let_prefix:string=a \"b\""},
        Row{"no_such_key", "1", nullptr}, Row{"printer", "x", nullptr},
        Row{"model_generation", "yes", nullptr}, Row{"verbosity", "2147483648", nullptr},
        Row{"random_seed", "-1", nullptr}, Row{"random_seed", "7 ", nullptr},
        Row{"timeout", "1.5x", nullptr}, Row{"timeout", "", nullptr}}) {
    Configuration fresh;
    if (row.dumped != nullptr) {
      ConfigurationSetter().set(&fresh, row.key, row.text);
      EXPECT_THAT(dump(fresh), Contains(row.dumped));
    } else {
      EXPECT_THAT([&] { ConfigurationSetter().set(&fresh, row.key, row.text); },
                  ::testing::ThrowsMessage<std::invalid_argument>(::testing::HasSubstr(row.key)))
          << row.text;
      EXPECT_EQ(dump(fresh), defaults) << row.key << "=" << row.text;
    }
  }
}

}  // namespace
}  // namespace tvx
