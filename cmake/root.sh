# Sourced after prepare.sh. POSIX shell. Bare Debian systems under build/roots, for what this machine cannot show by
# itself. Takes a superuser and debootstrap.

# make_root NAME SUITE: makes build/roots/NAME from the mirror that apt has here, unless it is there from another time.
# Without a mirror it fails.
make_root() {
  [ ! -e "build/roots/$1" ] || return 0
  mirror=$(. /etc/os-release
    apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Component: main' "Release: $VERSION_CODENAME" | head -n 1)
  [ -n "$mirror" ] || { echo "Without a mirror of Debian among apt's sources there is no $2" >&2; return 1; }
  mkdir -p build/roots
  rm -rf "build/roots/$1.part"
  quietly "Making build/roots/$1" \
    unshare --mount debootstrap --variant=minbase --include=ca-certificates,git "$2" "build/roots/$1.part" "$mirror" || return
  cp /etc/apt/apt.conf.d/* "build/roots/$1.part/etc/apt/apt.conf.d"
  mv "build/roots/$1.part" "build/roots/$1"
}

# in_root NAME COMMAND...: runs it in build/roots/NAME as the superuser, in a fresh copy of this project's tracked files
# as they are now. What it mounts and starts there is gone when it returns, whatever happens.
in_root() {
  root=build/roots/$1
  shift
  rm -rf "$root/project"
  mkdir "$root/project"
  tracked=$(git stash create)
  git archive "${tracked:-HEAD}" | tar -x -C "$root/project" || return
  cp /etc/resolv.conf "$root/etc"
  unshare --mount --pid --fork --kill-child --mount-proc="$root/proc" sh -c '
    mount --rbind /dev "$0/dev" || exit
    env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin LANG=C.UTF-8 chroot "$0" sh -c "cd /project && exec \"\$@\"" sh "$@"
    exit' "$root" "$@"
}
