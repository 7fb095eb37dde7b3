// The raw-output text of a debug run: the section container and the
// sections gathered from a host.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <regex>
#include <string>
#include <vector>

#include "app/scanner.h"
#include "host/command.h"
#include "host/raw_data.h"
#include "spine_test_support.h"

namespace {

using spine_test::TempDir;
using spine_test::write_script;

std::string section(const std::string& title, const std::string& body) {
  return ">>>---Begin of Section: '" + title + "'---<<<\n" + body + "\n>>>---End of Section: '" +
         title + "'---<<<";
}

TEST(HostTextContainer, FirstSectionHasNoFinalNewlineLaterOnesDo) {
  CTextContainer text;
  EXPECT_EQ(text.text(), nullptr);
  text.add_section("A", "one");
  EXPECT_EQ(std::string(text.text()), section("A", "one"));
  EXPECT_EQ(text.length(), section("A", "one").size());
  text.add_section("B", "");
  text.add_section("C", "three\n");
  // From the third section on, a blank line separates the sections.
  const std::string expected =
      section("A", "one") + "\n" + section("B", "") + "\n" + "\n" + section("C", "three\n") + "\n";
  EXPECT_EQ(std::string(text.text()), expected);
  EXPECT_EQ(text.length(), expected.size());
}

// Titles of the sections, in order, and the body of each.
std::vector<std::pair<std::string, std::string>> sections_of(const std::string& raw) {
  std::vector<std::pair<std::string, std::string>> out;
  const std::regex begin(">>>---Begin of Section: '(.*)'---<<<\n");
  auto it = std::sregex_iterator(raw.begin(), raw.end(), begin);
  for (; it != std::sregex_iterator(); ++it) {
    const std::string title = (*it)[1];
    const size_t body = it->position() + it->length();
    const std::string end = "\n>>>---End of Section: '" + title + "'---<<<";
    const size_t stop = raw.find(end, body);
    out.emplace_back(title,
                     stop == std::string::npos ? "<unterminated>" : raw.substr(body, stop - body));
  }
  return out;
}

// Lines made only of digits and dots: the progress markers (the standard
// error of the commands run is mixed in).
std::string markers_of(const std::string& err) {
  std::string out;
  const std::regex marker("^[0-9.]+$");
  size_t start = 0;
  while (start < err.size()) {
    const size_t stop = err.find('\n', start);
    const std::string line = err.substr(start, stop - start);
    if (std::regex_match(line, marker)) out += line + "\n";
    start = stop == std::string::npos ? err.size() : stop + 1;
  }
  return out;
}

class HostRawData : public testing::Test {
 protected:
  void SetUp() override {
    // Fake tools: the located ones in tools/, the ones run by bare name in
    // bin/ (first on PATH). Each prints its name and arguments.
    mkdir((tmp / "tools").c_str(), 0755);
    mkdir((tmp / "bin").c_str(), 0755);
    for (const char* tool : {"df", "ifconfig", "lspci", "lsusb", "ps", "env"}) {
      write_script(tmp / (std::string("tools/") + tool), std::string("echo \"") + tool + " $*\"\n");
    }
    for (const char* tool : {"vmware", "esxcli", "esxcfg-scsidevs", "vim-cmd", "smbiosDump"}) {
      write_script(tmp / (std::string("bin/") + tool), std::string("echo \"") + tool + " $*\"\n");
    }
    write_script(tmp / "bin/df", "echo \"bare df $*\"\n");
    write_script(tmp / "bin/uname", "echo esx-01.lab.local\n");
  }

  std::string collect(bool with_tools, int esx_major, bool silent, std::string* err) {
    spine_test::ScopedPath path(tmp / "bin");
    const std::vector<std::string> dirs = {with_tools ? tmp / "tools" : tmp / "none"};
    CScaner scanner(new PKGDetector(dirs, PKGDetector::standard_names(), false),
                    new PortsDictionary());
    unsigned long length = 0;
    testing::internal::CaptureStderr();
    char* raw = collect_raw_data(&scanner, &length, silent, esx_major);
    *err = testing::internal::GetCapturedStderr();
    const std::string text(raw);
    delete[] raw;
    EXPECT_EQ(length, text.size());
    return text;
  }

  TempDir tmp;
};

// A file section: its text, or the fallback when the file is empty/absent.
std::pair<std::string, std::string> file_section(const char* path, const char* title,
                                                 const char* missing_title, const char* missing) {
  const std::string body = read_file(path);
  if (body.empty()) return {missing_title, missing};
  return {title, body};
}

TEST_F(HostRawData, SectionsForEsxi5WithAllTools) {
  std::string err;
  const std::string raw = collect(true, 5, false, &err);
  const std::vector<std::pair<std::string, std::string>> expected = {
      {"Scanner information",
       "Scanner arch: x86\nScanner version: 15.10.19\nInternal Version: 2.7.1804.9764"},
      {"System Main Information", "OS Name: \n"},  // "vmware -v" printed no version
      {"Bios Info(Raw data)", "smbiosDump \n"},
      file_section("/etc/fstab", "FSTAB-file info", "FSTAB-file info", "file not found"),
      {"DF output info", "df -T\n"},
      {"'esxcli storage vmfs extent list' output", "esxcli storage vmfs extent list\n"},
      {"'esxcli storage core device list' output", "esxcli storage core device list\n"},
      {"'esxcli storage core path list' output", "esxcli storage core path list\n"},
      {"'esxcli storage filesystem list' output", "esxcli storage filesystem list\n"},
      {"VM's list", "vim-cmd vmsvc/getallvms\n"},
      {"'IFCONFIG' Output", "ifconfig \n"},
      file_section("/etc/resolv.conf", "'Resolv.conf' File Data", "'Resolv.conf'",
                   "File not found"),
      {"'LSPCI' output", "lspci -v\n"},
      {"'LSUSB' output", "lsusb -v\n"},
      {"'PS' output", "ps -cvu\n"},
      {"'ENV' output", "env \n"},
      file_section("/etc/passwd", "'PASSWD' file data", "'PASSWD'", "File Not Found"),
      {"'Firewall info' output", "esxcli network firewall ruleset list\n"},
      {"HOSTNAME", "esx-01.lab.local\n"},
  };
  EXPECT_EQ(sections_of(raw), expected);
  EXPECT_EQ(markers_of(err), "1.\n2.\n2.1.\n2.2.\n3.\n4.\n5.\n6.\n7.\n8.\n9.\n11.\n");
}

TEST_F(HostRawData, SectionsForOtherMajorsWithoutTools) {
  for (int major : {4, 6, -1}) {
    std::string err;
    const std::string raw = collect(false, major, true, &err);
    std::vector<std::string> titles;
    std::vector<std::pair<std::string, std::string>> fallbacks;
    for (const auto& s : sections_of(raw)) {
      titles.push_back(s.first);
      if (s.first.rfind("Application", 0) == 0) fallbacks.push_back(s);
    }
    ASSERT_EQ(titles.size(), 18u) << major;
    EXPECT_EQ(std::vector<std::string>(titles.begin() + 5, titles.begin() + 8),
              (std::vector<std::string>{"'esxcfg-scsidevs --list' output",
                                        "'esxcfg-scsidevs -m' output", "'df -k' output"}));
    const std::vector<std::pair<std::string, std::string>> expected_fallbacks = {
        {"Application 'DF'", "not installed"},    {"Application 'IFCONFIG'", "Not installed"},
        {"Application 'LSPCI'", "Not installed"}, {"Application 'LSUSB'", "Not installed"},
        {"Application 'PS'", "Not installed"},    {"Application 'ENV'", "Not installed"},
    };
    EXPECT_EQ(fallbacks, expected_fallbacks);
    EXPECT_NE(raw.find(section("'df -k' output", "bare df -k\n")), std::string::npos);
    EXPECT_EQ(markers_of(err), "") << "a silent run prints no markers";
  }
}

}  // namespace
