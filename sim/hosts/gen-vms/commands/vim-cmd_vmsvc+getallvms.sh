# The listing setup.sh wrote for the generated machines (under SIMROOT when
# the host folder is replayed in-process, at the host's root under sim/run).
while IFS= read -r line; do
  printf '%s\n' "$line"
done < "${SIMROOT:-}/var/run/gen-vms/getallvms"
