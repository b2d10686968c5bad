# Sourced by the scripts that run one command and have to clear up after it, whatever ends it.

child=
child_status=0

# signal_child NAME: how a signal reaches the child. May be defined anew.
signal_child() {
  kill "-$1" "$child"
}

# run_child COMMAND...: runs COMMAND as if in the foreground (terminal, standard input and Ctrl-C are its own) and leaves
# its exit status in child_status. Unlike a command in the foreground it is also reached by signals sent to this script:
# bash answers those only between commands.
run_child() {
  local interrupted
  trap 'interrupted=1; signal_child TERM 2>/dev/null' TERM HUP
  # A terminal sends its interrupt to the child as well, which decides what it means; one that was sent to this script
  # alone ends the child. (Not a trap for both: bash 5.2 at times waits on when child and script are interrupted at once.)
  if [[ -t 0 ]]; then
    trap '' INT
  else
    trap 'interrupted=1; signal_child TERM 2>/dev/null' INT
  fi
  # Left alone, bash would start it deaf to the interrupt and with nothing to read.
  env --default-signal=INT,QUIT -- "$@" <&0 &
  child=$!
  while interrupted=; wait "$child" 2>/dev/null && child_status=0 || child_status=$?; [[ $interrupted ]]; do :; done
  # What follows is clearing up, which nothing may cut short.
  trap '' INT TERM HUP
  child=
}

# stop_process PID SECONDS: asks a process of this shell to end, and after SECONDS makes it.
stop_process() {
  local deadline=$((SECONDS + $2))
  kill -TERM "$1" 2>/dev/null || return 0
  while kill -0 "$1" 2>/dev/null; do
    if ((SECONDS > deadline)); then
      kill -KILL "$1" 2>/dev/null
      break
    fi
    sleep 0.02
  done
  wait "$1" 2>/dev/null || true
}
