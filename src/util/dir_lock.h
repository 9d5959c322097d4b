// An advisory lock (flock) on the directories that hold a run's shared work files: the working
// directory (".input.convert") and the input file's own directory (its block file). Held while
// those files are in use, so that runs started together take turns with them; it creates no
// file. A run that has to wait says so once on standard error.
#pragma once

#include <string>
#include <vector>

namespace ictvcf {

class WorkFilesLock {
 public:
  explicit WorkFilesLock(const std::string& infile);
  ~WorkFilesLock();
  WorkFilesLock(const WorkFilesLock&) = delete;
  WorkFilesLock& operator=(const WorkFilesLock&) = delete;

 private:
  std::vector<int> fds_;
};

}  // namespace ictvcf
