#!/bin/sh
# serve_hardware.sh BUILD SMARTCTL: waits for the file /run/prepared, serves the machine that it runs on, says when the
# daemon answers, and then prints each notification on a line.
set -eu
build=$1
PATH=$PATH:$(dirname "$2")
scenario=--hardware
sink=udp:127.0.0.1:1162
configuration="trap2sink $sink public"
until [ -e /run/prepared ]; do
  sleep 0.1
done
echo 'disableAuthorization yes' >/run/snmptrapd.conf
MIBS= /usr/sbin/snmptrapd -f -C -c /run/snmptrapd.conf -n -On -Lo -F 'TRAP %P %W %q %N %v\n' "$sink" &
. "$(dirname "$0")/serve.sh"
wait
