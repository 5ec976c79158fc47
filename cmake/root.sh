# Scripts source this file after prepare.sh. POSIX shell. Makes minimal Debian systems in build/roots, for checks that
# need another system than this one. Requires root and debootstrap.

# make_root NAME SUITE: creates build/roots/NAME, unless it exists, from the mirror that apt uses on this system. Fails
# without a mirror.
make_root() {
  [ ! -e "build/roots/$1" ] || return 0
  mirror=$(. /etc/os-release
    apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Component: main' "Release: $VERSION_CODENAME" | head -n 1)
  [ -n "$mirror" ] || { echo "The sources of apt contain no Debian mirror, so $2 cannot be made" >&2; return 1; }
  mkdir -p build/roots
  rm -rf "build/roots/$1.part"
  quietly "Making build/roots/$1" \
    unshare --mount debootstrap --variant=minbase --include=ca-certificates,git "$2" "build/roots/$1.part" "$mirror" || return
  cp /etc/apt/apt.conf.d/* "build/roots/$1.part/etc/apt/apt.conf.d"
  mv "build/roots/$1.part" "build/roots/$1"
}

# in_root NAME COMMAND...: runs the command in build/roots/NAME as root, in a new copy of the tracked files of this
# project with their current content. When it returns, all its mounts and processes have ended, also after a failure.
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
