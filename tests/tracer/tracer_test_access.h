// SmtLib2ApiTracerTestAccess: read-only views of a tracer's private state for the tests, and a
// recording stream buffer that tells written text from text delivered by a flush.
#ifndef TVX_TESTS_TRACER_TRACER_TEST_ACCESS_H
#define TVX_TESTS_TRACER_TRACER_TEST_ACCESS_H

#include <cstddef>
#include <ostream>
#include <streambuf>
#include <string>
#include <vector>

#include "tracer/smtlib2_api_tracer.h"

namespace tvx {

class SmtLib2ApiTracerTestAccess {
 public:
  static std::vector<Symbol const*> declared_symbols(SmtLib2ApiTracer const& t) {
    return {t.declared_symbols_.begin(), t.declared_symbols_.end()};
  }
  static std::vector<Symbol const*> const& symbol_decl_stack(SmtLib2ApiTracer const& t) {
    return t.symbol_decl_stack_;
  }
  static std::vector<DataType const*> declared_types(SmtLib2ApiTracer const& t) {
    return {t.declared_types_.begin(), t.declared_types_.end()};
  }
  static std::vector<DataType const*> const& type_decl_stack(SmtLib2ApiTracer const& t) {
    return t.type_decl_stack_;
  }
  static bool is_declared(SmtLib2ApiTracer const& t, Symbol const* s) {
    return t.declared_symbols_.count(s) != 0;
  }
  static bool is_declared(SmtLib2ApiTracer const& t, DataType const* ty) {
    return t.declared_types_.count(ty) != 0;
  }
  static int itp_group(SmtLib2ApiTracer const& t) { return t.itp_group_; }
  static bool global_decls(SmtLib2ApiTracer const& t) { return t.global_decls_; }
  static std::vector<bool> const& visit_marks(SmtLib2ApiTracer const& t) { return t.visit_marks_; }
  static bool any_visit_mark(SmtLib2ApiTracer const& t) {
    for (bool b : t.visit_marks_) {
      if (b) {
        return true;
      }
    }
    return false;
  }
  static std::size_t defined_terms_size(SmtLib2ApiTracer const& t) {
    return t.defined_terms_.size();
  }
  static bool is_defined(SmtLib2ApiTracer const& t, Term const* term) {
    return t.defined_terms_.find(term) != t.defined_terms_.end();
  }
  static std::size_t new_symbols_size(SmtLib2ApiTracer const& t) { return t.new_symbols_.size(); }
  static std::size_t new_types_size(SmtLib2ApiTracer const& t) { return t.new_types_.size(); }
  static bool formula_scratch_empty(SmtLib2ApiTracer const& t) {
    return t.definitions_.empty() && t.formula_stack_.empty();
  }
};

// A stream buffer with its own put area: written text stays pending until sync() (a flush)
// or a full buffer delivers it. Counts the sync() calls.
class RecordingBuf : public std::streambuf {
 public:
  explicit RecordingBuf(std::size_t capacity = 1 << 16) : buffer_(capacity) {
    setp(buffer_.data(), buffer_.data() + buffer_.size());
  }

  // Everything written so far, delivered or not.
  std::string text() const { return delivered_ + std::string(pbase(), pptr()); }
  // Only what a flush (or a full buffer) has passed on.
  std::string const& delivered() const { return delivered_; }
  int syncs() const { return syncs_; }
  void clear() {
    deliver();
    delivered_.clear();
    syncs_ = 0;
  }

 protected:
  int sync() override {
    ++syncs_;
    deliver();
    return 0;
  }
  int_type overflow(int_type ch) override {
    deliver();
    if (!traits_type::eq_int_type(ch, traits_type::eof())) {
      delivered_.push_back(traits_type::to_char_type(ch));
    }
    return traits_type::not_eof(ch);
  }

 private:
  void deliver() {
    delivered_.append(pbase(), pptr());
    setp(buffer_.data(), buffer_.data() + buffer_.size());
  }

  std::vector<char> buffer_;
  std::string delivered_;
  int syncs_ = 0;
};

}  // namespace tvx

#endif  // TVX_TESTS_TRACER_TRACER_TEST_ACCESS_H
