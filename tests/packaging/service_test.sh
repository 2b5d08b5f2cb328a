#!/bin/sh
# The units of the packages in FOLDER, under a systemd of their own.
[ -x /lib/systemd/systemd ] || { echo "skipped: no systemd here"; exit 77; }
exec "$(dirname "$0")/sandbox.sh" systemd service_steps.sh "$1"
