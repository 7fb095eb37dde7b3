// The raw-output text of a debug run: the section container and the
// sections gathered from a host with fake tools.
#include <gtest/gtest.h>

#include <regex>
#include <sstream>

#include "app/scanner.h"
#include "host/command.h"
#include "host/raw_data.h"
#include "spine_test_support.h"

namespace {

using Sections = std::vector<std::pair<std::string, std::string>>;

std::string section(const std::string& title, const std::string& body) {
  return ">>>---Begin of Section: '" + title + "'---<<<\n" + body + "\n>>>---End of Section: '" +
         title + "'---<<<";
}

TEST(HostTextContainer, FirstSectionHasNoFinalNewlineLaterOnesDo) {
  CTextContainer text;
  EXPECT_EQ(text.text(), nullptr);
  text.add_section("A", "one");
  EXPECT_EQ(std::string(text.text()), section("A", "one"));
  text.add_section("B", "");
  text.add_section("C", "three\n");
  const std::string expected =
      section("A", "one") + "\n" + section("B", "") + "\n\n" + section("C", "three\n") + "\n";
  EXPECT_EQ(std::string(text.text()), expected);
  EXPECT_EQ(text.length(), expected.size());
}

// Title and body of every section, in order.
Sections sections_of(const std::string& raw) {
  Sections out;
  const std::regex begin(">>>---Begin of Section: '(.*)'---<<<\n");
  for (auto it = std::sregex_iterator(raw.begin(), raw.end(), begin); it != std::sregex_iterator();
       ++it) {
    const size_t body = it->position() + it->length();
    const size_t stop = raw.find("\n>>>---End of Section: '" + (*it)[1].str() + "'---<<<", body);
    out.emplace_back((*it)[1], raw.substr(body, stop - body));
  }
  return out;
}

// A file section: its text, or the fallback when the file is empty/absent.
std::pair<std::string, std::string> file_section(const char* path, const char* title,
                                                 const char* missing_title, const char* missing) {
  const std::string body = read_file(path);
  return body.empty() ? std::make_pair(missing_title, missing) : std::make_pair(title, body);
}

// Fake tools print their name and arguments: the located ones in tools/,
// the ones run by bare name in bin/ (first on PATH).
class HostRawData : public testing::Test {
 protected:
  void SetUp() override {
    mkdir((tmp / "tools").c_str(), 0755);
    mkdir((tmp / "bin").c_str(), 0755);
    for (std::string tool : {"df", "ifconfig", "lspci", "lsusb", "ps", "env"}) {
      spine_test::write_script(tmp / ("tools/" + tool), "echo \"" + tool + " $*\"\n");
    }
    for (std::string tool :
         {"vmware", "esxcli", "esxcfg-scsidevs", "vim-cmd", "smbiosDump", "df"}) {
      spine_test::write_script(tmp / ("bin/" + tool), "echo \"bare " + tool + " $*\"\n");
    }
    spine_test::write_script(tmp / "bin/uname", "echo esx-01.lab.local\n");
  }

  std::string collect(bool with_tools, int esx_major, bool silent, std::string* err) {
    spine_test::ScopedPath path(tmp / "bin");
    CScaner scanner(new PKGDetector({tmp / (with_tools ? "tools" : "none")},
                                    PKGDetector::standard_names(), false),
                    new PortsDictionary());
    unsigned long length = 0;
    testing::internal::CaptureStderr();
    char* raw = collect_raw_data(&scanner, &length, silent, esx_major);
    // Only the markers: lines of digits and dots (the tools' errors mix in).
    std::istringstream captured(testing::internal::GetCapturedStderr());
    for (std::string line; std::getline(captured, line);) {
      if (std::regex_match(line, std::regex("[0-9.]+"))) *err += line + "\n";
    }
    const std::string text(raw);
    delete[] raw;
    EXPECT_EQ(length, text.size());
    return text;
  }

  spine_test::TempDir tmp;
};

TEST_F(HostRawData, SectionsForEsxi5WithAllTools) {
  std::string markers;
  const Sections expected = {
      {"Scanner information",
       "Scanner arch: x86\nScanner version: 15.10.19\nInternal Version: 2.7.1804.9764"},
      {"System Main Information", "OS Name: \n"},  // "vmware -v" printed no version
      {"Bios Info(Raw data)", "bare smbiosDump \n"},
      file_section("/etc/fstab", "FSTAB-file info", "FSTAB-file info", "file not found"),
      {"DF output info", "df -T\n"},
      {"'esxcli storage vmfs extent list' output", "bare esxcli storage vmfs extent list\n"},
      {"'esxcli storage core device list' output", "bare esxcli storage core device list\n"},
      {"'esxcli storage core path list' output", "bare esxcli storage core path list\n"},
      {"'esxcli storage filesystem list' output", "bare esxcli storage filesystem list\n"},
      {"VM's list", "bare vim-cmd vmsvc/getallvms\n"},
      {"'IFCONFIG' Output", "ifconfig \n"},
      file_section("/etc/resolv.conf", "'Resolv.conf' File Data", "'Resolv.conf'",
                   "File not found"),
      {"'LSPCI' output", "lspci -v\n"},
      {"'LSUSB' output", "lsusb -v\n"},
      {"'PS' output", "ps -cvu\n"},
      {"'ENV' output", "env \n"},
      file_section("/etc/passwd", "'PASSWD' file data", "'PASSWD'", "File Not Found"),
      {"'Firewall info' output", "bare esxcli network firewall ruleset list\n"},
      {"HOSTNAME", "esx-01.lab.local\n"},
  };
  EXPECT_EQ(sections_of(collect(true, 5, false, &markers)), expected);
  EXPECT_EQ(markers, "1.\n2.\n2.1.\n2.2.\n3.\n4.\n5.\n6.\n7.\n8.\n9.\n11.\n");
}

TEST_F(HostRawData, SectionsForOtherMajorsWithoutTools) {
  for (int major : {4, 6, -1}) {
    std::string markers;
    const Sections sections = sections_of(collect(false, major, true, &markers));
    ASSERT_EQ(sections.size(), 18u) << major;
    const Sections expected = {
        {"Application 'DF'", "not installed"},
        {"'esxcfg-scsidevs --list' output", "bare esxcfg-scsidevs --list\n"},
        {"'esxcfg-scsidevs -m' output", "bare esxcfg-scsidevs -m\n"},
        {"'df -k' output", "bare df -k\n"},
        {"VM's list", "bare vim-cmd vmsvc/getallvms\n"},
        {"Application 'IFCONFIG'", "Not installed"},
    };
    EXPECT_EQ(Sections(sections.begin() + 4, sections.begin() + 10), expected);
    for (size_t i : {11, 12, 13, 14}) EXPECT_EQ(sections[i].second, "Not installed");
    EXPECT_EQ(markers, "") << "a silent run prints no markers";
  }
}

}  // namespace
