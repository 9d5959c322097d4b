#include "util/errors.h"

#include <iostream>
#include <new>

namespace ictvcf {

std::string describe(const IoError& e) {
  std::string s = "ictvcf: " + e.file;
  if (e.line > 0) s += ", line " + std::to_string(e.line);
  s += ": ";
  s += e.what();
  return s;
}

int guarded(const std::function<void()>& body) {
  try {
    body();
  } catch (const StopRun& e) {
    std::cout << e.out << std::flush;
    return e.status;
  } catch (const IoError& e) {
    std::cout.flush();
    std::cerr << describe(e) << '\n';
    return 2;
  } catch (const FatalError& e) {
    std::cout.flush();
    std::cerr << e.what() << '\n';
    return e.status;
  } catch (const std::bad_alloc&) {
    std::cout.flush();
    std::cerr << "Allocation would exceed memory limit\n";
    return 1;
  }
  return 0;
}

}  // namespace ictvcf
