// Whole scans of the simulated hosts, in-process: each host folder is read
// as a replay record and scanned through ReplayHost, without root, and the
// documents are compared with the files the end-to-end scan is checked
// against (tests/e2e/expected/HOST/).
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <memory>
#include <regex>
#include <string>
#include <utility>

#include "app/scanner.h"
#include "host/command.h"
#include "host/reading.h"
#include "sim/replay/sim_host.h"
#include "test_support.h"
#include "zxml/zXML.h"

namespace {

using test_support::slurp;

// The document's text form, with the values that depend on when the scan
// ran masked as the end-to-end tests mask them.
std::string masked_text(const zXML& doc) {
  unsigned long length = 0;
  std::unique_ptr<unsigned char[]> body(doc.serialize(length, false, false));
  std::string text(reinterpret_cast<const char*>(body.get()), length - 2);  // two NUL bytes end it
  static const std::regex times(
      "\n(timestamp|scan-time|uptime|first-scan|last-scan|snapshot-list|scan-attempt)=[^\n]*");
  return std::regex_replace(text, times, "\n$1=<masked>");
}

// Documents too large to keep are kept as the SHA-256 of their text.
std::string suffix(const std::string& base) {
  return std::ifstream(base + ".sha256").good() ? ".sha256" : ".txt";
}

std::string expected_form(const std::string& base, const std::string& text) {
  if (suffix(base) == ".txt") return text;
  // One file per process: test runs of other build trees may hash at once.
  const std::string path = testing::TempDir() + "/qs-document-" + std::to_string(getpid());
  std::ofstream(path, std::ios::binary) << text;
  const std::string digest = run_command("sha256sum < " + shell_quote(path));
  std::remove(path.c_str());
  return digest.substr(0, digest.find(' ')) + "\n";
}

// One host scanned in-process, in time zone `tz` (null: the machine's),
// with the reading of current releases when `current`.
struct Host {
  const char* name;
  const char* tz;
  bool current = false;
};

class InProcessScan : public testing::TestWithParam<Host> {};

TEST_P(InProcessScan, SameDocumentsAsTheEndToEndScan) {
  const Host host = GetParam();
  const char* old_tz = getenv("TZ");
  const std::string saved = old_tz != nullptr ? old_tz : "";
  if (host.tz != nullptr) setenv("TZ", host.tz, 1);
  tzset();
  SimHost sim(host.name);
  ReplayHost replay = replay_of(sim);
  CScaner scanner(replay);
  if (host.current) scanner.context().reading = current_reading();
  testing::internal::CaptureStdout();  // the machine collector's progress lines
  const ScanDocuments docs = scan_documents(&scanner, true, nullptr, "", false);
  testing::internal::GetCapturedStdout();
  old_tz != nullptr ? setenv("TZ", saved.c_str(), 1) : unsetenv("TZ");
  tzset();

  const std::string dir = std::string(QS_SOURCE_DIR) + "/tests/e2e/expected/" + host.name +
                          (host.current ? "-current/" : "/");
  for (const auto& [doc, name] :
       {std::pair{docs.snapshot, "whole-Snapshot"}, std::pair{docs.asset, "whole-AssetInfo"}}) {
    const std::string base = dir + name;
    EXPECT_EQ(expected_form(base, masked_text(*doc)), slurp(base + suffix(base))) << base;
    delete doc;
  }
}

// esxi55-dhcp's lease dates are written in local time: ten hours east of
// UTC, reading them as UTC would make the current leases expired.
INSTANTIATE_TEST_SUITE_P(Hosts, InProcessScan,
                         testing::Values(Host{"esxi67", nullptr}, Host{"esx41", nullptr},
                                         Host{"esxi55-dhcp", "QST-10"}, Host{"bare", nullptr},
                                         Host{"hostile", nullptr}, Host{"esxi90", nullptr},
                                         Host{"esxi90", nullptr, true}, Host{"gen-vms", nullptr}),
                         [](const testing::TestParamInfo<Host>& info) {
                           std::string name = info.param.name;
                           if (info.param.current) name += "_current";
                           for (char& c : name)
                             c = isalnum(static_cast<unsigned char>(c)) ? c : '_';
                           return name;
                         });

}  // namespace
