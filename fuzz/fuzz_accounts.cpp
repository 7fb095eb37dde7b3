// Users, processes and environment. Input: /etc/passwd, then the output of
// "ps -cvu", then the output of "env".
#include "collectors/system/environment.h"
#include "collectors/system/processes.h"
#include "collectors/system/users.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<std::string> in = fuzz::split(data, size, 3);
  zXML doc(true, "Snapshot");
  record_user_accounts(doc.top(), in[0]);
  record_processes(doc.top(), in[1]);
  record_environment(doc.top(), in[2]);
  fuzz::check_document(doc);
  return 0;
}
