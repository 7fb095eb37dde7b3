// The debug run's raw-output text: titled sections holding the verbatim
// output of host commands and files.
#ifndef QUILLSCAN_HOST_RAW_DATA_H_
#define QUILLSCAN_HOST_RAW_DATA_H_

#include <string>

class CTextContainer {
 public:
  CTextContainer() = default;
  virtual ~CTextContainer();
  CTextContainer(const CTextContainer&) = delete;
  CTextContainer& operator=(const CTextContainer&) = delete;

  void add_section(const std::string& title, const std::string& body);
  // The accumulated text, or null before the first section.
  const char* text() const { return text_; }
  unsigned long length() const { return length_; }

 private:
  char* text_ = nullptr;
  unsigned long length_ = 0;
};

#endif  // QUILLSCAN_HOST_RAW_DATA_H_
