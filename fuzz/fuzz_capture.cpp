// The capture reader on arbitrary bytes: it must refuse what is not a
// whole, intact capture with one line, never crash, and never accept a
// capture cut short.
#include <cstdint>
#include <string>

#include "fuzz/fuzz_support.h"
#include "host/capture_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  Capture capture;
  std::string error;
  if (!read_capture(bytes, &capture, &error)) {
    if (error.empty() || error.find('\n') != std::string::npos) {
      fuzz::fail("read_capture", "a refusal must be one non-empty line: " + error);
    }
    return 0;
  }
  // An accepted capture ends with its count line: any shorter prefix that
  // still ends a line must be refused.
  const size_t last = bytes.rfind('\n', bytes.size() - 2);
  if (last != std::string::npos && read_capture(bytes.substr(0, last + 1), &capture, &error)) {
    fuzz::fail("read_capture", "accepted a capture without its last line");
  }
  return 0;
}
