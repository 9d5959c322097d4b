// ictvcf: the thermal vibration correlation function of internal conversion.
#include "cli/cli.h"

int main(int argc, char** argv) { return ictvcf::main_entry(argc, argv); }
