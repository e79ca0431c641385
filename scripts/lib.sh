# What the scripts share; to be sourced by bash. Sets CORVANE_ROOT, the top of the source tree.

CORVANE_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
readonly CORVANE_ROOT

die() {
    echo "${0##*/}: $*" >&2
    exit 1
}

# missing_packages LIST...: what the lists name and this machine lacks.
missing_packages() {
    local package status
    while read -r package; do
        status=$(dpkg-query --show --showformat='${db:Status-Status}' "$package" 2>/dev/null) || true
        [[ $status == installed ]] || echo "$package"
    done < <(cd "$CORVANE_ROOT/scripts" && sed -e 's/#.*//' -e '/^[[:space:]]*$/d' "$@")
}

# Whether apt's lists, which a bare machine lacks, know every one of the packages.
have_candidates() {
    local package
    for package in "$@"; do
        [[ -n $(apt-cache show --no-all-versions "$package" 2>/dev/null) ]] || return 1
    done
}

# need_packages [LIST...]: installs the packages of packages.txt, and of further lists, that this machine lacks.
need_packages() {
    command -v dpkg-query apt-get >/dev/null ||
        die "this is no Debian machine; install by hand what scripts/packages.txt names${1:+, and $*}"
    local missing
    mapfile -t missing < <(missing_packages packages.txt "$@")
    ((${#missing[@]} > 0)) || return 0

    local apt=(env DEBIAN_FRONTEND=noninteractive apt-get --quiet --yes)
    if ((EUID != 0)); then
        command -v sudo >/dev/null ||
            die "packages are missing; as root, run: apt-get update && apt-get install ${missing[*]}"
        apt=(sudo "${apt[@]}")
    fi
    echo "Installing ${missing[*]}"
    have_candidates "${missing[@]}" || "${apt[@]}" update || die "apt-get update failed"
    # Lists that have gone stale name files that the server no longer has.
    "${apt[@]}" install --no-install-recommends "${missing[@]}" ||
        { "${apt[@]}" update && "${apt[@]}" install --no-install-recommends "${missing[@]}"; } ||
        die "these packages could not be installed: ${missing[*]}"
}

# build_preset NAME [TARGET...]: configures the tree build/NAME and builds the targets in it, by default all.
build_preset() {
    local preset=$1
    shift
    local targets=()
    (($# == 0)) || targets=(--target "$@")
    (cd "$CORVANE_ROOT" && cmake --preset "$preset" &&
        cmake --build --preset "$preset" --parallel "$(nproc)" "${targets[@]}") || die "building $preset failed"
}
