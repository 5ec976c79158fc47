#!/bin/sh
# Makes an account unless there is one, signs in, and stores the fitting of both ears in left.bin and right.bin.
#
#   HALVERN_API_KEY=... HALVERN_PASSWORD=... fitting.sh BASE-URL EMAIL AUDIOGRAMS
#
# Exit status: that of the first command that fails; see `halvern --help`.

# [fitting]
set -eu
umask 077
call() { operation=$1; shift; halvern "$operation" --base-url "$url" --json "$@"; }
url=$1 email=$2 audiograms=$3
call register --email "$email" >account.json || [ $? -eq 1 ]  # 1: the service refuses, as the address is taken
call login --email "$email" >account.json
HALVERN_ACCESS_TOKEN=$(jq -er .accessToken account.json)
export HALVERN_ACCESS_TOKEN
call profile "$audiograms" --left-out left.bin --right-out right.bin >fitting.json
jq -e '.leftConfiguration and .rightConfiguration' fitting.json >ears.json  # 1: an ear has no configuration
# [fitting]
