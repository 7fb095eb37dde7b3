# Writes dhclient's lease files at start-up, dated around the current time so
# that they never go stale: a current lease, an expired one, one that starts
# in the future and one for another address.
#
# The dates are the host's local time, which is how the agent reads them
# (dhclient itself writes UTC; on a host kept in UTC the two agree); `date`
# and the agent see the same TZ and /etc/localtime. Every lease is 12
# hours long and its boundaries lie at least 6 hours from now, so a
# daylight-saving change on the way does not alter which lease is current.
dir="$SIMROOT/var/lib/dhcp"
mkdir -p "$dir"
now=$(date +%s)
hour=3600
length=$((12 * hour))

# A dhclient date OFFSET seconds from now: weekday, date and time.
stamp() {
  date -d "@$((now + $1))" '+%w %Y/%m/%d %H:%M:%S'
}

# One lease block: IFNAME ADDRESS EXPIRY-OFFSET.
lease() {
  local net=${2%.*}
  cat <<LEASE
lease {
  interface "$1";
  fixed-address $2;
  option subnet-mask 255.255.255.0;
  option routers $net.1;
  option dhcp-lease-time $length;
  option dhcp-message-type 5;
  option domain-name-servers $net.1;
  option dhcp-server-identifier $net.1;
  option domain-name "lab.local";
  renew $(stamp $(($3 - length / 2)));
  rebind $(stamp $(($3 - length / 8)));
  expire $(stamp $3);
}
LEASE
}

# vmk0: its own file, an older expired lease followed by the current one.
{
  lease vmk0 192.168.10.25 $((-30 * hour))
  lease vmk0 192.168.10.25 $((6 * hour))
} >"$dir/dhclient-vmk0.leases"

# vmk1: its own lease has expired, the shared file holds a current lease for
# another address, and the backup file the current lease of its address.
lease vmk1 192.168.20.31 $((-6 * hour)) >"$dir/dhclient-vmk1.leases"
{
  lease vmk1 192.168.20.77 $((6 * hour))
  lease vmk2 192.168.30.41 $((-6 * hour))
} >"$dir/dhclient.leases"
lease vmk1 192.168.20.31 $((6 * hour)) >"$dir/dhclient.leases~"

# vmk2: its lease starts in 6 hours; the shared file's lease has expired.
lease vmk2 192.168.30.41 $((18 * hour)) >"$dir/dhclient-vmk2.leases"
