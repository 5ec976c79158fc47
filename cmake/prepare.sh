# Scripts source this file in the root of the project. POSIX shell.

# prepare GROUP...: installs the missing packages of these groups in cmake/packages. Does not call apt if no package is
# missing. Of alternatives (a|b), installs the first package that is available.
prepare() {
  wanted=$(for group; do sed -n "s/^$group //p" cmake/packages; done)
  missing=
  for choice in $wanted; do
    one_of is_installed "$choice" >/dev/null || missing="$missing $choice"
  done
  [ -n "$missing" ] || return 0
  export DEBIAN_FRONTEND=noninteractive
  quietly "Updating the list of packages" apt-get update
  packages=
  for choice in $missing; do
    packages="$packages $(one_of is_offered "$choice" || echo "$choice")"
  done
  quietly "Installing$packages" apt-get install -y --no-install-recommends $packages
}

is_installed() { [ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]; }
is_offered() { LC_ALL=C apt-cache policy "$1" | grep 'Candidate: [^(]' >/dev/null; }

# one_of TEST A|B...: prints the first of the packages that passes the test.
one_of() {
  for package in $(echo "$2" | tr '|' ' '); do
    if "$1" "$package"; then
      echo "$package"
      return
    fi
  done
  return 1
}

# quietly TEXT COMMAND...: prints the text and runs the command. Shows the output of the command only if the command
# fails.
quietly() {
  echo "-- $1"
  shift
  log=$(mktemp)
  status=0
  "$@" >"$log" 2>&1 </dev/null || status=$?
  [ "$status" -eq 0 ] || cat "$log"
  rm -f "$log"
  return "$status"
}

# configure PRESET DIRECTORY OPTION...
configure() {
  preset=$1
  directory=$2
  shift 2
  if command -v ccache >/dev/null; then set -- "$@" -DCMAKE_CXX_COMPILER_LAUNCHER=ccache; fi
  quietly "Configuring $directory" cmake --preset "$preset" -B "$directory" "$@"
}

# compile DIRECTORY OPTION...
compile() {
  quietly "Building $1" cmake --build "$@"
}
