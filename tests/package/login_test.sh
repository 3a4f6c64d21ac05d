#!/usr/bin/env bash
# Reads the two files that start the sweep at login as their readers would. Complaints are errors.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../../examples/login"

python3 - kalmora.sweep.plist <<'PYTHON'
import plistlib, sys

with open(sys.argv[1], "rb") as file:
    agent = plistlib.load(file)
assert sys.argv[1] == agent["Label"] + ".plist", "launchd expects the label as the file's name"
assert agent["ProgramArguments"] == ["/usr/local/bin/kalmora-sweep"]
assert agent["RunAtLoad"] is True
PYTHON

# The tool need not be installed where this runs.
scratch=$(mktemp -d)
trap 'rm -r "$scratch"' EXIT
unit=$scratch/kalmora-sweep.service
sed 's|^ExecStart=/usr/local/bin/kalmora-sweep$|ExecStart=/bin/true|' kalmora-sweep.service >"$unit"
grep -q '^ExecStart=/bin/true$' "$unit"
status=0
complaints=$(XDG_RUNTIME_DIR=$scratch systemd-analyze verify --user "$unit" 2>&1) || status=$?
if [[ $status -ne 0 || -n $complaints ]]; then
  echo "$complaints"
  exit 1
fi
