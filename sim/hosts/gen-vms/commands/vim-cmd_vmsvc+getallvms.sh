# The listing setup.sh wrote for the generated machines.
while IFS= read -r line; do
  printf '%s\n' "$line"
done < /var/run/gen-vms/getallvms
