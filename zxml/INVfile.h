// The .inv container: compressed record bodies, a text header indexing them
// and a 14-byte trailer pointing at the header.
#ifndef QUILLSCAN_ZXML_INVFILE_H_
#define QUILLSCAN_ZXML_INVFILE_H_

#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "zxml/zXML.h"

class InvFile {
 public:
  enum RecordType : int32_t { kAssetInfo = 0, kSnapshot = 1, kCustomData = 2 };

  explicit InvFile(bool doc_flag);
  virtual ~InvFile();
  InvFile(const InvFile&) = delete;
  InvFile& operator=(const InvFile&) = delete;

  // Takes ownership of doc and serializes it at once.
  void add_document(zXML* doc, int type, bool opt1, bool opt2);
  // Appends an already compressed custom-data body, a new unsigned char[]
  // such as data_deflate returns (freed with the container only when
  // set_owns_raw(true) is called).
  void add_raw(void* data, unsigned long length);
  void set_owns_raw(bool owns) { owns_raw_ = owns; }

  // zlib level 9 in 16384-byte chunks; returns a new[] buffer and sets
  // length to the compressed size.
  static void* data_deflate(const void* data, unsigned long& length);

  // The whole file image: bodies, header text, trailer.
  std::string build_image();
  // The same with flag as the trailer's write flag.
  std::string build_image(bool flag) {
    write_flag_ = flag;
    return build_image();
  }
  // Writes the image to path, with flag as the trailer's write flag; false
  // when the file cannot be created or written (no partial file is left
  // behind).
  bool write(const char* path, bool flag);

  size_t record_count() const { return records_.size(); }
  bool doc_flag() const { return doc_flag_; }

 private:
  struct Record {
    int32_t type;
    bool raw;
    unsigned char* data;
    bool opt1;
    bool opt2;
    zXML* doc;
    uint32_t offset;
    uint32_t length;
  };
  std::string header_text();
  std::vector<Record*> records_;
  bool doc_flag_;
  bool owns_raw_ = false;
  bool write_flag_ = true;
};

// Local time t as "%Y%m%d%H%M%S.000000" followed by the sign of the UTC
// offset and the offset in minutes, unpadded ("...+180", "...-300", "...+0").
std::string format_timestamp(time_t t);
// The same text from a broken-down local time and what strftime's "%z"
// printed for it.
std::string format_timestamp_parts(const struct tm& local, const std::string& zone);

// Appends the debug run's asset record and compressed raw-text record.
void add_debug_records(InvFile* file, const char* hostname, const char* ip, const char* mac,
                       bool static_ip, const char* raw, unsigned long raw_length);

#endif  // QUILLSCAN_ZXML_INVFILE_H_
