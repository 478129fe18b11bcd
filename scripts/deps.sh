#!/usr/bin/env bash
# Installs the Debian packages the build needs, only those missing. Idempotent and
# non-interactive; needs root (or sudo) the first time only.
# With --windows it adds MinGW-w64, which cross-compiles the 3ds Max plug-in (windows-mingw
# preset); the Linux build does not need it.
set -euo pipefail
windows=0
[ "${1:-}" = "--windows" ] && windows=1
pkgs=(build-essential cmake ninja-build clang libclang-rt-14-dev clang-format
      libgtest-dev libgmock-dev libbenchmark-dev
      libtinygltf-dev libtinyobjloader-dev nlohmann-json3-dev libstb-dev libspng-dev libcli11-dev libfmt-dev
      libbullet-dev zlib1g-dev pkg-config)
if ((windows)); then
  pkgs+=(g++-mingw-w64-x86-64 binutils-mingw-w64-x86-64)
fi
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

# Node runs the glTF validator in one test. A machine may already carry its own Node build
# (with npm inside); only when there is none do we take Debian's, and a failure here only
# makes that test skip.
if ! command -v npm >/dev/null 2>&1; then
  sudo_cmd=""
  [ "$(id -u)" -eq 0 ] || sudo_cmd="sudo"
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq nodejs npm >/dev/null 2>&1 ||
    echo "deps.sh: npm could not be installed; the glTF validator test will be skipped" >&2
fi
