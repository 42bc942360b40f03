#!/usr/bin/env bash
# Builds and runs a small program against the library, by one of the roads a consumer has.
# Usage: consume.sh cmake-package|pkg-config|subproject <source dir> <build dir> <compiler>
set -euo pipefail

road=$1
source_dir=$2
build_dir=$3
compiler=$4
consumer=$source_dir/tests/packaging/consumer

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

install_to_scratch() {
    cmake --install "$build_dir" --prefix "$scratch/installed" >"$scratch/install.log"
    # A tree that was moved must work as well.
    mv "$scratch/installed" "$scratch/prefix"
}

case $road in
cmake-package)
    install_to_scratch
    cmake -G Ninja -S "$consumer" -B "$scratch/build" -DCMAKE_CXX_COMPILER="$compiler" \
        -DCMAKE_PREFIX_PATH="$scratch/prefix"
    cmake --build "$scratch/build"
    "$scratch/build/consumer"
    "$scratch/prefix/bin/tarnis" --version
    ;;
pkg-config)
    install_to_scratch
    PKG_CONFIG_PATH=$(dirname "$(find "$scratch/prefix" -name tarnis.pc)")
    export PKG_CONFIG_PATH
    read -ra flags <<<"$(pkg-config --cflags --libs tarnis)"
    libdir=$(pkg-config --variable=libdir tarnis)
    "$compiler" -std=c++17 "$consumer/main.cpp" "${flags[@]}" -Wl,-rpath,"$libdir" \
        -o "$scratch/consumer"
    "$scratch/consumer"
    ;;
subproject)
    cmake -G Ninja -S "$consumer" -B "$scratch/build" -DCMAKE_CXX_COMPILER="$compiler" \
        -DTARNIS_SOURCE_DIR="$source_dir" -DCMAKE_BUILD_TYPE=Debug
    cmake --build "$scratch/build"
    "$scratch/build/consumer"
    if [ -e "$scratch/build/tarnis/tests" ] || [ -e "$scratch/build/tarnis/tools" ]; then
        echo "a sub-project must not build the tests and the tool" >&2
        exit 1
    fi
    ;;
*)
    echo "usage: $0 cmake-package|pkg-config|subproject <source> <build> <compiler>" >&2
    exit 2
    ;;
esac
