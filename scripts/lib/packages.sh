# shellcheck shell=bash
# Debian packages that the project needs, and their installation. Sourced by the scripts.

# packages_for PURPOSE: names, separated by blanks.
packages_for() {
    local build="g++ cmake ninja-build pkg-config libssh-dev libssl-dev libcli11-dev
        nlohmann-json3-dev"
    local server="openssh-server openssh-client libnss-wrapper"
    local test="$build $server openssl googletest libgtest-dev libgmock-dev libpam-wrapper
        openssh-sftp-server dropbear-bin python3 python3-asyncssh proftpd-core
        proftpd-mod-crypto clang git"
    case $1 in
    build) echo "$build" ;;
    demo) echo "$build $server" ;;
    test) echo "$test" ;;
    valgrind) echo "$test valgrind" ;;
    coverage) echo "$test gcovr" ;;
    lint) echo "$test clang-format clang-tidy shellcheck" ;;
    bench) echo "$build $server valgrind curl lftp rclone" ;;
    *)
        echo "packages_for: unknown purpose $1" >&2
        return 1
        ;;
    esac
}

missing_packages() {
    local package
    for package in "$@"; do
        dpkg-query -W -f='${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed ||
            printf '%s ' "$package"
    done
}

# ensure_packages PURPOSE: installs what is missing, and says so. Does not touch the network when
# nothing is.
ensure_packages() {
    local wanted missing as_root=()
    read -ra wanted <<<"$(packages_for "$1" | tr '\n' ' ')"
    read -ra missing <<<"$(missing_packages "${wanted[@]}")"
    [ ${#missing[@]} -eq 0 ] && return
    if [ "$(id -u)" -ne 0 ]; then
        if ! command -v sudo >/dev/null; then
            echo "these Debian packages are missing: ${missing[*]}" >&2
            echo "install them as root, or install sudo" >&2
            exit 1
        fi
        as_root=(sudo)
    fi
    echo "== installing Debian packages: ${missing[*]}"
    "${as_root[@]}" "$(dirname "${BASH_SOURCE[0]}")/install_packages.sh" "${missing[@]}"
}
