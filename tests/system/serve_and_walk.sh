#!/bin/sh
# serve_and_walk.sh BUILD SCENARIO [FAULTS]: makes the machine that it runs on a simulated server, serves it, says when
# the daemon answers, prints a walk of all tables once so many faults are listed (default: 4), and the daemon's private
# memory in KiB. For a machine that is thrown away afterwards.
set -eu
build=$1
scenario=$2
faults=${3-4}
address=127.0.0.1:1161
subtree=.1.3.6.1.4.1.61453.4.207
export MIBS= PATH="/usr/local/bin:$build:/usr/sbin:$PATH"

mkdir -p /usr/local/bin /var/lib/snmp
for tool in datactl flatkv slotutil ipmitool; do
  ln -sf "$build/bmcsim" "/usr/local/bin/$tool"
done
touch /var/tvmcWarmStartup
echo 'rocommunity public' >/run/agent.conf

# await WHAT COMMAND...: a minute and a half on a machine that is emulated quickly.
await() {
  what=$1
  shift
  tries=0
  until "$@" >/run/answer 2>&1; do
    tries=$((tries + 1))
    if [ "$tries" -gt 900 ]; then
      echo "$what does not come up:"
      cat /run/answer /run/bmcsim.log /run/daemon.log
      exit 1
    fi
    sleep 0.1
  done
}

answers() {
  snmpgetnext -v2c -c public -r 0 -t 1 -On "$address" "$subtree" | grep -q "^$subtree"
}

faults_are_listed() {
  [ "$(snmpbulkwalk -v2c -c public -r 0 -t 10 -On "$address" "$subtree.1.1.1.1.2" | grep -c STRING)" = "$faults" ]
}

bmcsim serve "$scenario" >/run/bmcsim.log 2>&1 &
await 'the simulated server' bmcsim ctl ping
snmp-subagentd -f -C -c /run/agent.conf -Lf /run/daemon.log --listen "udp:$address" \
  --module "$build/libsnmpextmibmodule.so" --platform "$build/libbmcsim.so" &
daemon=$!
await 'the daemon' answers
echo 'the daemon answers'
await 'the fault table' faults_are_listed
snmpbulkwalk -v2c -c public -t 10 -On "$address" "$subtree"
awk '/^Private/ { kib += $2 } END { print "private memory: " kib }' "/proc/$daemon/smaps_rollup"
