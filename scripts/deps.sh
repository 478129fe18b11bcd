#!/usr/bin/env bash
# Installs the Debian packages the build needs, only those missing. Idempotent and
# non-interactive; needs root (or sudo) the first time only.
set -euo pipefail
pkgs=(build-essential cmake ninja-build clang libclang-rt-14-dev clang-format
      libgtest-dev libgmock-dev libbenchmark-dev
      libtinygltf-dev nlohmann-json3-dev libstb-dev libspng-dev libcli11-dev libfmt-dev
      libbullet-dev zlib1g-dev nodejs npm)
missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "Installing: ${missing[*]}" >&2
  sudo_cmd=""
  [ "$(id -u)" -eq 0 ] || sudo_cmd="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $sudo_cmd apt-get update -qq
  $sudo_cmd apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
