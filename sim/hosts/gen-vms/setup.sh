#!/bin/bash
# Generates the host's registered machines (1,024 unless the host folder
# holds a file "count" with another number) on 8 datastores.
set -e
count=1024
if [ -e "$SIMHOST/count" ]; then
  read -r count < "$SIMHOST/count"
fi
/usr/bin/python3 "$SIMHOST/generate.py" "$SIMROOT" "$count"
