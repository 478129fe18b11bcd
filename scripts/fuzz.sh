#!/usr/bin/env bash
# Builds the libFuzzer targets (fuzz preset, clang) and fuzzes the cache reader for N seconds
# (default 60), starting from a seed corpus of valid caches. Crashes land in build/fuzz/.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-60}"
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --target fuzz_cache_reader fuzz_make_seeds
corpus=build/fuzz/corpus/cache_reader
mkdir -p "$corpus"
./build/fuzz/fuzz/fuzz_make_seeds "$corpus"
cd build/fuzz
./fuzz/fuzz_cache_reader -max_total_time="$seconds" -max_len=4096 -timeout=10 \
  -rss_limit_mb=2048 -print_final_stats=1 "../../$corpus"
