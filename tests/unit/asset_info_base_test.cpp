// Asset summary: Samba configuration values. (The summary's stages are
// compared whole, for every simulated host, by InProcessScan.)
#include <gtest/gtest.h>

#include "summary/asset_info.h"

namespace {

TEST(AssetSmbConf, FirstUncommentedLine) {
  const std::pair<std::string, const char*> cases[] = {
      {"", "-"},
      {"[global]\n   netbios name = ESX01\n   workgroup = LAB\n", "ESX01"},
      {"netbios name =\t \tESX 01 ", "ESX 01 "},  // leading blanks only; no final newline
      {";netbios name = A\n  # netbios name = B\nnetbios name = C\n", "C"},
      {"\t; netbios name = OLD\n", "-"},
      {"netbios name = \n", ""},
      {"netbios name=ESX01\nNetBIOS name = X\n", "-"},  // the key is exact
      {"x netbios name = A # b\n", "A # b"},            // comments only at line start
  };
  for (const auto& c : cases) {
    bool found = false;
    const std::string value = smb_conf_value(c.first, "netbios name =", &found);
    EXPECT_EQ(found ? value : "-", c.second) << c.first;
  }
}

}  // namespace
