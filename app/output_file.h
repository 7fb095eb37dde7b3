// Creating the inventory file: never through a link, never over an
// existing file, never half-written under its final name.
#ifndef QUILLSCAN_APP_OUTPUT_FILE_H_
#define QUILLSCAN_APP_OUTPUT_FILE_H_

#include <functional>
#include <string>

// The directory a scan writes into, held open from the start of the scan so
// that renaming it or swapping it for a link later changes nothing.
class OutputDirectory {
 public:
  // The directory at path, named path in messages.
  explicit OutputDirectory(const std::string& path);
  // The directory at path, named shown in messages (the current directory
  // is opened as "." and shown by its absolute name).
  OutputDirectory(const std::string& path, const std::string& shown);
  ~OutputDirectory();
  OutputDirectory(const OutputDirectory&) = delete;
  OutputDirectory& operator=(const OutputDirectory&) = delete;

  // The descriptor for the *at() calls (AT_FDCWD when the directory could
  // not be opened).
  int fd() const { return fd_; }
  const std::string& path() const { return path_; }

 private:
  int fd_;
  std::string path_;
};

// Candidate file names: name_for(0), name_for(1), ... (each one entry of the
// directory, no "/").
using NameSequence = std::function<std::string(int)>;

// Writes data to a new file in dir under the first candidate name that does
// not exist yet and returns true with that name in *chosen. The bytes go to
// a temporary file first, which is linked to the final name only once it is
// complete; a link refuses to replace anything, so an existing file or
// symbolic link moves on to the next candidate. On failure returns false
// with the candidate that was to be written in *chosen, and leaves no file.
bool create_new_file(const OutputDirectory& dir, const NameSequence& name_for,
                     const std::string& data, std::string* chosen);

#endif  // QUILLSCAN_APP_OUTPUT_FILE_H_
