# shellcheck shell=bash
# Debian packages that the project needs, and their installation. Sourced by the scripts.

# packages_for PURPOSE: names, separated by blanks.
packages_for() {
    local build="g++ cmake ninja-build pkg-config libssh-dev libssl-dev libcli11-dev
        nlohmann-json3-dev"
    local server="openssh-server openssh-client libnss-wrapper"
    local test="$build $server openssl googletest libgtest-dev libgmock-dev libpam-wrapper
        libcrypt-dev openssh-sftp-server dropbear-bin python3 python3-asyncssh proftpd-core
        proftpd-mod-crypto rclone clang git jq valgrind"
    case $1 in
    build) echo "$build" ;;
    demo) echo "$build $server" ;;
    test) echo "$test" ;;
    valgrind) echo "$test" ;;
    fuzz) echo "$test libclang-rt-dev" ;;
    coverage) echo "$test gcovr" ;;
    lint) echo "$test clang-format clang-tidy shellcheck" ;;
    bench) echo "$build $server valgrind curl lftp rclone libfuse3-dev fuse3 sshfs" ;;
    release) echo "debootstrap" ;;
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

# has_candidate PACKAGE: whether it can be installed, as far as this machine's package lists tell.
has_candidate() {
    LC_ALL=C apt-cache policy "$1" | grep '^  Candidate: [^(]' >/dev/null
}

# absent_in_release PACKAGE: whether this release of Debian goes without it, though others have it.
# Lists that do not even have a compiler say nothing.
absent_in_release() {
    case $1 in
    rclone) has_candidate g++ && ! has_candidate "$1" ;;
    *) return 1 ;;
    esac
}

# as_root REASON COMMAND...: runs a command as root, by sudo where that is needed.
as_root() {
    local reason=$1
    shift
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        echo "$reason: do it as root, or install sudo" >&2
        exit 1
    fi
}

# ensure_packages PURPOSE: installs what is missing, and says so. Does not touch the network when
# nothing is.
ensure_packages() {
    local wanted missing
    read -ra wanted <<<"$(packages_for "$1" | tr '\n' ' ')"
    read -ra missing <<<"$(missing_packages "${wanted[@]}")"
    leave_out_absent
    [ ${#missing[@]} -eq 0 ] && return
    echo "== installing Debian packages: ${missing[*]}"
    as_root "these Debian packages are missing: ${missing[*]}" \
        "$(dirname "${BASH_SOURCE[0]}")/install_packages.sh" "${missing[@]}"
}

# Takes what this release does not have out of `missing`, and tells the tests, which skip it then.
leave_out_absent() {
    local package kept=()
    for package in "${missing[@]}"; do
        if absent_in_release "$package"; then
            echo "== this release of Debian has no $package: what needs it is left out"
            export TARNIS_ABSENT_SERVERS="${TARNIS_ABSENT_SERVERS:-} $package"
        else
            kept+=("$package")
        fi
    done
    missing=("${kept[@]}")
}
