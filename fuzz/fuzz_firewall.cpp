// Firewall rulesets from "esxcli network firewall ruleset list".
//
// A ruleset line without a blank ends the program with std::string::substr's
// out-of-range error; that end is let through.
#include "collectors/network/network.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string output(reinterpret_cast<const char*>(data), size);
  zXML doc(true, "Snapshot");
  fuzz::allowing_substr_out_of_range([&] { record_firewall(output, doc.top()); });
  fuzz::check_document(doc);
  return 0;
}
