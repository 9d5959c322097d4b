// What a long run shows on a terminal while it works: a progress line on standard error.
#pragma once

#include "engine/engine.h"

namespace ictvcf {

// The progress line for long runs (an empty function when standard error is not a terminal).
Progress terminal_progress();

}  // namespace ictvcf
