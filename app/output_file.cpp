// Creating the inventory file. The agent runs as root in directories that
// others can write to (/tmp), under a predictable name, so every step works
// on names relative to a directory descriptor taken at the start and never
// follows or replaces what someone else may have put there meanwhile.
#include "app/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <vector>

namespace {

// Permissions as a file opened with fopen(path, "w") gets them: 0666 less
// the umask (applied by the kernel).
constexpr mode_t kFileMode = 0666;
constexpr int kCreateFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;

bool write_all(int fd, const std::string& data) {
  size_t done = 0;
  while (done < data.size()) {
    const ssize_t n = write(fd, data.data() + done, data.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

// Writes data to the new descriptor fd and closes it; false when any byte
// did not make it (a full disk may only show at close).
bool fill_and_close(int fd, const std::string& data) {
  const bool written = write_all(fd, data);
  return close(fd) == 0 && written;
}

uint64_t mix(uint64_t x) {
  x += 0x9E3779B97F4A7C15ull;
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
  return x ^ (x >> 31);
}

// Creates a temporary file in the directory and returns its descriptor
// (-1 on failure). The names differ between processes and between calls
// (clock, process id, attempt number); exclusive creation settles any
// collision, which only costs another attempt. They start with "." and end
// in ".tmp", so a file left behind by a killed scan is never taken for an
// inventory.
int create_temp(int dir_fd, std::string* name) {
  struct timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  uint64_t state =
      mix(static_cast<uint64_t>(now.tv_sec) * 1000000000ull + static_cast<uint64_t>(now.tv_nsec)) ^
      mix(static_cast<uint64_t>(getpid()));
  for (int attempt = 0; attempt < 100; ++attempt) {
    state = mix(state + static_cast<uint64_t>(attempt));
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, ".quillscan-%016llx.tmp",
                  static_cast<unsigned long long>(state));
    *name = buffer;
    const int fd = openat(dir_fd, name->c_str(), kCreateFlags, kFileMode);
    if (fd >= 0 || errno != EEXIST) return fd;
  }
  return -1;
}

// The candidate a failed write is reported under: the first name that
// nothing in the directory has (not even a dangling link).
std::string first_free(const OutputDirectory& dir, const NameSequence& name_for) {
  for (int copy = 0;; ++copy) {
    std::string name = name_for(copy);
    struct stat st;
    if (fstatat(dir.fd(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 || copy == INT_MAX) {
      return name;
    }
  }
}

// Without hard links the file is created under its final name, still
// exclusively and without following links, and written there; only a scan
// killed during the write can then leave a partial file behind.
bool create_in_place(const OutputDirectory& dir, const NameSequence& name_for,
                     const std::string& data, std::string* chosen) {
  for (int copy = 0;; ++copy) {
    *chosen = name_for(copy);
    const int fd = openat(dir.fd(), chosen->c_str(), kCreateFlags, kFileMode);
    if (fd < 0) {
      if (errno == EEXIST && copy < INT_MAX) continue;
      return false;
    }
    if (fill_and_close(fd, data)) return true;
    unlinkat(dir.fd(), chosen->c_str(), 0);
    return false;
  }
}

}  // namespace

OutputDirectory::OutputDirectory(const std::string& path) : OutputDirectory(path, path) {}

OutputDirectory::OutputDirectory(const std::string& path, const std::string& shown)
    : fd_(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)), path_(shown) {
  // Without a descriptor (a directory that cannot be opened) the names are
  // taken relative to the current directory; creating them fails there as
  // it would have in the directory itself.
  if (fd_ < 0) fd_ = AT_FDCWD;
}

OutputDirectory::~OutputDirectory() {
  if (fd_ >= 0) close(fd_);
}

bool create_new_file(const OutputDirectory& dir, const NameSequence& name_for,
                     const std::string& data, std::string* chosen) {
  std::string temp;
  const int fd = create_temp(dir.fd(), &temp);
  if (fd < 0) {
    *chosen = first_free(dir, name_for);
    return false;
  }
  if (!fill_and_close(fd, data)) {
    unlinkat(dir.fd(), temp.c_str(), 0);
    *chosen = first_free(dir, name_for);
    return false;
  }
  // linkat() never replaces an existing entry: a file, directory or link
  // of that name (planted at any time before this call) gives EEXIST and
  // the next candidate is tried, as the numbering of copies demands.
  for (int copy = 0;; ++copy) {
    *chosen = name_for(copy);
    if (linkat(dir.fd(), temp.c_str(), dir.fd(), chosen->c_str(), 0) == 0) {
      unlinkat(dir.fd(), temp.c_str(), 0);
      return true;
    }
    if (errno == EEXIST && copy < INT_MAX) continue;
    // Any other refusal is taken as a file system without hard links (they
    // answer EPERM, EOPNOTSUPP or ENOSYS, and host file systems are not all
    // known); writing in place keeps every guarantee but the one about a
    // scan killed half way, and a real fault fails there as well.
    unlinkat(dir.fd(), temp.c_str(), 0);
    return create_in_place(dir, name_for, data, chosen);
  }
}
