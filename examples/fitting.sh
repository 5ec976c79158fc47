#!/bin/sh
# Creates an account unless it exists, signs in, and stores the fitting of both ears in left.bin and right.bin. Both
# files exist afterwards only if the exit status is 0.
#
#   HALVERN_API_KEY=... HALVERN_PASSWORD=... fitting.sh BASE-URL EMAIL AUDIOGRAMS
#
# Exit status: that of the first command that fails; see `halvern --help`.

# [fitting]
set -eu
umask 077
rm -f left.bin right.bin  # they may contain data of another patient
export HALVERN_BASE_URL="$1"
email=$2 audiograms=$3
halvern register --json --email "$email" >account.json || {
  status=$?
  [ $status -eq 1 ] || exit $status  # 1: refused, because the address is taken
}
halvern login --json --email "$email" >account.json
HALVERN_ACCESS_TOKEN=$(jq -er .accessToken account.json)
export HALVERN_ACCESS_TOKEN
halvern profile --json "$audiograms" --left-out left.bin --right-out right.bin >fitting.json  # 7: no configuration for an ear
# [fitting]
