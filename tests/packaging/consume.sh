#!/usr/bin/env bash
# Builds and runs a small program against the library, by one of the roads a consumer has; or checks
# that the installed files agree on the version.
# Usage: consume.sh cmake-package|pkg-config|subproject|version <source dir> <build dir> <compiler>
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

# Only what was installed: a consumer need not have libssh's development files.
use_installed_pkg_config() {
    PKG_CONFIG_LIBDIR=$(dirname "$(find "$scratch/prefix" -name tarnis.pc)")
    export PKG_CONFIG_LIBDIR
}

# Whether CMake takes the installed package for this version.
accepts_version() {
    cmake -G Ninja -S "$consumer" -B "$scratch/version-$1" -DCMAKE_CXX_COMPILER="$compiler" \
        -DCMAKE_PREFIX_PATH="$scratch/prefix" -DTARNIS_VERSION_WANTED="$1" \
        >"$scratch/version-$1.log" 2>&1
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
    use_installed_pkg_config
    read -ra flags <<<"$(pkg-config --cflags --libs tarnis)"
    libdir=$(pkg-config --variable=libdir tarnis)
    # A host may be written to a later standard than the library.
    for standard in c++17 c++2b; do
        "$compiler" "-std=$standard" "$consumer/main.cpp" "${flags[@]}" -Wl,-rpath,"$libdir" \
            -o "$scratch/consumer"
        "$scratch/consumer"
    done
    ;;
version)
    install_to_scratch
    use_installed_pkg_config
    version=$(sed -n 's/^ *VERSION \([0-9.]*\)$/\1/p' "$source_dir/CMakeLists.txt")
    IFS=. read -r major minor _ <<<"$version"
    test "$(pkg-config --modversion tarnis)" = "$version"
    test "$("$scratch/prefix/bin/tarnis" --version)" = "tarnis $version"
    for library in tarnis storageframework; do
        file=$(find "$scratch/prefix" -name "lib$library.so")
        readelf -d "$file" | grep -F "[lib$library.so.$major.$minor]"
        test "$(basename "$(readlink -f "$file")")" = "lib$library.so.$version"
    done
    accepts_version "$major.$minor"
    if accepts_version "$major.$((minor + 1))" || accepts_version "$((major + 1)).0"; then
        echo "another version than the installed one is accepted" >&2
        exit 1
    fi
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
    echo "usage: $0 cmake-package|pkg-config|subproject|version <source> <build> <compiler>" >&2
    exit 2
    ;;
esac
