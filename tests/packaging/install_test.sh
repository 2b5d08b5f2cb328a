#!/bin/sh
# Installs, runs, upgrades, removes and purges the packages in FOLDER, without a service manager.
exec "$(dirname "$0")/sandbox.sh" plain install_steps.sh "$1"
