#!/bin/sh
# confined_by_apparmor.sh IMAGE APPARMOR PROFILE: installs the files below IMAGE on the machine that it runs on, loads the
# profile with the package of AppArmor that is unpacked in APPARMOR, and runs the daemon confined by it, as the unit's
# user: behind an AgentX master, then on its own. It starts, answers a walk, notifies, takes the SD cards' trigger, reads
# its configuration again and stops. Not tried: the chassis link, SNMPv3 users, storage events, the periodic refresh.
# Prints below headings (==) its confinement and a walk of all tables, what AppArmor has denied to it, and what to a
# shell that does what is forbidden.
set -eu
image=$1
apparmor=$2
profile=$3
sink=127.0.0.1:1162
subtree=.1.3.6.1.4.1.61453.4.207
user=54321  # nobody on this machine
export MIBS= PATH=/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin

# await WHAT COMMAND...: a quarter of an hour on a machine that is emulated.
await() {
  what=$1
  shift
  deadline=$(($(date +%s) + 900))
  until "$@" >/run/answer 2>&1; do
    if [ "$(date +%s)" -gt "$deadline" ]; then
      echo "$what does not come:"
      cat /run/answer /run/*.log
      dmesg | grep apparmor= || true
      exit 1
    fi
    sleep 0.2
  done
}

cp -a "$image"/* /
cd /  # as the unit does
ldconfig
for tool in datactl flatkv slotutil ipmitool; do
  ln -sf "/usr/libexec/bmcsim/$tool" "/usr/local/bin/$tool"
done
rm -rf /var/lib/snmp-subagentd
install -d -o "$user" -g "$user" -m 750 /run/snmp-subagentd
install -d -o "$user" -g "$user" -m 700 /var/lib/snmp-subagentd
while read -r kind path mode _ _ _ target; do
  case $kind in
    L+) ln -sfn "$target" "$path" ;;
    d) install -d -m "$mode" "$path" ;;
  esac
done </usr/lib/tmpfiles.d/snmp-subagentd.conf
touch /run/snmp-subagentd/tvmcWarmStartup

mount -t securityfs securityfs /sys/kernel/security
# No denial is left out of the log, however many there are.
sysctl -q -w kernel.printk_ratelimit=0
"$apparmor/sbin/apparmor_parser" --config-file /dev/null \
  --base "$apparmor/etc/apparmor.d" --replace --skip-cache "$profile"
# Only now: what has been named may be in that directory.
mount -t tmpfs -o mode=1777 tmp /tmp

sed 's/drift: [0-9]*/drift: 0/' /usr/share/bmcsim/scenarios/rack-server.yaml >/run/still.yaml
bmcsim serve /run/still.yaml >/run/bmcsim.log 2>&1 &
await 'the server' bmcsim ctl ping
# It opens it to its own user alone.
chmod a+rw /var/bmcsim/socket
printf 'disableAuthorization yes\n' >/run/snmptrapd.conf
SNMP_PERSISTENT_DIR=/run/snmptrapd snmptrapd -f -C -c /run/snmptrapd.conf -n -On -Lf /run/notified.log "udp:$sink" &

# start_daemon OPTION...: its process is $daemon.
start_daemon() {
  setpriv --reuid="$user" --regid="$user" --clear-groups --bounding-set=-all --inh-caps=-all \
    env SNMP_PERSISTENT_DIR=/var/lib/snmp-subagentd \
    sh -c 'umask 007; exec snmp-subagentd -f -Lo --platform libbmcsim.so "$@"' sh "$@" >>/run/daemon.log 2>&1 &
  daemon=$!
}

answers() {
  snmpgetnext -v2c -c public -r 0 -t 2 -On "$1" "$subtree" | grep -q "^$subtree"
}

four_faults_are_listed() {
  [ "$(snmpbulkwalk -v2c -c public -r 0 -t 20 -On "$1" "$subtree.1.1.1.1.2" | grep -c STRING)" = 4 ]
}

# uses NAME PORT: has the daemon do its work, seen from the manager at this port of the machine, and stops it.
uses() {
  address=udp:127.0.0.1:$2
  await "the daemon $1" answers "$address"
  await "the faults $1" four_faults_are_listed "$address"
  echo "== confinement $1"
  cat "/proc/$daemon/attr/current"
  echo "== walk $1"
  snmpbulkwalk -v2c -c public -t 30 -On "$address" "$subtree"
  bmcsim ctl fault raise 77 class=4 >/dev/null
  await "the notification $1" grep -q "$subtree.1.1.1.1.1.77 " /run/notified.log
  bmcsim ctl fault clear 77 >/dev/null
  before=$(wc -l </run/notified.log)
  kill -USR1 "$daemon"
  await "the test notification $1" sh -c "[ \$(wc -l </run/notified.log) -gt $before ]"
  await "the SD cards' trigger $1" sh -c "bmcsim ctl sd-trigger 1 | grep -q '1 of 1'"
  # It reads its configuration again.
  kill -HUP "$daemon"
  await "the daemon $1 after SIGHUP" answers "$address"
  kill "$daemon"
  wait "$daemon"
  : >/run/notified.log
}

printf 'rocommunity public\ntrap2sink udp:%s public\nmaster agentx\nagentXSocket /var/agentx/master\n' "$sink" >/run/snmpd.conf
printf 'agentXPerms 0660 0755 -1 %s\nagentXTimeout 900\nagentXRetries 0\n' "$user" >>/run/snmpd.conf
SNMP_PERSISTENT_DIR=/run/snmpd snmpd -f -C -c /run/snmpd.conf -Lf /run/snmpd.log udp:127.0.0.1:1161 &
await 'the AgentX master' test -S /var/agentx/master
start_daemon
uses 'behind a master' 1161

printf 'rocommunity public\ntrap2sink udp:%s public\n' "$sink" >/etc/snmp/snmp-subagentd.conf
start_daemon --listen udp:127.0.0.1:1163
uses 'on its own' 1163

# denied HEADING: what has been since the last heading.
denied() {
  echo "== denied to $1"
  dmesg --read-clear | grep 'apparmor="DENIED"' || true
}

denied 'the daemon'
# What a tool of the daemon's may not do, even as root.
for forbidden in 'read -r line </etc/shadow' ': >/usr/sbin/planted'; do
  sh -c 'echo "exec snmp-subagentd" >/proc/self/attr/exec; exec sh -c "$1"' sh "$forbidden" 2>/dev/null || true
done
denied 'a tool'
