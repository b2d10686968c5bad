#!/bin/sh
# serve_and_measure.sh BUILD SCENARIO FAULTS: makes the machine that it runs on a simulated server, serves it, and
# prints in KiB, once so many faults are listed, the daemon's private memory and the anonymous memory that the module
# adds: the difference to the same daemon with a module that does nothing.
set -eu
build=$1
scenario=$2
faults=$3
. "$(dirname "$0")/serve.sh"

# memory KIND: of the daemon
memory() {
  awk -v kind="^$1" '$1 ~ kind { kib += $2 } END { print kib }' "/proc/$daemon/smaps_rollup"
}

# restart_daemon MODULE WHAT PATTERN: waits until its log has the pattern. The daemon's list of changes would grow, and is
# not the module's, so there is none.
restart_daemon() {
  kill "$daemon"
  wait "$daemon"
  start_daemon "$1" --change-limit 0
  await "$2" grep -q "$3" /run/daemon.log
}

await 'the faults' grep -q "Total Fault entries:$faults$" /run/daemon.log
echo "private memory: $(memory Private)"
restart_daemon "$build/libsnmpextmibmodule.so" 'the faults' "Total Fault entries:$faults$"
with=$(memory Anonymous)
restart_daemon "$build/test-modules/idle.so" 'the daemon with an idle module' ' serves$'
echo "the module adds: $((with - $(memory Anonymous)))"
