#!/usr/bin/env bash
# Installs the Debian packages the build needs (as root), skipping those already present.
# Usage: scripts/install-deps.sh [extra packages...]
set -euo pipefail
packages=(cmake g++ make pkg-config libopenblas-dev liblapacke-dev libgtest-dev "$@")
missing=()
for p in "${packages[@]}"; do
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  if [ "$(id -u)" -ne 0 ]; then
    echo "install-deps: these packages are missing and need root: ${missing[*]}" >&2
    exit 1
  fi
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
