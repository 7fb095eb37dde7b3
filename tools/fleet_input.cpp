// Inputs of the fleet commands: files, directories and standard input, with
// the SHA-256 that identifies a scan.
#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>

#include "tools/fleet.h"

namespace invtab {
namespace {

namespace fs = std::filesystem;

struct DigestDeleter {
  void operator()(EVP_MD_CTX* c) const { EVP_MD_CTX_free(c); }
};

std::string hex(const unsigned char* p, unsigned n) {
  static const char kHex[] = "0123456789abcdef";
  std::string out;
  for (unsigned i = 0; i < n; ++i) {
    out.push_back(kHex[p[i] >> 4]);
    out.push_back(kHex[p[i] & 15]);
  }
  return out;
}

constexpr uint64_t kNoLimit = UINT64_MAX;
// The most of standard input that is copied. The reader refuses a file whose
// records inflate to more than kMaxInflated bytes, and deflate makes even
// incompressible data less than a thousandth larger (zlib's compressBound),
// so a sixty-fourth more, header included, is more than any file it accepts;
// an endless input stops here rather than filling the temporary directory.
constexpr uint64_t kMaxCopy = invread::kMaxInflated + invread::kMaxInflated / 64;

// Reads in from its start to its end, hashing and, when out is given, copying;
// fails when in holds more than limit bytes.
bool copy_and_hash(std::FILE* in, std::FILE* out, std::string* hash, uint64_t* size, uint64_t limit,
                   std::string* error) {
  std::unique_ptr<EVP_MD_CTX, DigestDeleter> ctx(EVP_MD_CTX_new());
  if (!ctx || EVP_DigestInit_ex(ctx.get(), EVP_sha256(), nullptr) != 1) {
    *error = "cannot start SHA-256";
    return false;
  }
  std::vector<char> buf(1 << 16);
  uint64_t total = 0;
  for (;;) {
    const size_t n = std::fread(buf.data(), 1, buf.size(), in);
    if (n > 0) {
      total += n;
      if (total > limit) {
        *error = "standard input is larger than " + std::to_string(limit) +
                 " bytes, more than any inventory file";
        return false;
      }
      if (EVP_DigestUpdate(ctx.get(), buf.data(), n) != 1 ||
          (out != nullptr && std::fwrite(buf.data(), 1, n, out) != n)) {
        *error = out != nullptr ? std::string("cannot copy standard input: ") + std::strerror(errno)
                                : "SHA-256 failed";
        return false;
      }
    }
    if (n < buf.size()) {
      if (std::ferror(in)) {
        *error = std::strerror(errno);
        return false;
      }
      break;
    }
  }
  unsigned char md[EVP_MAX_MD_SIZE];
  unsigned len = 0;
  if (EVP_DigestFinal_ex(ctx.get(), md, &len) != 1) {
    *error = "SHA-256 failed";
    return false;
  }
  if (hash != nullptr) *hash = hex(md, len);
  if (size != nullptr) *size = total;
  return true;
}

}  // namespace

InputFile::~InputFile() {
  if (temporary_) ::unlink(path_.c_str());
}

bool InputFile::open(const std::string& name, std::string* hash, uint64_t* size,
                     std::string* error) {
  if (name != "-") {
    path_ = name;
    if (hash == nullptr && size == nullptr) return true;
    // As the reader does: O_NONBLOCK so that a FIFO does not wait for a
    // writer, and anything but a regular file refused before it is read.
    const int fd = ::open(name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
      *error = std::strerror(errno);
      return false;
    }
    struct stat st;
    if (fstat(fd, &st) != 0) {
      *error = std::strerror(errno);
      ::close(fd);
      return false;
    }
    if (!S_ISREG(st.st_mode)) {
      *error = "not a regular file";
      ::close(fd);
      return false;
    }
    std::FILE* f = ::fdopen(fd, "rb");
    if (f == nullptr) {
      *error = std::strerror(errno);
      ::close(fd);
      return false;
    }
    const bool ok = copy_and_hash(f, nullptr, hash, size, kNoLimit, error);
    std::fclose(f);
    return ok;
  }
  // Standard input is copied to a file of our own, so the reader can seek.
  const char* dir = std::getenv("TMPDIR");
  std::string tmpl =
      std::string(dir != nullptr && *dir != '\0' ? dir : "/tmp") + "/quillscan-inv.XXXXXX";
  std::vector<char> buf(tmpl.begin(), tmpl.end());
  buf.push_back('\0');
  const int fd = ::mkstemp(buf.data());
  if (fd < 0) {
    *error = std::string("cannot create a temporary file: ") + std::strerror(errno);
    return false;
  }
  path_ = buf.data();
  temporary_ = true;
  std::FILE* out = ::fdopen(fd, "wb");
  if (out == nullptr) {
    ::close(fd);
    *error = std::strerror(errno);
    return false;
  }
  const bool ok = copy_and_hash(stdin, out, hash, size, kMaxCopy, error);
  if (std::fclose(out) != 0 && ok) {
    *error = std::string("cannot copy standard input: ") + std::strerror(errno);
    return false;
  }
  return ok;
}

bool expand_inputs(const std::vector<std::string>& args, std::vector<std::string>* files,
                   std::string* error) {
  for (const std::string& a : args) {
    std::error_code ec;
    if (a == "-" || !fs::is_directory(a, ec)) {
      files->push_back(a);
      continue;
    }
    std::vector<std::string> found;
    fs::recursive_directory_iterator it(a, fs::directory_options::skip_permission_denied, ec), end;
    for (; !ec && it != end; it.increment(ec)) {
      const fs::path& p = it->path();
      if (p.extension() == ".inv" && it->is_regular_file(ec)) found.push_back(p.string());
    }
    if (ec) {
      *error = a + ": " + ec.message();
      return false;
    }
    std::sort(found.begin(), found.end());
    files->insert(files->end(), found.begin(), found.end());
  }
  return true;
}

bool open_scan(const std::string& name, InputFile* input, ScanFile* file, std::string* error) {
  if (!input->open(name, &file->scan_id, &file->size, error)) return false;
  file->file_name = name == "-" ? "-" : fs::path(name).filename().string();
  return true;
}

bool map_scan(const InputFile& input, const ScanFile& file, RowSink* sink, std::string* error,
              std::vector<std::string>* texts) {
  invread::InvReader reader;
  if (!reader.open(input.path(), error)) return false;
  std::vector<std::string> own;
  if (texts == nullptr) texts = &own;
  RowMapper mapper(file, sink);
  const invread::Header& h = reader.header();
  size_t used = 0;
  for (size_t i = 0; i < h.records.size(); ++i) {
    if (!h.records[i].is_document()) continue;
    // Each document is inflated whole and kept until the file's rows are
    // done (the mapper refers to its text rather than copying values).
    if (texts->size() == used) texts->emplace_back();
    std::string& text = (*texts)[used++];
    if (!reader.content(i, &text, error)) return false;
    // Items are counted as when documents were kept as trees, so that the
    // same files are refused.
    invread::DocumentParser parser(mapper.document(), true);
    if (!parser.feed(text.data(), text.size()) || !parser.finish()) {
      *error = "record " + std::to_string(i) + ": " + parser.error();
      return false;
    }
    if (!mapper.ok()) {
      *error = mapper.error();
      return false;
    }
  }
  if (!mapper.found()) {
    *error = "no snapshot or asset summary record";
    return false;
  }
  return mapper.finish(error);
}

}  // namespace invtab
