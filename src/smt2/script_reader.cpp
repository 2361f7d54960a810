// ScriptReader: the public face of the reader, whose parts are declared in reader_impl.h.
#include <tvx/smt2/script_reader.h>

#include "smt2/reader_impl.h"

namespace tvx {
namespace smt2 {

ScriptReader::ScriptReader(Solver& solver) : impl_(new Impl(solver)) {}

ScriptReader::~ScriptReader() = default;

void ScriptReader::read(std::istream& in, std::string const& filename) {
  impl_->read(in, filename);
}

void ScriptReader::set_progress_callback(ProgressCallback callback) {
  impl_->progress_ = std::move(callback);
}

void ScriptReader::set_response_writer(ResponseWriter* writer) {
  impl_->responses_ = writer;
}

void ScriptReader::set_persona(SolverPersona persona) {
  impl_->persona_ = std::move(persona);
}

std::uint64_t ScriptReader::errors_answered() const {
  return impl_->errors_answered_;
}

}  // namespace smt2
}  // namespace tvx
