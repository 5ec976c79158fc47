# Sourced by the commands in the project's root. POSIX shell.

# prepare GROUP...: installs what is missing of the groups in cmake/packages. Leaves apt alone when nothing is.
prepare() {
  packages=$(for group; do sed -n "s/^$group //p" cmake/packages; done)
  missing=
  for package in $packages; do
    case $(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null) in
      installed) ;;
      *) missing="$missing $package" ;;
    esac
  done
  [ -n "$missing" ] || return 0
  export DEBIAN_FRONTEND=noninteractive
  quietly "Updating the list of packages" apt-get update
  quietly "Installing$missing" apt-get install -y --no-install-recommends $missing
}

# quietly TEXT COMMAND...: says what is going on, and shows the output of a command only when it fails.
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
