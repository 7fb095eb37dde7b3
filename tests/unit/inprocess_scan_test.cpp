// Whole scans of the simulated hosts, in-process: each host folder is read
// as a replay record and scanned through ReplayHost, without root, and the
// documents are compared with the files the end-to-end scan is checked
// against (tests/e2e/expected/HOST/).
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <regex>
#include <string>

#include "app/scanner.h"
#include "host/command.h"
#include "tests/support/sim_host.h"
#include "zxml/zXML.h"

namespace {

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

std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// Documents too large to keep are kept as the SHA-256 of their text.
std::string suffix(const std::string& base) {
  return std::ifstream(base + ".sha256").good() ? ".sha256" : ".txt";
}

std::string expected_form(const std::string& base, const std::string& text) {
  if (suffix(base) == ".txt") return text;
  const std::string path = testing::TempDir() + "/qs-document";
  std::ofstream(path, std::ios::binary) << text;
  const std::string digest = run_command("sha256sum < " + shell_quote(path));
  return digest.substr(0, digest.find(' ')) + "\n";
}

struct Scanned {
  std::string snapshot;
  std::string asset;
  std::vector<ReplayHost::Request> unanswered;
};

Scanned scan_in_process(const std::string& host) {
  SimHost sim(host);
  Scanned out;
  out.unanswered = replay_until_answered(sim, [&out](HostAccess& replay) {
    CScaner scanner(replay);
    testing::internal::CaptureStdout();  // the machine collector's progress lines
    const ScanDocuments docs = scan_documents(&scanner, true, nullptr, "", false);
    testing::internal::GetCapturedStdout();
    out.snapshot = masked_text(*docs.snapshot);
    out.asset = masked_text(*docs.asset);
    delete docs.snapshot;
    delete docs.asset;
  });
  return out;
}

class InProcessScan : public testing::TestWithParam<const char*> {};

TEST_P(InProcessScan, SameDocumentsAsTheEndToEndScan) {
  const std::string host = GetParam();
  const Scanned scanned = scan_in_process(host);
  const std::string expected = std::string(QS_SOURCE_DIR) + "/tests/e2e/expected/" + host + "/";
  EXPECT_EQ(expected_form(expected + "whole-Snapshot", scanned.snapshot),
            slurp(expected + "whole-Snapshot" + suffix(expected + "whole-Snapshot")));
  EXPECT_EQ(expected_form(expected + "whole-AssetInfo", scanned.asset),
            slurp(expected + "whole-AssetInfo" + suffix(expected + "whole-AssetInfo")));
}

INSTANTIATE_TEST_SUITE_P(Hosts, InProcessScan,
                         testing::Values("esxi67", "esx41", "esxi55-dhcp", "bare"));

}  // namespace
