#!/usr/bin/env bash
# Builds the benchmarks, runs them and prints one table. Installs what is missing (Debian packages)
# first.
#
# Usage: bench/run.sh [--quick] [--scale=PART] [--rows=ROW,...] [NAME...]
#   --quick  a small run of a few seconds, to see whether everything works; its figures are coarse
#   NAME     only these: command connect throughput calls memory plain transfer
#            the last one runs only when it is named, and takes more than an hour
#   --scale  what part of its full size transfer moves, above 0 and up to 1
#   --rows   only these of its rows; "--help" lists them
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh

ensure_packages bench
cmake --preset release >/dev/null
cmake --build --preset release --target tarnis_bench -j "$(nproc)"
exec build/release/bench/tarnis_bench "$@"
