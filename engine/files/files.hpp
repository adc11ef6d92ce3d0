// Model files: MPS (free and fixed) and LP format, plain or gzip-compressed. The dialects are
// described in mps.hpp and lp.hpp.
#pragma once

#include <string>

#include "store/model.hpp"

namespace nlra {

// Read a file into `model` (which must be empty; its name is taken from the file). Which format:
// see NLRAreadprob; where the name does not tell, the content does. Compressed files are known by
// their content as well. Throws Error NLRA_ERROR_FILE with "file:line: what is wrong", or
// NLRA_ERROR_ARGUMENT for unknown options; the model must then be discarded.
void read_model(Model& model, const std::string& filename, const std::string& options);

// Write; see NLRAwriteprob. A name that the format cannot hold (blanks, duplicates, ...) is an
// Error and no file is left behind or overwritten half-way.
void write_model(const Model& model, const std::string& filename, const std::string& options);

}  // namespace nlra
