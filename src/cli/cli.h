// The command line: `ictvcf INPUT` (the run), `ictvcf rate INPUT`, `--help`, `--version`.
#pragma once

namespace ictvcf {

// Returns the exit status; every error becomes its message and status here.
int main_entry(int argc, char** argv);

}  // namespace ictvcf
