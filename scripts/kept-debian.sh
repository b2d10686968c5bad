# For scripts that need files of Debian's. They are unpacked below ~/.cache (XDG_CACHE_HOME), once, and kept until the
# list of packages changes. Sourced by scripts that define `fail`.
kept=${XDG_CACHE_HOME:-$HOME/.cache}/libsnmpextmibmodule

# keep_debian NAME SUITE PACKAGES FINISH OPTION...: sees to it that $kept/NAME is a root directory with these packages of
# SUITE. mmdebstrap gets the options; then FINISH ROOT is called with what it has unpacked.
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
    if ! mmdebstrap --include="${packages// /,}" "$@" "$suite" "$fresh/root" "deb $mirror $suite main" \
      >"$fresh/log" 2>&1 9>&-; then
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
