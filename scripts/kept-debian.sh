# For scripts that need files of Debian's. They are unpacked below ~/.cache (XDG_CACHE_HOME), once, and kept until the
# list of packages changes. Sourced by scripts that define `fail`.
kept=${XDG_CACHE_HOME:-$HOME/.cache}/libsnmpextmibmodule

# keep_debian NAME SUITE PACKAGES FINISH OPTION...: sees to it that $kept/NAME is a root directory with these packages
# of SUITE. mmdebstrap gets the options; then FINISH ROOT is called with what it has unpacked. mmdebstrap is run by the
# command in `configure_with`, if there is one.
configure_with=()
keep_debian() {
  local root=$kept/$1 suite=$2 packages=$3 finish=$4 mirror
  shift 4
  mkdir -p "$kept"
  # Tests that run at the same time need the same files.
  exec 9>"$root.lock"
  flock 9
  if [[ $(cat "$root/etc/sysroot-packages" 2>/dev/null) != "$packages" ]]; then
    command -v mmdebstrap >/dev/null || fail "mmdebstrap is missing: scripts/install-packages cross installs it"
    mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Origin: Debian' 'Component: main' \
      "Codename: bookworm" | head -n 1)
    [[ $mirror ]] || fail "apt knows no mirror of Debian: run apt-get update"

    fresh=$(mktemp -d "$kept/fresh-XXXXXX")
    trap 'rm -rf "$fresh"' EXIT
    echo "Unpacking Debian $suite (${root##*/})" >&2
    if ! "${configure_with[@]}" mmdebstrap --include="${packages// /,}" "$@" "$suite" "$fresh/root" \
      "deb $mirror $suite main" >"$fresh/log" 2>&1 9>&-; then
      cat "$fresh/log" >&2
      fail "Debian $suite could not be unpacked"
    fi
    "$finish" "$fresh/root"
    echo "$packages" >"$fresh/root/etc/sysroot-packages"
    rm -rf "$root"
    mv -T "$fresh/root" "$root"
    rm -rf "$fresh"
    trap - EXIT
  fi
  exec 9>&-
}

# in_debian NAME DIRECTORY=PLACE... -- COMMAND...: becomes the command, as root with what $kept/NAME holds, in the
# directory /srv/tree. The directories are mounted in their places there, in this order. Of the environment it has TERM
# only: what is set here, a compiler's launcher say, may not be there.
in_debian() {
  local root=$kept/$1
  shift
  mkdir -p "$root/srv/tree"
  exec env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root TERM="${TERM:-dumb}" \
    unshare --mount --pid --fork --kill-child -- bash -euo pipefail -c '
    root=$1
    shift
    mount --bind "$root" "$root"  # simulator/boot makes namespaces, for which the root must be a mount
    while [[ $1 != -- ]]; do
      mount --bind "${1%=*}" "$root${1##*=}"
      shift
    done
    mount -t proc proc "$root/proc"
    mount -t tmpfs -o mode=1777 tmp "$root/tmp"
    mount --rbind /dev "$root/dev"
    exec chroot "$root" sh -c "cd /srv/tree && exec \"\$@\"" sh "${@:2}"' bash "$root" "$@"
}
