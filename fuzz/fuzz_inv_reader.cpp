// quillscan-inv's reader on arbitrary files: trailer, header, record bodies,
// inflating and document parsing must report what is wrong and never crash.
// Input: a whole .inv file. The same bytes are also parsed as a document
// text; a text the parser accepts must be written back unchanged.
#include "fuzz/fuzz_support.h"
#include "fuzz/fuzz_vm_files.h"
#include "tools/inv_reader.h"

namespace {

// Records inflate to at most this in a fuzz run (the reader's own limit is
// far larger); bounded output keeps each run quick.
constexpr uint64_t kInflateLimit = 1 << 20;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  const std::string path = fuzz::write_scratch("input.inv", bytes);

  std::string error;
  invread::InvReader reader;
  if (reader.open(path, &error)) {
    for (size_t i = 0; i < reader.header().records.size(); ++i) {
      std::string content;
      if (!reader.content(i, &content, &error, kInflateLimit)) continue;
      if (!reader.header().records[i].is_document()) continue;
      invread::Element top;
      std::vector<invread::Element> more;
      invread::parse_document(content, &top, &error, &more);
    }
  }
  std::string summary;
  invread::check_file(path, &summary, &error, kInflateLimit);

  invread::Element top;
  std::vector<invread::Element> more;
  if (invread::parse_document(bytes, &top, &error, &more)) {
    if (invread::document_text(top, &more) != bytes) {
      fuzz::fail("document_text", "an accepted document reads back differently");
    }
    // Checking alone (no tree) agrees with parsing.
    if (!invread::parse_document(bytes, nullptr, &error)) fuzz::fail("parse_document", error);
  } else if (invread::parse_document(bytes, nullptr, &summary)) {
    fuzz::fail("parse_document", "checking accepts what parsing refuses: " + error);
  }
  return 0;
}
