# What scripts/package and scripts/check-systems have in common; they source it.
# shellcheck shell=bash disable=SC2034 # For the scripts.

root=$(cd "$(dirname "$0")/.." && pwd)
folder="" kept="" as_root=()
# As another user files of several owners are made in a user namespace, and removed in one.
((EUID == 0)) || as_root=(unshare --user --map-auto --map-root-user --)

clean_up() {
    [[ -z $folder ]] || "${as_root[@]}" rm -rf "$folder"
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM HUP

fail() {
    printf 'scripts/%s: %s\n' "${0##*/}" "$*" >&2
    exit 1
}

# A folder for this run, and the one in which roots are kept: $1, or the same.
make_folders() {
    folder=$(mktemp -d)
    chmod 755 "$folder"
    kept=$folder
    if [[ -n $1 ]]; then
        mkdir -p "$1"
        kept=$(realpath "$1")
    fi
    [[ -z $(git -C "$root" status --porcelain) ]] || echo "(What is not committed is left out.)"
}
