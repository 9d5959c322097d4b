// ictvcf: the thermal vibration correlation function of internal conversion.
#include "run/run.h"

int main(int argc, char** argv) { return ictvcf::main_entry(argc, argv); }
