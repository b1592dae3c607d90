# Sourced by the scripts. Changes to the root of the repository and defines
#   install_missing PACKAGE...   installs the Debian packages that are missing; needs no network if none is

cd "$(dirname "${BASH_SOURCE[0]}")/../.."

install_missing() {
    local package missing=() sudo=()
    if ! command -v apt-get dpkg-query >/dev/null; then
        echo "no Debian: expecting to find what these packages hold: $*" >&2
        return
    fi
    for package in "$@"; do
        dpkg-query --show --showformat='${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed ||
            missing+=("$package")
    done
    ((${#missing[@]})) || return 0

    echo "installing: ${missing[*]}"
    (($(id -u) == 0)) || sudo=(sudo)
    "${sudo[@]}" apt-get update
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}"
}
