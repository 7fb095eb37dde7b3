// Network adapters: the NIC listing (esxcli for ESXi 5 and 6, esxcfg-nics
// for ESX 4), the filtered route listing, a dhclient lease file and
// /etc/resolv.conf. Input: a few bytes saying which adapter is looked at
// (the first chooses the major version and the interface name, the next six
// are its hardware address), then the listing, the route output, the lease
// file and resolv.conf.
#include "collectors/network/network.h"
#include "fuzz/fuzz_support.h"
#include "host/host_access.h"

namespace {

// A fixed "now" (2019-06-01 12:00:00 UTC) keeps runs reproducible.
struct FixedClock : LiveHost {
  time_t wall_time() override { return 1559390400; }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<std::string> in = fuzz::split(data, size, 5);
  const std::string& adapter_bytes = in[0];
  const uint8_t choice = adapter_bytes.empty() ? 0 : static_cast<uint8_t>(adapter_bytes[0]);
  static const int kMajors[] = {4, 5, 6, 7};
  const int major = kMajors[choice & 3];
  static const char* const kNames[] = {"vmk0", "lo0", "vswif0", "$(x)"};
  const char* name = kNames[(choice >> 2) & 3];
  unsigned char mac[6] = {};
  for (size_t i = 0; i < 6 && i + 1 < adapter_bytes.size(); ++i) {
    mac[i] = static_cast<unsigned char>(adapter_bytes[i + 1]);
  }
  const std::vector<std::string> rest(in.begin() + 1, in.end());

  AdapterRecord adapter;
  adapter.name = name;
  adapter.ip = "10.130.2.121";
  adapter.netmask = "255.255.255.0";
  adapter.mac = mac_dashed(mac);
  fuzz::allowing_substr_out_of_range(
      [&] { adapter.description = nic_description(rest[0], major, mac_colon(mac)); });
  adapter.type = "Ethernet";
  adapter.route_output = rest[1];
  static FixedClock clock;
  adapter.dhcp = lease_matches_at(rest[2], adapter.name, adapter.ip, clock);

  zXML doc(true, "Snapshot");
  record_adapter(doc.top(), 1, adapter);
  record_dns_servers(rest[3], 0, doc.top());
  fuzz::check_document(doc);
  return 0;
}
