// Tests of Configuration and ConfigurationSetter: the registry of typed entries, parsing by
// set() with its errors, and dump() calling the entry printer once per entry in a fixed order.
#include "core/configuration.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace tvx {
namespace {

// One call of the entry printer.
struct Record {
  std::ostream* os;
  std::string key;
  std::string type;
  std::string value;  // the value as text: true/false, decimal, or the string itself
  double number = 0.0;
};

class RecordingPrinter : public ConfigurationSetter::ConfigEntryPrinter {
 public:
  mutable std::vector<Record> records;

  void operator()(std::ostream& os, std::string const& key, bool value) const override {
    records.push_back({&os, key, "bool", value ? "true" : "false"});
  }
  void operator()(std::ostream& os, std::string const& key, int value) const override {
    records.push_back({&os, key, "int", std::to_string(value), static_cast<double>(value)});
  }
  void operator()(std::ostream& os, std::string const& key, unsigned value) const override {
    records.push_back({&os, key, "unsigned", std::to_string(value), static_cast<double>(value)});
  }
  void operator()(std::ostream& os, std::string const& key, double value) const override {
    records.push_back({&os, key, "double", std::to_string(value), value});
  }
  void operator()(std::ostream& os, std::string const& key,
                  std::string const& value) const override {
    records.push_back({&os, key, "string", value});
  }
};

// The entries every environment relies on, with their value types.
std::map<std::string, std::string> const kRequiredEntries = {
    {"model_generation", "bool"},
    {"unsat_core_generation", "bool"},
    {"interpolation", "bool"},
    {"random_seed", "unsigned"},
    {"timeout", "double"},
    {"verbosity", "int"},
    {"printer.defines_prefix", "string"},
    {"printer.let_prefix", "string"},
    {"debug.api_call_trace", "int"},
    {"debug.api_call_trace_filename", "string"},
    {"debug.api_call_trace_dump_config", "bool"},
};

class ConfigurationTest : public ::testing::Test {
 protected:
  Configuration config;
  ConfigurationSetter setter;

  std::vector<Record> dump(Configuration& c) {
    RecordingPrinter printer;
    std::ostringstream os;
    setter.dump(&c, os, printer);
    for (Record const& r : printer.records) {
      EXPECT_EQ(r.os, &os) << r.key << ": the entry printer gets the stream given to dump";
    }
    EXPECT_TRUE(os.str().empty()) << "dump itself writes nothing: " << os.str();
    return printer.records;
  }

  Record const* find(std::vector<Record> const& records, std::string const& key) {
    for (Record const& r : records) {
      if (r.key == key) {
        return &r;
      }
    }
    return nullptr;
  }
};

TEST_F(ConfigurationTest, RegistryHoldsTheRequiredEntriesWithTheirTypes) {
  std::set<std::string> keys;
  std::set<std::string> const types = {"bool", "int", "unsigned", "double", "string"};
  for (std::size_t k = 0; k < ConfigurationSetter::num_entries(); ++k) {
    ConfigurationSetter::EntryInfo const& e = ConfigurationSetter::entry(k);
    ASSERT_NE(e.key, nullptr);
    ASSERT_NE(e.type, nullptr);
    EXPECT_TRUE(keys.insert(e.key).second) << "duplicate key " << e.key;
    EXPECT_EQ(types.count(e.type), 1u) << e.key << " has type " << e.type;
    EXPECT_NE(e.default_value, nullptr) << e.key;
    ASSERT_NE(e.description, nullptr) << e.key;
    EXPECT_GT(std::string(e.description).size(), 0u) << e.key;
    auto it = kRequiredEntries.find(e.key);
    if (it != kRequiredEntries.end()) {
      EXPECT_EQ(e.type, it->second) << e.key;
    }
  }
  for (auto const& [key, type] : kRequiredEntries) {
    EXPECT_EQ(keys.count(key), 1u) << "missing entry " << key;
  }
}

TEST_F(ConfigurationTest, DumpCallsThePrinterOncePerEntryInRegistryOrder) {
  std::vector<Record> records = dump(config);
  ASSERT_EQ(records.size(), ConfigurationSetter::num_entries());
  for (std::size_t k = 0; k < records.size(); ++k) {
    ConfigurationSetter::EntryInfo const& e = ConfigurationSetter::entry(k);
    EXPECT_EQ(records[k].key, e.key) << "position " << k;
    EXPECT_EQ(records[k].type, e.type) << e.key << ": overload of the entry's type";
  }
  // The order is fixed: a changed configuration dumps in the same order.
  Configuration other;
  setter.set(&other, "verbosity", "3");
  setter.set(&other, "printer.defines_prefix", "d");
  std::vector<Record> again = dump(other);
  ASSERT_EQ(again.size(), records.size());
  for (std::size_t k = 0; k < records.size(); ++k) {
    EXPECT_EQ(again[k].key, records[k].key);
  }
}

TEST_F(ConfigurationTest, FreshConfigurationDumpsItsDefaults) {
  std::vector<Record> records = dump(config);
  for (std::size_t k = 0; k < records.size(); ++k) {
    ConfigurationSetter::EntryInfo const& e = ConfigurationSetter::entry(k);
    if (e.default_value == nullptr) {
      continue;
    }
    std::string def = e.default_value;
    if (records[k].type == "double") {
      EXPECT_DOUBLE_EQ(records[k].number, std::stod(def)) << e.key;
    } else {
      EXPECT_EQ(records[k].value, def) << e.key;
    }
    // Setting the documented default is accepted and changes nothing.
    Configuration c;
    EXPECT_NO_THROW(setter.set(&c, e.key, def)) << e.key << " = " << def;
  }
  struct Expect {
    char const* key;
    char const* value;
  };
  for (Expect const& x :
       {Expect{"model_generation", "false"}, Expect{"unsat_core_generation", "false"},
        Expect{"interpolation", "false"}, Expect{"random_seed", "0"}, Expect{"verbosity", "0"},
        Expect{"printer.defines_prefix", ""}, Expect{"printer.let_prefix", ""},
        Expect{"debug.api_call_trace", "0"}, Expect{"debug.api_call_trace_filename", ""},
        Expect{"debug.api_call_trace_dump_config", "false"}}) {
    Record const* r = find(records, x.key);
    ASSERT_NE(r, nullptr) << x.key;
    EXPECT_EQ(r->value, x.value) << x.key;
  }
}

TEST_F(ConfigurationTest, SetParsesForTheEntryType) {
  struct Row {
    char const* key;
    char const* text;
    std::function<bool(Configuration const&)> stored;
    char const* dumped;  // the dumped value, as RecordingPrinter writes it
  };
  std::vector<Row> rows = {
      {"model_generation", "true", [](Configuration const& c) { return c.model_generation; },
       "true"},
      {"unsat_core_generation", "true",
       [](Configuration const& c) { return c.unsat_core_generation; }, "true"},
      {"interpolation", "true", [](Configuration const& c) { return c.interpolation; }, "true"},
      {"random_seed", "42", [](Configuration const& c) { return c.random_seed == 42u; }, "42"},
      {"random_seed", "4294967295",
       [](Configuration const& c) { return c.random_seed == 4294967295u; }, "4294967295"},
      {"timeout", "2.5", [](Configuration const& c) { return c.timeout == 2.5; }, "2.500000"},
      {"timeout", "10", [](Configuration const& c) { return c.timeout == 10.0; }, "10.000000"},
      {"verbosity", "-3", [](Configuration const& c) { return c.verbosity == -3; }, "-3"},
      {"verbosity", "2147483647", [](Configuration const& c) { return c.verbosity == 2147483647; },
       "2147483647"},
      {"verbosity", "-2147483648",
       [](Configuration const& c) { return c.verbosity == -2147483647 - 1; }, "-2147483648"},
      {"printer.defines_prefix", "lbl_",
       [](Configuration const& c) { return c.printer.defines_prefix == "lbl_"; }, "lbl_"},
      {"printer.let_prefix", "a b",
       [](Configuration const& c) { return c.printer.let_prefix == "a b"; }, "a b"},
      {"debug.api_call_trace", "2", [](Configuration const& c) { return c.api_call_trace == 2; },
       "2"},
      {"debug.api_call_trace_filename", "/tmp/trace file.smt2",
       [](Configuration const& c) { return c.api_call_trace_filename == "/tmp/trace file.smt2"; },
       "/tmp/trace file.smt2"},
      {"debug.api_call_trace_dump_config", "true",
       [](Configuration const& c) { return c.api_call_trace_dump_config; }, "true"},
  };
  for (Row const& row : rows) {
    Configuration c;
    ASSERT_NO_THROW(setter.set(&c, row.key, row.text)) << row.key << " = " << row.text;
    EXPECT_TRUE(row.stored(c)) << row.key << " = " << row.text;
    std::vector<Record> records = dump(c);
    Record const* r = find(records, row.key);
    ASSERT_NE(r, nullptr) << row.key;
    EXPECT_EQ(r->value, row.dumped) << row.key;
  }
  // Booleans go both ways; strings can be emptied again.
  setter.set(&config, "model_generation", "true");
  setter.set(&config, "model_generation", "false");
  EXPECT_FALSE(config.model_generation);
  setter.set(&config, "printer.defines_prefix", "x");
  setter.set(&config, "printer.defines_prefix", "");
  EXPECT_EQ(config.printer.defines_prefix, "");
}

TEST_F(ConfigurationTest, BadKeysAndValuesAreRefusedNamingKeyAndType) {
  struct Row {
    char const* key;
    char const* text;
    char const* type;  // mentioned in the message; null for an unknown key
  };
  std::vector<Row> rows = {
      {"no_such_key", "1", nullptr},
      {"", "1", nullptr},
      {"printer", "x", nullptr},
      {"printer.no_such", "x", nullptr},
      {"model_generation.x", "true", nullptr},
      {"model_generation", "yes", "bool"},
      {"model_generation", "", "bool"},
      {"model_generation", "truex", "bool"},
      {"debug.api_call_trace_dump_config", "maybe", "bool"},
      {"verbosity", "", "int"},
      {"verbosity", "abc", "int"},
      {"verbosity", "1.5", "int"},
      {"verbosity", "12x", "int"},
      {"verbosity", "2147483648", "int"},
      {"verbosity", "-2147483649", "int"},
      {"verbosity", "99999999999999999999999", "int"},
      {"debug.api_call_trace", "on", "int"},
      {"random_seed", "-1", "unsigned"},
      {"random_seed", "4294967296", "unsigned"},
      {"random_seed", "abc", "unsigned"},
      {"random_seed", "", "unsigned"},
      {"random_seed", "7 ", "unsigned"},
      {"timeout", "", "double"},
      {"timeout", "abc", "double"},
      {"timeout", "1.5x", "double"},
      {"timeout", "--1", "double"},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(std::string(row.key) + " = \"" + row.text + "\"");
    Configuration c;
    std::string msg = "<no exception>";
    try {
      setter.set(&c, row.key, row.text);
    } catch (std::invalid_argument const& e) {
      msg = e.what();
    } catch (std::exception const& e) {
      msg = std::string("<wrong exception type: ") + e.what() + ">";
    }
    ASSERT_NE(msg.rfind("<", 0), 0u) << msg;
    if (row.key[0] != '\0') {
      EXPECT_NE(msg.find(row.key), std::string::npos) << "message does not name the key: " << msg;
    }
    if (row.type != nullptr) {
      EXPECT_NE(msg.find(row.type), std::string::npos)
          << "message does not name the type " << row.type << ": " << msg;
    }
    // A refused value leaves the configuration as it was.
    Configuration fresh;
    std::vector<Record> before = dump(fresh);
    std::vector<Record> after = dump(c);
    ASSERT_EQ(before.size(), after.size());
    for (std::size_t k = 0; k < before.size(); ++k) {
      EXPECT_EQ(after[k].value, before[k].value) << after[k].key;
    }
  }
}

}  // namespace
}  // namespace tvx
