#!/bin/bash
# Prepares the host's root before the command runs. Each area keeps its part
# in a setup-*.sh beside this file; the parts run in name order.
set -e
for part in "$SIMHOST"/setup-*.sh; do
  [ -e "$part" ] || continue
  . "$part"
done
