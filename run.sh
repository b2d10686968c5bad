#!/bin/bash
# Builds the module and serves the tables of a simulated server. See --help.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: ./run.sh [OPTION]...

Installs missing packages, builds, boots a simulated rack server, and serves its tables on udp:127.0.0.1:10161,
community public, until Ctrl-C. The start is warm: the daemon sends no start-up notification.

  --once            print all tables and exit
  --exec 'COMMAND'  run a shell command on the server that is up, or else on one booted for it, and exit with its
                    status; bmcsim and the net-snmp tools are in its path
  --agentx          put Debian's snmpd in front, as AgentX master
  --speed N         run the daemon's clock N times as fast
  --cold            start cold: the daemon sends a start-up notification after a minute
  --port N          serve on this UDP port; servers on different ports can run side by side
  --listen ADDRESS  serve on this IP address of the machine as well; 0.0.0.0 stands for all
  --config FILE     take access control, SNMPv3 users and notification destinations from this file, in the form of
                    snmpd.conf (default: simulator/agent.conf, where community public may read everything)
  --fleet N         boot N servers on N ports, from --port on, each with a name and serial numbers of its own
  --monitor         put Debian's SNMP exporter, Prometheus and Alertmanager around the server or servers, with a page
                    that shows them; nothing is installed for it, but unpacked in the build tree
  --monitor-port N  where these three listen on the loopback: Prometheus on this TCP port, the others on the next two
                    (default: 19090)
  --hardware        serve the hardware of this machine instead of a simulated server, as far as it can be read; root can
                    read the most
  --scenario FILE   describe the server with this file (default: simulator/scenarios/rack-server.yaml)
  --in-place        do without namespaces, where they are refused: use (and litter) this machine's own /var, /tmp and
                    /usr/local/bin
  --help            show this text
TEXT
}

fail() {
  echo "run.sh: $*" >&2
  exit 2
}

root=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd -P)
build=$root/build/release
port=10161
mode=serve
command=
boot_options=()
agent_options=()
fleet=
monitor=
monitor_port=19090
configured=
while [[ $# -gt 0 ]]; do
  case $1 in
    --exec | --speed | --port | --scenario | --listen | --config | --fleet | --monitor-port)
      [[ $# -ge 2 ]] || fail "$1 needs a value"
      case $1 in
        --exec) mode=exec command=$2 ;;
        --speed)
          [[ $2 =~ ^[1-9][0-9]*$ ]] || fail "--speed takes a whole number from 1 on, not '$2'"
          agent_options+=(--speed "$2") ;;
        --port)
          [[ $2 =~ ^[1-9][0-9]*$ && $2 -le 65535 ]] || fail "--port takes a number from 1 to 65535, not '$2'"
          port=$2 ;;
        --scenario) boot_options+=(--scenario "$2") ;;
        --listen)
          [[ $2 =~ ^[0-9.]+$|^[0-9a-fA-F:.]+$ ]] || fail "--listen takes an IP address, not '$2'"
          agent_options+=(--listen "$2") ;;
        --config)
          [[ -f $2 && -r $2 ]] || fail "cannot read the configuration $2"
          TAVO_AGENT_CONFIGURATION=$(<"$2")
          export TAVO_AGENT_CONFIGURATION
          configured=1 ;;
        --fleet)
          [[ $2 =~ ^[1-9][0-9]{0,2}$ ]] || fail "--fleet takes a number of servers from 1 to 999, not '$2'"
          fleet=$2 ;;
        --monitor-port)
          [[ $2 =~ ^[1-9][0-9]*$ && $2 -le 65533 ]] || fail "--monitor-port takes a number up to 65533, not '$2'"
          monitor_port=$2 ;;
      esac
      shift ;;
    --once) mode=once ;;
    --monitor) monitor=1 ;;
    --agentx) agent_options+=(--agentx) ;;
    --cold | --in-place | --hardware) boot_options+=("$1") ;;
    --help | -h) usage; exit 0 ;;
    *) fail "unknown option '$1' (--help lists them)" ;;
  esac
  shift
done
state=$build/server-$port

# Whether some program holds the UDP port, on the loopback or on any address.
in_use() {
  # The second field is the local address and port in hexadecimal. An address of zeros is any address.
  awk -v port="$(printf %04X "$port")" '
    $2 == "0100007F:" port || $2 ~ "^0+:" port "$" { found = 1 }
    END { exit !found }' /proc/net/udp /proc/net/udp6
}

# Whether a server is up on the port. A server locks its state file; a killed one leaves the file, but not the lock.
running() {
  [[ -s $state ]] && ! flock --nonblock "$state" true
}

if [[ $fleet ]]; then
  [[ $mode == serve ]] || fail "--fleet serves until Ctrl-C; --exec and --once reach one of its servers with --port alone"
  [[ " ${boot_options[*]} " != *" --in-place "* ]] || fail "--fleet needs namespaces, so it excludes --in-place"
  [[ $((port + fleet - 1)) -le 65535 ]] || fail "there are no $fleet ports from $port on"
fi

[[ -z $monitor || $mode == serve ]] ||
  fail "--monitor serves until Ctrl-C; --exec and --once reach its server with --port alone"

if running; then
  [[ $mode == serve || ${#boot_options[@]} -eq 0 && ${#agent_options[@]} -eq 0 && -z $configured ]] ||
    fail "a server is up on port $port already, booted with other options; stop it, or boot another with --port"
  case $mode in
    exec) exec "$root/simulator/boot" --build "$build" --enter "$state" -- \
      env MIBS=ALL MIBDIRS="$root/mibs:$root/mibs/base" bash -c "$command" ;;
    once) exec "$root/scripts/print-tables" --community bmcsim "127.0.0.1:$port" ;;
    serve) fail "a server is up on port $port already; stop it, or serve on another port with --port" ;;
  esac
fi

"$root/scripts/install-packages" run
first_port=$port
for ((port = first_port; port < first_port + ${fleet:-1}; port++)); do
  if in_use; then
    fail "udp port $port is in use by another program; stop it, or serve on another port with --port"
  fi
done
port=$first_port
"$root/scripts/build" release snmpextmibmodule snmp-subagentd bmcsim bmcsim_platform

agent=("$root/scripts/with-agent" --build "$build" --port "$port" "${agent_options[@]}")
case $mode in
  serve) ;;
  once) agent+=(-- "$root/scripts/print-tables" --community bmcsim "127.0.0.1:$port") ;;
  exec) agent+=(-- bash -c "$command") ;;
esac
if [[ $fleet ]]; then
  servers=("$root/scripts/fleet" --build "$build" --port "$port" --count "$fleet"
    --boot-options "${boot_options[*]@Q}" --agent-options "${agent_options[*]@Q}")
else
  servers=("$root/simulator/boot" --build "$build" --state "$state" "${boot_options[@]}" -- "${agent[@]}")
fi
if [[ $monitor ]]; then
  exec "$root/scripts/monitor" --build "$build" --port "$port" ${fleet:+--fleet "$fleet"} \
    --monitor-port "$monitor_port" -- "${servers[@]}"
fi
exec "${servers[@]}"
