# Sourced by the scripts that serve a machine that is thrown away afterwards, with $build, and $scenario: a file, or
# --hardware. Starts the services and the daemon with its process in $daemon, and waits until it answers. More of the
# daemon's configuration is in $configuration.
address=127.0.0.1:1161
subtree=.1.3.6.1.4.1.61453.4.207
export MIBS= PATH="/usr/local/bin:$build:/usr/sbin:$PATH"

mkdir -p /usr/local/bin /var/lib/snmp
for tool in datactl flatkv slotutil ipmitool; do
  ln -sf "$build/bmcsim" "/usr/local/bin/$tool"
done
touch /var/tvmcWarmStartup
printf 'rocommunity public\n%s\n' "${configuration-}" >/run/agent.conf

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

bmcsim serve "$scenario" >/run/bmcsim.log 2>&1 &
await 'the server' bmcsim ctl ping

# start_daemon MODULE OPTION...: its process is $daemon.
start_daemon() {
  module=$1
  shift
  rm -f /run/daemon.log
  snmp-subagentd -f -C -c /run/agent.conf -Lf /run/daemon.log --listen "udp:$address" \
    --module "$module" --platform "$build/libbmcsim.so" "$@" &
  daemon=$!
}
start_daemon "$build/libsnmpextmibmodule.so"
await 'the daemon' answers
echo 'the daemon answers'
