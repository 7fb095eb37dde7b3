#!/bin/sh
# quillscan-capture: asks a host, with nothing but its own shell and tools,
# everything the inventory agent would ask it in a normal scan and in a debug
# run, and writes the answers as one capture stream to standard output.
# quillscan-build turns the capture into the agent's inventory file
# elsewhere. Typical use, from another machine:
#
#   ssh root@esx-01 sh -s < quillscan-capture > esx-01.qscap
#
# Nothing is written on the host: every answer goes through pipes and shell
# variables. Every name taken from the host (paths, device names, machine
# ids, package names) reaches a command only quoted, so no text of the host
# is ever run. Each request runs under `timeout` when the host has it
# (QSCAP_TIMEOUT seconds, 300 by default).
#
# The stream format is described in docs/capture-format.md. In short: a
# first line "QSCAP 1 md5", then blocks of records
#   R <seq> <kind> [<attr>...] [=<plain key>]
#   <hex dump of: key NUL answer>
#   ...
#   E <md5 of the block's lines above>
# and a last line "Z <number of records>".

main() {
  set -f
  DEFAULT_IFS=$(printf ' \t\n_')
  DEFAULT_IFS=${DEFAULT_IFS%_}
  SOH=$(printf '\001')
  seq=0
  TO=
  T=${QSCAP_TIMEOUT:-300}
  case $T in '' | *[!0-9]*) T=300 ;; esac
  if command -v timeout >/dev/null 2>&1; then
    # Old busybox builds spell it "timeout -t SECS", newer ones "timeout SECS".
    if timeout -t 5 true >/dev/null 2>&1; then
      TO="timeout -t $T"
    elif timeout 5 true >/dev/null 2>&1; then
      TO="timeout $T"
    fi
  fi
  for tool in md5sum dd; do
    if ! command -v $tool >/dev/null 2>&1; then
      echo "quillscan-capture: this host has no '$tool'; a capture needs md5sum, dd and od or hexdump" >&2
      return 1
    fi
  done
  if command -v od >/dev/null 2>&1; then
    HEXER=od
  elif command -v hexdump >/dev/null 2>&1; then
    HEXER=hexdump
  else
    echo "quillscan-capture: this host has neither 'od' nor 'hexdump'" >&2
    return 1
  fi
  # Directory listings come from find, which reads a directory in the order
  # the file system returns its entries (as the agent's readdir does) and
  # separates names with NUL bytes. Without such a find, ls lists them
  # sorted and one per line: the order within a directory can then differ
  # from the agent's, and a name holding a newline is split.
  LISTER=ls
  if find / -maxdepth 0 -print0 >/dev/null 2>&1; then LISTER=find; fi
  # Sizes come from stat where the host has it, else from ls -l.
  STATTER=ls
  if stat -L -c '%s %b %B' / >/dev/null 2>&1; then STATTER=stat; fi

  echo "QSCAP 1 md5"
  clock_record
  put W sh cwd "" "pwd -P"
  locator
  os_and_identity
  storage
  network
  hardware
  software
  vms
  debug_run
  clock_record
  flush
  echo "Z $seq"
}

# ---------------------------------------------------------------- records

# body MODE KEY [ARG]: writes the answer of one request to standard output.
body() {
  case $1 in
    sh) $TO /bin/sh -c "${3:-$2}" ;;
    file) $TO dd if="$2" bs=65536 count=1024 ;;
    head) $TO dd if="$2" bs=8192 count=1 ;;
    big) $TO dd if="$2" bs=65536 count=256 ;;
    dir)
      if [ "$LISTER" = find ]; then
        # The trailing "/" makes find enter a directory reached through a
        # symbolic link, as opendir does.
        case $2 in
          /*) $TO find "$2/" -mindepth 1 -maxdepth 1 -print0 ;;
          *) $TO find "./$2/" -mindepth 1 -maxdepth 1 -print0 ;;
        esac
      else
        $TO ls -a -- "$2"
      fi
      ;;
    none) ;;
  esac
}

# put KIND MODE KEY ATTRS [ARG]: adds one record to the current block. Its
# body is the key, a NUL byte and the answer, as od prints it. A record
# without an answer whose key holds only plain characters is the header
# line alone, the key as its last word after "=".
put() {
  seq=$((seq + 1))
  case $2:$3 in
    none: | none:*[!A-Za-z0-9/._,:@+-]*) ;;
    none:*)
      block "R $seq $1${4:+ $4} =$3"
      return
      ;;
  esac
  block "$(
    printf 'R %s %s%s\n' "$seq" "$1" "${4:+ $4}"
    {
      printf '%s\000' "$3"
      body "$2" "$3" "$5" </dev/null 2>/dev/null
    } | hexout
  )"
}

# Standard input as hex bytes, " hh" each, any number a line.
hexout() {
  if [ "$HEXER" = od ]; then
    od -An -v -tx1
  else
    hexdump -v -e '16/1 " %02x" "\n"'
  fi
}

# Records are written in blocks of up to 64, each closed by the md5 of its
# bytes; a large record closes its block at once.
BLK=
NBLK=0
block() {
  BLK="$BLK$1
"
  NBLK=$((NBLK + 1))
  if [ $NBLK -ge 64 ] || [ ${#1} -gt 65536 ]; then flush; fi
}

flush() {
  [ -n "$BLK" ] || return 0
  sum=$(printf '%s' "$BLK" | md5sum)
  printf '%sE %s\n' "$BLK" "${sum%% *}"
  BLK=
  NBLK=0
}

# Records a command line exactly as the agent hands it to the shell.
cmd() {
  put C sh "$1" ""
}

# grab COMMAND: runs it (again) and keeps its output in G for parsing here,
# trailing newlines included.
grab() {
  G=$($TO /bin/sh -c "$1" </dev/null 2>/dev/null; echo .)
  G=${G%.}
}

# grab_run PROGRAM ARG...: the same for a program of this script, run
# directly (no shell, so its arguments need no quoting).
grab_run() {
  G=$($TO "$@" </dev/null 2>/dev/null; echo .)
  G=${G%.}
}

# list_names DIR: G becomes the directory's entries, one a line, in the
# order of its D record.
list_names() {
  if [ "$LISTER" = find ]; then
    case $1 in
      /*) grab_run find "$1/" -mindepth 1 -maxdepth 1 ;;
      *) grab_run find "./$1/" -mindepth 1 -maxdepth 1 ;;
    esac
  else
    grab_run ls -a -- "$1"
  fi
}

# head_text PATH COUNT: G becomes the first COUNT x 8 KiB of a file with
# NUL bytes turned into \001 (a shell variable cannot hold NUL).
head_text() {
  G=$($TO dd if="$1" bs=8192 count="$2" 2>/dev/null </dev/null | tr '\000' '\001'; echo .)
  G=${G%.}
}

# Q becomes $1 as one shell word, quoted the way the agent quotes host text:
# inside single quotes, each ' written as '\''.
quote() {
  q_rest=$1
  Q=
  while :; do
    case $q_rest in
      *\'*)
        Q="$Q${q_rest%%\'*}'\\''"
        q_rest=${q_rest#*\'}
        ;;
      *)
        Q="'$Q$q_rest'"
        return
        ;;
    esac
  done
}

# What the agent learns about a path without reading it: exists, opens,
# directory, regular file, byte size, allocated KiB (links followed).
stat_rec() {
  s_e=0 s_r=0 s_d=0 s_f=0 s_s=0 s_a=0
  if [ -e "$1" ]; then
    s_e=1
    [ -r "$1" ] && s_r=1
    [ -d "$1" ] && s_d=1
    [ -f "$1" ] && s_f=1
    s_path=$1
    if [ "$STATTER" = stat ]; then
      set -- $(stat -L -c '%s %b %B' -- "$1" 2>/dev/null </dev/null)
      case $1 in '' | *[!0-9]*) ;; *) s_s=$1 ;; esac
      case $2$3 in '' | *[!0-9]*) ;; *) s_a=$(($2 * $3 / 1024)) ;; esac
    else
      # Only the leading fields are used: a name holding blanks or newlines
      # comes after them.
      set -- $(ls -lnLsd -- "$1" 2>/dev/null </dev/null)
      case $1 in '' | *[!0-9]*) ;; *) s_a=$1 ;; esac
      case $6 in '' | *[!0-9]*) ;; *) s_s=$6 ;; esac
    fi
    set -- "$s_path"
  fi
  put S none "$1" "$s_e $s_r $s_d $s_f $s_s $s_a"
}

# A file the agent reads whole.
file_rec() {
  stat_rec "$1"
  [ "$s_f" = 1 ] && [ "$s_r" = 1 ] && put F file "$1" ""
}

clock_record() {
  set -- $(date '+%s %z' 2>/dev/null </dev/null)
  c_wall=$1 c_zone=$2
  c_up=
  if [ -r /proc/uptime ]; then
    set -- $(dd if=/proc/uptime bs=256 count=1 2>/dev/null </dev/null)
    c_up=$1
  fi
  if [ -z "$c_up" ] && command -v esxcli >/dev/null 2>&1; then
    # ESXi without /proc/uptime: microseconds since boot.
    set -- $($TO esxcli system stats uptime get 2>/dev/null </dev/null)
    case $1 in '' | *[!0-9]*) ;; *) c_up=u$1 ;; esac
  fi
  case $c_wall in '' | *[!0-9]*) c_wall=- ;; esac
  case $c_zone in [+-][0-9][0-9][0-9][0-9]) ;; *) c_zone=- ;; esac
  case $c_up in '' | *[!0-9.u]*) c_up=- ;; esac
  put T none clock "$c_wall $c_zone $c_up"
}

# ------------------------------------------------------------ tool locator

# The locator's directories, in its order. "/usr/lib/emacs/*/etc" and
# "/opt/*/bin" are never searched by the agent and are left out here too.
TOOL_DIRS="/bin /usr/bin /sbin /usr/sbin /etc /usr/etc /lib /usr/lib /lib64 /usr/lib64
/usr/games /usr/games/bin /usr/games/lib /usr/emacs/etc /usr/TeX/bin /usr/tex/bin
/usr/interviews/bin/LINUX /usr/X11R6/bin /usr/X386/bin /usr/bin/X11 /usr/X11/bin
/usr/X11R5/bin /usr/local/bin /usr/local/sbin /usr/local/etc /usr/local/lib
/usr/local/games /usr/local/games/bin /usr/local/emacs/etc /usr/local/TeX/bin
/usr/local/tex/bin /usr/local/bin/X11 /usr/contrib /usr/hosts /usr/include
/usr/g++-include /usr/ucb /usr/old /usr/SAFE_NEW /usr/local /usr/libexec /usr/share"

# The tools whose paths go into command lines.
RUN_TOOLS="ps uname lsusb df ifconfig lspci env"

# Does the directory entry $2 stand for the tool $1? The agent's rule: the
# name itself, the name followed by digits and a "." suffix (without a
# second "." unless it is a final ".C"), a compressed form of those, or any
# of them behind leading "s.". The tool names here hold no digit and no ".".
name_match() {
  nm_e=$2
  while :; do
    plain_match "$1" "$nm_e" && return 0
    case $nm_e in
      s.*) nm_e=${nm_e#s.} ;;
      *) return 1 ;;
    esac
  done
}

plain_match() {
  [ "$2" = "$1" ] && return 0
  case $2 in "$1"*) ;; *) return 1 ;; esac
  pm_n=${#2}
  case $2 in
    *.Z) pm_n=$((pm_n - 2)) ;;
    *.gz) pm_n=$((pm_n - 3)) ;;
    *.bz2) pm_n=$((pm_n - 4)) ;;
  esac
  pm_r=${2#"$1"}
  pm_r=${pm_r#"${pm_r%%[!0-9]*}"}
  case $pm_r in .*) ;; *) return 1 ;; esac
  pm_r=${pm_r#.}
  pm_n=$((pm_n - ${#1} - 1))
  case $pm_r in *.*) ;; *) return 0 ;; esac
  pm_head=${pm_r%%.*}
  [ "${#pm_head}" -ge "$pm_n" ] && return 0
  [ "${pm_r#*.}" = C ]
}

# Records every directory's listing and finds, as the agent would, the
# first path of each tool of RUN_TOOLS (variables P_ps, P_uname, ...).
locator() {
  for t in $RUN_TOOLS; do eval "P_$t="; done
  for d in $TOOL_DIRS; do
    stat_rec "$d"
    [ "$s_d" = 1 ] || continue
    put D dir "$d" "$LISTER"
    list_names "$d"
    while IFS= read -r entry; do
      [ -n "$entry" ] || continue
      name=${entry##*/}
      for t in $RUN_TOOLS; do
        eval "found=\$P_$t"
        [ -z "$found" ] || continue
        if name_match "$t" "$name"; then eval "P_$t=\$d/\$name"; fi
      done
    done <<EOF
$G
EOF
  done
  # The DHCP check of the locator.
  if [ -n "$P_ps" ]; then
    quote "$P_ps"
    cmd "$Q -A | grep dhclient"
  fi
}

# -------------------------------------------------------------- collectors

os_and_identity() {
  cmd "vmware -v"
  cmd "esxcli system version get"
  if [ -n "$P_uname" ]; then
    quote "$P_uname"
    cmd "$Q -m"
    cmd "$Q -n"
  fi
  cmd "smbiosDump"
  cmd "esxcli system uuid get"
  cmd "vim-cmd hostsvc/hosthardware"
  cmd "whoami"
  cmd "cat /proc/sys/kernel/hostname"
  file_rec /etc/samba/smb.conf
  file_rec /etc/passwd
  if [ -n "$P_ps" ]; then
    quote "$P_ps"
    cmd "$Q -cvu"
  fi
  cmd "env"
}

# Lines after the first line holding "--" (the table under a dashed header).
table_body() {
  tb_seen=0
  TB=
  while IFS= read -r tb_line; do
    if [ $tb_seen = 1 ]; then
      TB="$TB$tb_line
"
    else
      case $tb_line in *--*) tb_seen=1 ;; esac
    fi
  done <<EOF
$1
EOF
}

storage() {
  cmd "esxcli storage vmfs extent list"
  grab "esxcli storage vmfs extent list"
  table_body "$G"
  while IFS= read -r line; do
    [ -n "$line" ] || continue
    # Columns at blanks: volume, UUID, extent number, device, partition. A
    # line starting with a blank has an empty volume column.
    IFS=' '
    set -- $line
    IFS=$DEFAULT_IFS
    case $line in " "*) dev=$3 ;; *) dev=$4 ;; esac
    [ -n "$dev" ] || continue
    quote "$dev"
    cmd "esxcli storage core device list -d $Q"
    cmd "esxcli storage core path list -d $Q"
  done <<EOF
$TB
EOF
  cmd "esxcli storage filesystem list"
  cmd "esxcli network firewall ruleset list"
}

# The IPv4 interfaces (names in IFNAMES) and the raw answers the builder
# derives their addresses, masks and hardware addresses from.
interfaces() {
  IFNAMES=
  if command -v ip >/dev/null 2>&1; then
    put I sh "ip -o -4 addr show" ""
    grab "ip -o -4 addr show"
    while IFS= read -r line; do
      [ -n "$line" ] || continue
      # "N: DEV inet A/P ... LABEL\ valid_lft ...": the label is the last
      # word before the backslash.
      label=${line%%\\*}
      label=${label% }
      label=${label##* }
      IFNAMES="$IFNAMES$label
"
      dev=${line#*: }
      dev=${dev%% *}
      case $dev in */* | .*) continue ;; esac
      quote "/sys/class/net/$dev/address"
      put I sh "mac $dev" "" "cat $Q"
    done <<EOF
$G
EOF
  elif command -v ifconfig >/dev/null 2>&1; then
    put I sh "ifconfig -a" ""
    grab "ifconfig -a"
    while IFS= read -r line; do
      case $line in '' | ' '* | '	'*) continue ;; esac
      label=${line%% *}
      label=${label%:}
      IFNAMES="$IFNAMES$label
"
    done <<EOF
$G
EOF
  fi
  if command -v esxcli >/dev/null 2>&1; then
    put I sh "esxcli network ip interface ipv4 get" ""
    put I sh "esxcli network ip interface list" ""
    if [ -z "$IFNAMES" ]; then
      grab "esxcli network ip interface ipv4 get"
      table_body "$G"
      while IFS= read -r line; do
        label=${line%% *}
        [ -n "$label" ] && IFNAMES="$IFNAMES$label
"
      done <<EOF
$TB
EOF
    fi
  fi
}

network() {
  interfaces
  cmd "esxcli network nic list"
  cmd "esxcfg-nics -l"
  file_rec /var/lib/dhcp/dhclient.leases
  file_rec /var/lib/dhcp/dhclient.leases~
  while IFS= read -r name; do
    [ -n "$name" ] || continue
    quote "$name"
    cmd "esxcfg-route -l |grep $Q|awk '{print \" \"\$2\" \"\$3}'"
    case $name in */*) ;; *) file_rec "/var/lib/dhcp/dhclient-$name.leases" ;; esac
  done <<EOF
$IFNAMES
EOF
  file_rec /etc/resolv.conf
}

hardware() {
  cmd "esxcli hardware pci list"
  if [ -n "$P_lsusb" ]; then
    quote "$P_lsusb"
    l_q=$Q
    cmd "$l_q|awk '{print \$2; print \$4}'"
    grab "$l_q|awk '{print \$2; print \$4}'"
    [ -n "$G" ] || return 0
    # Lines taken two by two: bus, then device.
    bus=
    half=0
    while IFS= read -r line; do
      if [ $half = 0 ]; then
        bus=$line
        half=1
      else
        quote "$bus"
        b_q=$Q
        quote "$line"
        cmd "$l_q -s $b_q:$Q -v"
        half=0
      fi
    done <<EOF
$G
EOF
  fi
}

software() {
  cmd "esxcli software vib list"
  cmd "ipkg list"
  grab "ipkg list"
  [ -n "$G" ] || return 0
  while IFS= read -r line; do
    name=${line%% *}
    [ "$name" = Successfully ] && break
    [ -n "$name" ] || continue
    quote "$name"
    cmd "ipkg info $Q"
  done <<EOF
$G
EOF
}

# A virtual disk and the parents it names, with the sizes of their extents.
vmdk_chain() {
  vc_path=$1
  vc_depth=0
  vc_seen='
'
  while [ -n "$vc_path" ] && [ $vc_depth -le 32 ]; do
    # A chain that comes back to a disk already read asks nothing new: the
    # agent reads it again and gets the same answers.
    case $vc_seen in *"
$vc_path
"*) return 0 ;; esac
    vc_seen="$vc_seen$vc_path
"
    stat_rec "$vc_path"
    # A FIFO is not read: nobody writes to it, and the agent, which reads it
    # without waiting, finds it empty. A device is read like a file, up to
    # the same limits.
    [ "$s_r" = 1 ] || return 0
    vc_device=0
    if [ "$s_f" != 1 ]; then
      [ -c "$vc_path" ] || [ -b "$vc_path" ] || return 0
      vc_device=1
    fi
    vc_dir=${vc_path%/*}/
    case $vc_path in */*) ;; *) vc_dir= ;; esac
    head_text "$vc_path" 1
    case $G in
      KDMV*) put F head "$vc_path" part ;;
      *)
        if [ "$s_s" -gt 8192 ] || [ $vc_device = 1 ]; then
          # A descriptor longer than the head is read on, up to 16 MiB.
          put F big "$vc_path" part
          head_text "$vc_path" 2048
        else
          put F head "$vc_path" part
        fi
        ;;
    esac
    vc_text=$G
    # Extent lines: RW|RDONLY sectors type "file" [offset].
    while IFS= read -r line; do
      case $line in *.vmdk*) ;; *) continue ;; esac
      l=${line#"${line%%[! ]*}"}
      case $l in RW\ * | RDONLY\ *) ;; *) continue ;; esac
      case $l in *\"*) ;; *) continue ;; esac
      ext=${l#*\"}
      ext=${ext%%\"*}
      stat_rec "$vc_dir${ext%%"$SOH"*}"
    done <<EOF
$vc_text
EOF
    vc_parent=
    case $vc_text in
      *parentFileNameHint=\"*)
        vc_parent=${vc_text#*parentFileNameHint=\"}
        vc_parent=${vc_parent%%\"*}
        vc_parent=${vc_parent%%"$SOH"*}
        ;;
    esac
    [ -n "$vc_parent" ] || return 0
    vc_path=$vc_dir$vc_parent
    vc_depth=$((vc_depth + 1))
  done
}

# One registered machine's configuration, directory and disks.
vm_files() {
  vmx=$1
  stat_rec "$vmx"
  [ "$s_r" = 1 ] || return 0
  vm_regular=$s_f
  # A FIFO reads as empty (see vmdk_chain); a device is read up to the limit.
  if [ "$vm_regular" = 1 ] || [ -c "$vmx" ] || [ -b "$vmx" ]; then
    put F file "$vmx" ""
  fi
  vm_dir=${vmx%/*}
  stat_rec "$vm_dir"
  if [ "$s_d" = 1 ]; then
    put D dir "$vm_dir" "$LISTER"
    list_names "$vm_dir"
    while IFS= read -r entry; do
      [ -n "$entry" ] || continue
      stat_rec "$vm_dir/${entry##*/}"
    done <<EOF
$G
EOF
  fi
  [ "$vm_regular" = 1 ] || return 0
  # NUL bytes become \001 here: the shell cannot hold a NUL, and the agent's
  # path ends at the first one (the system call sees it there).
  head_text "$vmx" 8192
  vm_text=$G
  while IFS= read -r line; do
    case $line in *.fileName\ =\ \"*.vmdk\"*) ;; *) continue ;; esac
    disk=${line#*.fileName = \"}
    disk=${disk%%\"*}
    case $disk in
      *"$SOH"*) vmdk_chain "${vmx%/*}/${disk%%"$SOH"*}" ;;
      *.vmdk) vmdk_chain "${vmx%/*}/$disk" ;;
    esac
  done <<EOF
$vm_text
EOF
}

vms() {
  cmd "vim-cmd vmsvc/getallvms"
  # A machine on a volume no file system names has the empty path, which
  # the agent also asks about.
  stat_rec ""
  grab "esxcli storage filesystem list"
  table_body "$G"
  v_fs=$TB
  grab "vim-cmd vmsvc/getallvms"
  v_first=1
  while IFS= read -r line; do
    if [ $v_first = 1 ]; then
      v_first=0
      continue
    fi
    case $line in *' '*) ;; *) continue ;; esac
    id=${line%% *}
    case $line in *\]*) ;; *) continue ;; esac
    ds=
    case $line in *\[*)
      ds=${line#*\[}
      ds=${ds%%\]*}
      ;;
    esac
    rest=${line#*\]}
    rest=${rest#"${rest%%[! ]*}"}
    [ -n "$rest" ] || continue
    pre=${line%%.vmx*}
    if [ "$pre" != "$line" ] && [ ${#pre} -ge $((${#line} - ${#rest})) ]; then
      rel="${rest%%.vmx*}.vmx"
    else
      rel=$rest
    fi
    # Every mounted file system of that volume name (the agent takes the
    # first) leads to the configuration file.
    while IFS= read -r fsline; do
      IFS=' '
      set -- $fsline
      IFS=$DEFAULT_IFS
      [ $# -eq 7 ] && [ "$2" = "$ds" ] || continue
      vm_files "$1/$rel"
    done <<EOF
$v_fs
EOF
    quote "$id"
    cmd "vim-cmd vmsvc/power.getstate $Q"
  done <<EOF
$G
EOF
}

# tool_cmd PATH ARGS: the command line of a located tool, when it was found.
tool_cmd() {
  [ -n "$1" ] || return 0
  quote "$1"
  cmd "$Q$2"
}

# What a debug run adds: the raw sections' commands and files.
debug_run() {
  file_rec /etc/fstab
  tool_cmd "$P_df" " -T"
  cmd "esxcli storage core device list"
  cmd "esxcli storage core path list"
  cmd "esxcfg-scsidevs --list"
  cmd "esxcfg-scsidevs -m"
  cmd "df -k"
  tool_cmd "$P_ifconfig" ""
  tool_cmd "$P_lspci" " -v"
  tool_cmd "$P_lsusb" " -v"
  tool_cmd "$P_env" ""
  cmd "uname -n"
}

main "$@" </dev/null
