// Warnings about input that is read as described but is probably not what the user meant, and
// about waits: one line each on standard error, "ictvcf: warning: ...". Standard output, the log
// and the table never carry them, so the described outputs do not depend on them.
#pragma once

#include <string>

namespace ictvcf {

void warn(const std::string& text);

// The place a warning points at: "file, line N: ", or "file: " for line 0.
std::string where(const std::string& file, long line);

}  // namespace ictvcf
