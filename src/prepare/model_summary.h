// The lines `ictvcf prepare` prints about the model: which one, what each file contributed, the
// reorganisation energies and Huang-Rhys factors in Cartesian and internal coordinates with the
// primitives that carry their difference, the modes left out; and the warnings about them.
#pragma once

#include <string>
#include <vector>

#include "prepare/models.h"

namespace ictvcf {

// Complete lines, each ending in a newline.
std::string model_summary(const ModelReport& rep, const PrepareResult& r);

// One line each, without the prefix.
std::vector<std::string> model_warnings(const ModelReport& rep, const PrepareResult& r);

}  // namespace ictvcf
