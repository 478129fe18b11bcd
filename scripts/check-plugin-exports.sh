#!/usr/bin/env bash
# Checks the plug-in's export table: exactly the six entry points 3ds Max looks up, and
# LibNumberClasses, LibInitialize and LibShutdown one and the same function.
# Usage: check-plugin-exports.sh PATH/TO/kvcache.dlo
set -euo pipefail
dll=${1:?usage: check-plugin-exports.sh kvcache.dlo}
objdump=${OBJDUMP:-x86_64-w64-mingw32-objdump}
table=$("$objdump" -p "$dll")

# "[ n] Name" lines of the name table; n indexes the address table's "[ n] +base[..] RVA".
names=$(awk '/\[Ordinal\/Name Pointer\] Table/{on=1; next} on && NF==0{on=0} on' <<<"$table" |
  sed -E 's/^\s*\[\s*([0-9]+)\]\s+(\S+).*/\1 \2/')
rvas=$(awk '/^Export Address Table -- Ordinal Base/{on=1; next} on && NF==0{on=0} on' <<<"$table" |
  sed -E 's/^\s*\[\s*([0-9]+)\]\s+\+base\[\s*[0-9]+\]\s+([0-9a-f]+).*/\1 \2/')

expected="LibClassDesc LibDescription LibInitialize LibNumberClasses LibShutdown LibVersion"
got=$(awk '{print $2}' <<<"$names" | sort | xargs)
if [ "$got" != "$expected" ]; then
  echo "exports of $dll are: ${got:-none}" >&2
  echo "expected exactly:     $expected" >&2
  exit 1
fi

rva_of() {
  local idx
  idx=$(awk -v n="$1" '$2==n{print $1}' <<<"$names")
  awk -v i="$idx" '$1==i{print $2}' <<<"$rvas"
}
one=$(rva_of LibNumberClasses)
for f in LibInitialize LibShutdown; do
  if [ -z "$one" ] || [ "$(rva_of "$f")" != "$one" ]; then
    echo "$f is not the same function as LibNumberClasses" >&2
    exit 1
  fi
done
for f in LibDescription LibClassDesc LibVersion; do
  if [ "$(rva_of "$f")" = "$one" ]; then
    echo "$f shares the address of LibNumberClasses" >&2
    exit 1
  fi
done
echo "exports OK: $expected"
