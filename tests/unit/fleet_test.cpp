// Fleet tables: definitions, value conversions, the mapping of a small
// document, and the export and diff commands on files built here.
#include "tools/fleet.h"

#include <gtest/gtest.h>

#include <map>
#include <set>

#include "tests/unit/inv_test_util.h"

namespace {

using invtab::Value;
using invtest::run_decoder;
using invtest::ScratchDir;

struct Collect : invtab::RowSink {
  std::map<std::string, std::vector<invtab::Row>> rows;
  bool row(const invtab::Table& t, invtab::Row& r, std::string*) override {
    rows[t.name].push_back(r);
    return true;
  }
  // The named columns of every row of a table, "a|b|c" per row.
  std::vector<std::string> cols(const std::string& table, const std::vector<std::string>& names) {
    const invtab::Table* t = invtab::find_table(table);
    std::vector<std::string> out;
    for (const invtab::Row& r : rows[table]) {
      std::string line;
      for (const std::string& n : names) {
        const int c = t->column_index(n);
        line += (line.empty() ? "" : "|") + (c < 0 ? "?" : r[c].display());
      }
      out.push_back(line);
    }
    return out;
  }
};

const char kSnapshot[] =
    "\xEF\xBB\xBF?zxml\n+Snapshot=\ntimestamp=20140312101500.000000+180\nscan-time=2000\n"
    "hostname=esx-a\n+OS=\nWarning:1=\n~type=package_not_found\n~pkg_name=uname\n~more=os\n"
    "*os:1=ESXi\nuptime=00000002030405.000000:000\n-\n"
    "+System=\n*Computer-system=\nuuid=\n-\n"
    "+VMs=\n+vm:1=web\n~kind=linux\nvm-id=7\nvm-conf-file=/vmfs/volumes/ds1/web/web.vmx\n"
    "vm-state=1\nvm-id=99\n+Devices=\nvm-memory-size=4x\n*hdd:1=\ndisk-file=web.vmdk\n"
    "cur-size=50.0\n~units=MB\n~base-value=52428800\npreallocated=0\n-\n"
    "+Devices=\n*vm-processors=\ntotal-cores=8\n*hdd:2=\ndisk-file=b.vmdk\n-\n-\n"
    "*vm:2=\nvm-id=8\n-\n"
    "+Software=\n*Soft:a=b 1.0=a=b\nversion=1.0\ninst-date=20191227000000.000000+000\n-\n-\n"
    "*Memory=\n";
const char kAsset[] =
    "\xEF\xBB\xBF?zxml\n+AssetInfo=\nhostname=esx-a\nmac-address=00-13-32-08-F7-D4\n"
    "static-ip=1\n*control=\ndomain=LAB\n-\n";

std::string inv_file(const std::string& snapshot, const std::string& asset) {
  return invtest::assemble({{"type=snapshot\ntimestamp=20140312101500.000000+180\nsnaptype=esx:1\n",
                             invtest::doc_body(snapshot)},
                            {invtest::kAsset, invtest::doc_body(asset)}},
                           1);
}

TEST(FleetTables, DefinitionsAreConsistent) {
  std::set<std::string> names;
  for (const invtab::Table& t : invtab::tables()) {
    EXPECT_TRUE(names.insert(t.name).second) << t.name;
    std::set<std::string> cols;
    for (const invtab::Column& c : t.columns) {
      EXPECT_TRUE(cols.insert(c.name).second) << t.name << "." << c.name;
      EXPECT_EQ(c.name.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789_"),
                std::string::npos)
          << c.name;
    }
    for (const auto& part : t.key)
      for (const std::string& k : part) EXPECT_GE(t.column_index(k), 0) << t.name << " key " << k;
    for (const std::string& v : t.volatile_columns) EXPECT_GE(t.column_index(v), 0) << v;
  }
}

TEST(FleetTables, Conversions) {
  using invtab::Conv;
  const std::pair<std::pair<Conv, const char*>, const char*> cases[] = {
      {{Conv::kTime, "20140312101500.000000+180"}, "2014-03-12T07:15:00Z"},
      {{Conv::kTime, "20131231230000.000000-300"}, "2014-01-01T04:00:00Z"},
      {{Conv::kTime, "20000301001000.000000+60"}, "2000-02-29T23:10:00Z"},
      {{Conv::kTime, "20191227000000.000000+000"}, "2019-12-27T00:00:00Z"},
      {{Conv::kTime, "201372000000.000000+000"}, "NULL"},  // unpadded month and day
      {{Conv::kTime, "20190229000000.000000+0"}, "NULL"},  // not a leap year
      {{Conv::kTime, "20191301000000.000000+0"}, "NULL"},
      {{Conv::kInterval, "00000002030405.000000:000"}, "183845"},
      {{Conv::kInterval, "2030405.000000:000"}, "NULL"},
      {{Conv::kInt, "-42"}, "-42"},
      {{Conv::kInt, "4x"}, "NULL"},
      {{Conv::kInt, ""}, "NULL"},
      {{Conv::kInt, "99999999999999999999"}, "NULL"},
      {{Conv::kInt, "9223372036854775807"}, "9223372036854775807"},
      {{Conv::kInt, "9223372036854775808"}, "NULL"},
      {{Conv::kInt, "-9223372036854775808"}, "-9223372036854775808"},
      {{Conv::kInt, "-9223372036854775809"}, "NULL"},
      {{Conv::kInt, "-"}, "NULL"},
      {{Conv::kInt, "+5"}, "NULL"},
      {{Conv::kInt, "007"}, "7"},
      {{Conv::kBytes, "52428800"}, "52428800"},
      {{Conv::kBytes, "-1"}, "NULL"},
      {{Conv::kFlag, "true"}, "1"},
      {{Conv::kFlag, "0"}, "0"},
      {{Conv::kFlag, "2"}, "NULL"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(invtab::convert(c.first.first, c.first.second).display(), c.second) << c.first.second;
  }
  EXPECT_EQ(invtab::csv_field(Value::text("plain")), "plain");
  EXPECT_EQ(invtab::csv_field(Value::text("a,\"b\"\r\nc")), "\"a,\"\"b\"\"\r\nc\"");
  EXPECT_EQ(invtab::csv_field(Value()), "");
  EXPECT_EQ(invtab::csv_field(Value::integer(-3)), "-3");
}

TEST(FleetTables, MapsDocumentRows) {
  std::string error;
  Collect c;
  invtab::ScanFile f{"ab", "x.inv", 10};
  // A second Snapshot document maps nothing.
  ASSERT_TRUE(invtab::map_documents(
      f, {kSnapshot, kAsset, "\xEF\xBB\xBF?zxml\n*Snapshot=\nhostname=other\n"}, &c, &error))
      << error;
  // The UUID is empty, so the host is known by its MAC address.
  EXPECT_EQ(c.cols("scans", {"scan_id", "host_key", "file_name", "file_size", "scan_time",
                             "scan_duration_ms", "snaptype", "warnings_count"}),
            std::vector<std::string>{
                "ab|mac:00-13-32-08-F7-D4|x.inv|10|2014-03-12T07:15:00Z|2000|NULL|1"});
  EXPECT_EQ(c.cols("os", {"position", "product", "uptime_seconds"}),
            std::vector<std::string>{"1|ESXi|183845"});
  EXPECT_EQ(c.cols("warnings", {"section", "number", "type", "tool", "missing", "incomplete"}),
            std::vector<std::string>{"OS|1|package_not_found|uname|NULL|os"});
  // The first attribute of a name counts, and a value inside the row's
  // element comes from the first child of each name (the second Devices is
  // not looked into); rows come from every matching element.
  EXPECT_EQ(
      c.cols("vms", {"position", "number", "display_name", "guest_family", "vm_id", "conf_file",
                     "state", "memory_mb", "memory_text", "total_cores"}),
      (std::vector<std::string>{"1|1|web|linux|7|/vmfs/volumes/ds1/web/web.vmx|1|NULL|4x|NULL",
                                "2|2||NULL|8|NULL|NULL|NULL|NULL|NULL"}));
  EXPECT_EQ(
      c.cols("vm_disks", {"vm_number", "vm_conf_file", "disk_file", "current_bytes", "current_text",
                          "preallocated", "provisioned_bytes"}),
      (std::vector<std::string>{"1|/vmfs/volumes/ds1/web/web.vmx|web.vmdk|52428800|50.0|0|NULL",
                                "1|/vmfs/volumes/ds1/web/web.vmx|b.vmdk|NULL|NULL|NULL|NULL"}));
  // The element's value is the package name even when the name holds "=".
  EXPECT_EQ(c.cols("software", {"name", "version", "install_date"}),
            std::vector<std::string>{"a=b|1.0|2019-12-27T00:00:00Z"});
  EXPECT_EQ(c.cols("asset_summary", {"hostname", "static_ip", "domain", "cpu_count"}),
            std::vector<std::string>{"esx-a|1|LAB|NULL"});
  EXPECT_TRUE(c.rows["processes"].empty());
  EXPECT_EQ(c.cols("hosts", {"hostname"}), std::vector<std::string>{"esx-a"});
}

TEST(FleetCli, ExportTwiceDamagedFileAndDiff) {
  ScratchDir dir;
  std::string changed = kSnapshot;
  changed.replace(changed.find("vm-state=1"), 10, "vm-state=0");
  changed.replace(changed.find("*vm:2=\nvm-id=8\n"), 15, "");
  invtest::write_all(dir.file("a.inv"), inv_file(kSnapshot, kAsset));
  invtest::write_all(dir.file("b.inv"), inv_file(changed, kAsset));
  invtest::write_all(dir.file("c.inv"), inv_file(kSnapshot, kAsset).substr(0, 60));
  const std::string db = dir.file("f.db"), a = dir.file("a.inv"), b = dir.file("b.inv");
  EXPECT_EQ(run_decoder(dir, "export -o " + db + " " + a),
            "0|" + db + ": 1 exported, 0 already present, 0 failed\n|");
  // The damaged file is named on one line and skipped; a is already there.
  EXPECT_EQ(run_decoder(dir, "export -o " + db + " " + dir.path),
            "1|" + db + ": 1 exported, 1 already present, 1 failed\n|quillscan-inv: " +
                dir.file("c.inv") + ": no \"INV!\" magic at the end\n");
  EXPECT_EQ(run_decoder(dir, "diff " + a + " " + a), "0||");
  EXPECT_EQ(run_decoder(dir, "diff " + a + " - <" + b + " --ignore scans"),
            "1|vms [conf_file=/vmfs/volumes/ds1/web/web.vmx]: state: 1 -> 0\n"
            "vms [vm_id=8]: removed\n|");
  EXPECT_EQ(run_decoder(dir, "diff " + a + " " + b + " --format json --ignore vms,scans"),
            "0|{\"old\":\"" + a + "\",\"new\":\"" + b + "\",\"identical\":true,\"changes\":[]}\n|");
  for (const char* args : {"diff a", "diff a b --ignore nosuch", "export a.inv", "export -o x",
                           "export --format xml -o x a", "schema nosuch", "show --bad x"}) {
    const std::string r = run_decoder(dir, args);
    EXPECT_EQ(r.substr(0, 23), "2||usage: quillscan-inv") << args;
    EXPECT_EQ(r.find('\n'), r.size() - 1) << args;  // one line
  }
  EXPECT_EQ(run_decoder(dir, "diff --version"), "0|quillscan-inv 15.10.19.0\n|");
}

// The exact bytes of NDJSON and CSV rows: numbers, NULL, and text that needs
// escaping (quotes, commas, a control character, UTF-8 and a byte that is
// not UTF-8).
TEST(FleetCli, TextExportsExactBytes) {
  ScratchDir dir;
  std::string snap = kSnapshot;
  snap.replace(snap.find("*os:1=ESXi\n"), 11, "*os:1=w\"e,b\\ \x01 \xC3\xA9 \xE9\n");
  invtest::write_all(dir.file("a.inv"), inv_file(snap, kAsset));
  std::string out[2];
  for (int csv = 0; csv < 2; ++csv) {
    const std::string to = dir.file(csv ? "csv" : "nd");
    ASSERT_EQ(run_decoder(dir, "export --format " + std::string(csv ? "csv" : "ndjson") + " -o " +
                                   to + " " + dir.file("a.inv"))
                  .substr(0, 2),
              "0|");
    out[csv] = invtest::read_all(to + (csv ? "/os.csv" : "/os.ndjson"));
  }
  ASSERT_EQ(out[0].compare(0, 12, "{\"scan_id\":\""), 0) << out[0];
  const std::string id = out[0].substr(12, 64);
  EXPECT_EQ(out[0], "{\"scan_id\":\"" + id +
                        "\",\"position\":1,\"product\":\"w\\\"e,b\\\\ \\u0001 \xC3\xA9 \\u00e9\","
                        "\"kind\":null,\"name\":null,\"codename\":null,\"service_pack\":null,"
                        "\"build\":null,\"architecture\":null,\"uptime_seconds\":183845,"
                        "\"uptime_text\":\"00000002030405.000000:000\"}\n");
  EXPECT_EQ(out[1],
            "scan_id,position,product,kind,name,codename,service_pack,build,architecture,"
            "uptime_seconds,uptime_text\r\n" +
                id +
                ",1,\"w\"\"e,b\\ \x01 \xC3\xA9 \xE9\",,,,,,,183845,00000002030405.000000:000\r\n");
}

}  // namespace
