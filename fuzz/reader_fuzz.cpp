// Fuzz target: arbitrary bytes read as an SMT-LIB 2 script and traced. Every input must end
// either in a complete trace or in a ReadError of the form "FILE:LINE:COLUMN: error: ..." whose
// position lies inside the input; reading the input from a stream that hands it out a few bytes
// at a time must give the same trace and error; whatever was traced up to that point must read
// back through a fresh reader without error. Anything else escaping, a crash or a sanitizer
// report is a finding.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <istream>
#include <new>
#include <sstream>
#include <streambuf>
#include <string>

#include <tvx/core/configuration.h>
#include <tvx/core/term_manager.h>
#include <tvx/smt2/read_error.h>
#include <tvx/smt2/script_reader.h>
#include <tvx/tracer/smtlib2_api_tracer.h>

namespace tvx {
namespace {

// An input stream buffer over the fuzzer's bytes, without a copy, that hands them out `piece`
// bytes at a time.
class BytesBuf : public std::streambuf {
 public:
  BytesBuf(std::uint8_t const* data, std::size_t size, std::size_t piece)
      : next_(const_cast<char*>(reinterpret_cast<char const*>(data))),
        end_(next_ + size),
        piece_(piece) {}

 protected:
  int_type underflow() override {
    if (next_ == end_) {
      return traits_type::eof();
    }
    char* const begin = next_;
    next_ += std::min(piece_, static_cast<std::size_t>(end_ - next_));
    setg(begin, begin, next_);
    return traits_type::to_int_type(*begin);
  }

 private:
  char* next_;
  char* end_;
  std::size_t piece_;
};

// Swallows everything written; keeps the stream good.
class NullBuf : public std::streambuf {
 protected:
  int_type overflow(int_type ch) override { return traits_type::not_eof(ch); }
  std::streamsize xsputn(char const*, std::streamsize n) override { return n; }
};

[[noreturn]] void finding(char const* what, std::string const& detail) {
  std::fprintf(stderr, "reader_fuzz finding: %s: %s\n", what, detail.c_str());
  std::abort();
}

// The position of a ReadError must name a line of the input and a column of that line (or
// the one just past its end, where end of input is reported).
void check_position(smt2::ReadError const& e, std::string const& file, std::uint8_t const* data,
                    std::size_t size) {
  std::string const what = e.what();
  std::string const prefix =
      file + ":" + std::to_string(e.line()) + ":" + std::to_string(e.column()) + ": error: ";
  if (what.compare(0, prefix.size(), prefix) != 0 || what.size() == prefix.size()) {
    finding("malformed error line", what);
  }
  if (e.file() != file || e.line() == 0 || e.column() == 0) {
    finding("error position out of range", what);
  }
  std::uint64_t line = 1;
  std::size_t start = 0;
  for (std::size_t i = 0; i < size && line < e.line(); ++i) {
    if (data[i] == '\n') {
      ++line;
      start = i + 1;
    }
  }
  if (line != e.line()) {
    finding("error line beyond the input", what);
  }
  std::size_t end = start;
  while (end < size && data[end] != '\n') {
    ++end;
  }
  if (e.column() > end - start + 1) {
    finding("error column beyond its line", what);
  }
}

// Reads `text` with a tracer into `out`; returns normally or throws ReadError. Any other
// exception apart from running out of memory is a finding.
// The trace without its time stamp line.
std::string without_stamp(std::string text) {
  std::size_t const at = text.find(";; generated on ");
  return at == std::string::npos ? text : text.erase(at, text.find('\n', at) + 1 - at);
}

void read_script(std::istream& in, std::string const& file, std::ostream& out, bool global,
                 Configuration& config) {
  TermManager mgr;
  Solver solver(mgr, config, nullptr, out, global, false);
  smt2::ScriptReader reader(solver);
  try {
    reader.read(in, file);
  } catch (smt2::ReadError const&) {
    throw;
  } catch (std::bad_alloc const&) {
    throw;
  } catch (std::exception const& e) {
    finding("exception other than ReadError", e.what());
  } catch (...) {
    finding("exception other than ReadError", "not a std::exception");
  }
}

}  // namespace
}  // namespace tvx

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  using namespace tvx;
  // The mode comes from the input's length, so that each input has one fixed meaning.
  bool const global = (size & 1) != 0;
  std::string const file = "fuzz.smt2";
  std::ostringstream trace;
  Configuration config;
  std::string error;
  try {
    BytesBuf buf(data, size, size);
    std::istream in(&buf);
    read_script(in, file, trace, global, config);
  } catch (smt2::ReadError const& e) {
    check_position(e, file, data, size);
    error = e.what();
  } catch (std::bad_alloc const&) {
    return 0;
  }

  // Read again from a stream that hands the bytes out 1 to 7 at a time (by the length), so
  // that tokens straddle the ends of the reader's buffer-fulls: the same trace, the same error.
  std::ostringstream trace_in_pieces;
  std::string error_in_pieces;
  try {
    BytesBuf buf(data, size, 1 + (size >> 1) % 7);
    std::istream in(&buf);
    Configuration fresh;
    read_script(in, file, trace_in_pieces, global, fresh);
  } catch (smt2::ReadError const& e) {
    error_in_pieces = e.what();
  } catch (std::bad_alloc const&) {
    return 0;
  }
  if (error_in_pieces != error ||
      without_stamp(trace_in_pieces.str()) != without_stamp(trace.str())) {
    finding("reading in pieces differs", error + " / " + error_in_pieces);
  }

  // What was traced, complete or up to the error, is a script the reader accepts as a whole,
  // unless the script chose the label prefix itself: labels carry it unchecked, so keeping them
  // apart from the script's names and readable is then the script's business.
  if (!config.printer.defines_prefix.empty()) {
    return 0;
  }
  std::string const text = trace.str();
  std::istringstream again(text);
  NullBuf null_buf;
  std::ostream null_out(&null_buf);
  try {
    Configuration fresh;
    read_script(again, "trace.smt2", null_out, false, fresh);
  } catch (smt2::ReadError const& e) {
    finding("the trace does not read back", std::string(e.what()) + "\n--- trace ---\n" + text);
  } catch (std::bad_alloc const&) {
    return 0;
  }
  return 0;
}
