#!/usr/bin/env bash
# Installs what is missing, builds the tool alone (not the tests), writes the demo repository
# and opens the window on it.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh parcelwise
demo="${PARCELWISE_DEMO_DIR:-$PWD/build/demo-repository}"
build/parcelwise demo "$demo"
exec build/parcelwise --server "$demo"
