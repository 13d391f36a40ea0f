#!/usr/bin/env bash
# Installs what is missing from Debian's packages, then configures and builds into build/:
# everything, or only the targets given as arguments (scripts/setup.sh parcelwise).
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(cmake g++ make pkg-config qt6-base-dev qt6-qpa-plugins libqt6sql6-odbc libqt6sql6-sqlite
          unixodbc unixodbc-dev odbcinst tdsodbc libsqliteodbc sqlite3 libsqlite3-dev libgl1-mesa-dev
          xvfb xauth fonts-dejavu-core dpkg-dev file libssl-dev)
# The package test runs lintian on the package; a build of given targets (the demo) does without.
(($#)) || packages+=(lintian)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "Installing: ${missing[*]}"
  sudo=""; [ "$(id -u)" -eq 0 ] || sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# The Debian packages register their ODBC drivers; make sure both names are known even if a
# package's post-install step was skipped (as happens in some minimal images).
register_driver() { # name library
  if ! odbcinst -q -d -n "$1" >/dev/null 2>&1; then
    lib=$(find /usr/lib -name "$2" 2>/dev/null | head -n 1)
    [ -n "$lib" ] || return 0
    tmp=$(mktemp); printf '[%s]\nDescription=%s\nDriver=%s\n' "$1" "$1" "$lib" > "$tmp"
    sudo=""; [ "$(id -u)" -eq 0 ] || sudo="sudo"
    $sudo odbcinst -i -d -f "$tmp" >/dev/null; rm -f "$tmp"
  fi
}
register_driver FreeTDS libtdsodbc.so
register_driver SQLite3 libsqlite3odbc.so

cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
targets=()
for t in "$@"; do targets+=(--target "$t"); done
cmake --build build -j"$(nproc)" ${targets[@]+"${targets[@]}"}
