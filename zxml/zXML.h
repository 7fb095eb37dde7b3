// An inventory document: a root node owning one top element, and its
// serialization into the body stored in an .inv record.
#ifndef QUILLSCAN_ZXML_ZXML_H_
#define QUILLSCAN_ZXML_ZXML_H_

#include <memory>
#include <string>
#include <vector>

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

  // The document body: with sectioned false and compressed true, the zlib
  // stream of the text form followed by 0x00 0x01 "ZXML". Caller delete[]s.
  unsigned char* serialize(unsigned long& length, bool sectioned, bool compressed) const;
  static void* data_deflate(const void* data, unsigned long& length);

 private:
  struct Section {
    std::string name;
    unsigned long offset;
    unsigned long length;
  };
  std::vector<Section> sections_;
  bool flag_;
  std::unique_ptr<ztag> root_;
};

#endif  // QUILLSCAN_ZXML_ZXML_H_
