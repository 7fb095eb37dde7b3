#!/bin/bash
# The host's large, binary and special files (see make_files.py).
/usr/bin/python3 -S "$SIMHOST/make_files.py" "$SIMROOT"
