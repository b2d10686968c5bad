#!/bin/sh
# serve_and_walk.sh BUILD SCENARIO: makes the machine that it runs on a simulated server, serves it, says when the
# daemon answers, and prints a walk of all tables once the scenario's four faults are listed.
set -eu
build=$1
scenario=$2
. "$(dirname "$0")/serve.sh"

faults_are_listed() {
  [ "$(snmpbulkwalk -v2c -c public -r 0 -t 10 -On "$address" "$subtree.1.1.1.1.2" | grep -c STRING)" = 4 ]
}

await 'the fault table' faults_are_listed
snmpbulkwalk -v2c -c public -t 10 -On "$address" "$subtree"
