// Finding and reading the parameter file of a volume.
#pragma once

#include <string_view>

#include "volume/parameter_text.h"

namespace qx {

// Sets what the parameter file nearest to the volume's directory says: the one in the directory itself, or in the first
// directory above it that has one, as long as the directory's name is not shorter than `rootLength`. Without such a
// file nothing is set. Raises 1029, and 107 for a file that cannot be read.
void ReadParameterFile(std::string_view volume, size_t rootLength, Parameters& parameters);

}  // namespace qx
