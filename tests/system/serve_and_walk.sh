#!/bin/sh
# serve_and_walk.sh BUILD SCENARIO [FAULTS]: makes the machine that it runs on a simulated server, serves it, says when
# the daemon answers, prints a walk of all tables once so many faults are listed (default: 4), and the daemon's private
# memory in KiB.
set -eu
build=$1
scenario=$2
faults=${3-4}
. "$(dirname "$0")/serve.sh"

faults_are_listed() {
  [ "$(snmpbulkwalk -v2c -c public -r 0 -t 10 -On "$address" "$subtree.1.1.1.1.2" | grep -c STRING)" = "$faults" ]
}

await 'the fault table' faults_are_listed
snmpbulkwalk -v2c -c public -t 10 -On "$address" "$subtree"
awk '/^Private/ { kib += $2 } END { print "private memory: " kib }' "/proc/$daemon/smaps_rollup"
