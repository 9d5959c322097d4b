#include "util/dir_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <tuple>

#include "util/strings.h"
#include "util/warning.h"

namespace ictvcf {

namespace {

struct LockedDir {
  dev_t dev;
  ino_t ino;
  int fd;
  std::string name;
};

}  // namespace

WorkFilesLock::WorkFilesLock(const std::string& infile) {
  const std::string in(rtrim(ltrim(infile)));
  std::vector<std::string> names{"."};
  if (const std::size_t slash = in.rfind('/'); slash != std::string::npos)
    names.push_back(slash == 0 ? "/" : in.substr(0, slash));

  std::vector<LockedDir> dirs;
  for (const std::string& name : names) {
    // A directory that cannot be opened is left unlocked: opening the input reports it.
    const int fd = ::open(name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) continue;
    struct stat st {};
    const bool seen = fstat(fd, &st) != 0 || std::any_of(dirs.begin(), dirs.end(), [&](auto& d) {
                        return d.dev == st.st_dev && d.ino == st.st_ino;
                      });
    if (seen) {
      ::close(fd);
      continue;
    }
    dirs.push_back({st.st_dev, st.st_ino, fd, name});
    fds_.push_back(fd);
  }
  // Every run takes the locks in the same order, so two runs never wait for each other in turn.
  std::sort(dirs.begin(), dirs.end(),
            [](auto& a, auto& b) { return std::tie(a.dev, a.ino) < std::tie(b.dev, b.ino); });

  bool told = false;
  for (const LockedDir& d : dirs) {
    if (flock(d.fd, LOCK_EX | LOCK_NB) == 0) continue;
    if (errno != EWOULDBLOCK) {
      warn("cannot lock the directory '" + d.name + "' (" + std::strerror(errno) +
           "): runs started together there may mix their work files");
      continue;
    }
    if (!told)
      warn("another run is using the work files of the directory '" + d.name +
           "' (.input.convert, the block file); waiting until it has read its input");
    told = true;
    while (flock(d.fd, LOCK_EX) != 0 && errno == EINTR) {
    }
  }
}

WorkFilesLock::~WorkFilesLock() {
  for (int fd : fds_) ::close(fd);
}

}  // namespace ictvcf
