// An inventory document: a root node owning one top element, and its
// serialization into the body stored in an .inv record.
#ifndef QUILLSCAN_ZXML_ZXML_H_
#define QUILLSCAN_ZXML_ZXML_H_

#include <memory>
#include <string>

#include "zxml/tag.h"

class zXML {
 public:
  zXML(bool flag, const std::string& top_name);
  virtual ~zXML() = default;
  zXML(const zXML&) = delete;
  zXML& operator=(const zXML&) = delete;

  ztag* top() const { return root_->child_at(0); }
  ztag* root() const { return root_.get(); }
  bool flag() const { return flag_; }

  // The document body. Caller delete[]s it.
  //  - sectioned false, compressed true (what the scan stores): the zlib
  //    stream of the text form followed by 0x00 0x01 "ZXML";
  //  - sectioned false, compressed false: the text form and two zero bytes;
  //  - sectioned true: a "Root" section (document start and the top
  //    element's own lines) and one section per child of the top element,
  //    each zlib-compressed when compressed is true; then an index of
  //    "[name]\noffset=%u\nlength=%u\n" blocks (compressed likewise), its
  //    4-byte position (host order when flag() is true, else reversed), and
  //    the bytes 0x01 and 0x01 (compressed) or 0x00 (plain). The top
  //    element's closing line is in no section.
  unsigned char* serialize(unsigned long& length, bool sectioned, bool compressed) const;
  static void* data_deflate(const void* data, unsigned long& length);

 private:
  unsigned char* serialize_sections(unsigned long& length, bool compressed) const;

  bool flag_;
  std::unique_ptr<ztag> root_;
};

#endif  // QUILLSCAN_ZXML_ZXML_H_
