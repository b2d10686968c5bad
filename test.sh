#!/bin/bash
# Builds and runs the tests. See --help.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: ./test.sh [--long] [NAME]...
       ./test.sh [--long] --preset PRESET [NAME]...

Installs missing packages, builds, and runs all tests: the system, simulator, MIB and lint tests in the optimised build,
then the unit tests in two builds by clang, which check the lock annotations: all of them, and the fuzzers over their
corpora, under AddressSanitizer and UndefinedBehaviorSanitizer, and those of the module and the daemon that have threads
under ThreadSanitizer; then the unit tests of the module and the daemon, a walk and the notifications on 32-bit Arm,
emulated, with Debian's libraries for it: some 120 MB, which are unpacked below ~/.cache once. Of what ships there, the
module's size and exported names are checked.

With NAMEs, runs only the tests in the optimised build whose names match one of these regular expressions (ctest -N
lists the names). With --preset, runs the tests of that build instead: release, asan, tsan, clang, armhf, armhf-clang or
arm64.

--long is for releases: tests with a long form run in that form (CONTRIBUTING.md lists them), and only one test runs at
a time, so that its figures mean something. Without NAMEs the sanitizer builds get the random requests as well, and each
fuzzer runs for ten minutes (docs/fuzzing.md); the unit tests of the simulated and the real server also run under
ThreadSanitizer and on 32-bit Arm, where everything comes from the compiler that ships it (docs/small-machines.md).
TEXT
}

cd "$(dirname "${BASH_SOURCE[0]}")"
preset=
long=
names=()
parallel=$((3 * $(nproc)))  # three tests per core: most of the long ones wait for a program
while [[ $# -gt 0 ]]; do
  case $1 in
    --preset)
      if [[ ! ${2-} =~ ^(release|asan|tsan|clang|armhf|armhf-clang|arm64)$ ]]; then
        echo "test.sh: --preset takes release, asan, tsan, clang, armhf, armhf-clang or arm64" >&2
        exit 2
      fi
      preset=$2
      shift ;;
    --long) long=yes ;;
    --help | -h) usage; exit 0 ;;
    -*) echo "test.sh: unknown option '$1' (--help lists them)" >&2; exit 2 ;;
    *) names+=("$1") ;;
  esac
  shift
done

if [[ $long ]]; then
  parallel=1
  export TAVO_BAD_TOOLS=all
  export TAVO_BROWSER=yes
  export TAVO_CYCLES=200
  export TAVO_ENDURANCE_MINUTES=120
  export TAVO_GATE_REQUESTS=2000
  export TAVO_HOLD_SECONDS=25
  export TAVO_MACHINES='amd64 armhf'
  export TAVO_MALLOC_STEP=20
  export TAVO_MANY_FAULTS=12000
  export TAVO_PACKAGES=build
  export TAVO_RESYNC_RUNS=1000
  export TAVO_ROUNDS=10
  export TAVO_SOAK_HOURS=48
  export TAVO_STARTS=50
  export TAVO_STOPPED_SECONDS=60
  export TAVO_STORM_RECORDS=525600
  export TAVO_STRESS_SECONDS=60
  export TAVO_ZABBIX=run
fi

passed=0
failed=0
# count_unit_tests LOG: how many tests more than ctest's own count passed and failed, since a program counts as its tests.
count_unit_tests() {
  awk '
    function count_program() {
      if (ran) { passed += ok; failed += bad; if (bad > 0) --failed; else --passed }
      ran = ok = bad = 0
      delete seen
    }
    /^[0-9]+\/[0-9]+ Testing: / { count_program() }
    /^\[  PASSED  \] [0-9]+ tests?\.$/ { ok = $4; ran = 1 }
    /^\[  FAILED  \] .* \([0-9]+ ms\)$/ && !seen[$4]++ { ++bad }
    END { count_program(); print passed + 0, failed + 0 }' "$1"
}

# run_tests PRESET [CTEST OPTION]... adds to the counts. It prints no test that passes; build/PRESET-tests.log has all.
run_tests() {
  local log=build/$1-tests.log summary machine=${1%-clang} emulated=()
  [[ ! -f cmake/toolchains/$machine.cmake ]] || emulated=(scripts/emulate "$machine")
  "${emulated[@]}" ctest --preset "$@" --parallel "$parallel" --no-label-summary --no-tests=error 2>&1 | tee "$log" |
    grep --line-buffered -vE '^ *(Start +[0-9]+:|[0-9]+/[0-9]+ Test +#[0-9]+: .* Passed )|^$' || true
  summary=$(grep -aoE '[0-9]+ tests? failed out of [0-9]+' "$log" || true)
  # ctest prints no summary if it ran no test.
  if [[ ! $summary =~ ^([0-9]+).*\ ([0-9]+)$ ]]; then
    failed=$((failed + 1))
    return
  fi
  failed=$((failed + BASH_REMATCH[1]))
  passed=$((passed + BASH_REMATCH[2] - BASH_REMATCH[1]))
  read -r more_passed more_failed < <(count_unit_tests "build/$1/Testing/Temporary/LastTest.log")
  passed=$((passed + more_passed))
  failed=$((failed + more_failed))
}

scripts/install-packages test
# Without them the tests on emulated servers are skipped, and say so.
scripts/install-packages machine || true
if [[ $preset =~ ^arm || $long || (! $preset && ${#names[@]} -eq 0) ]]; then
  scripts/install-packages cross
fi
if [[ $long ]]; then
  for set in browser packaging; do
    scripts/install-packages "$set"
  done
fi

# The builds besides the optimised one, the targets that each builds, and ctest's options for what it runs.
others=(asan tsan armhf-clang armhf)
declare -A targets=(
  [asan]='unit_test_programs simulator_test_programs fuzzers'
  [tsan]=unit_test_programs
  [armhf-clang]='unit_test_programs snmp-subagentd bmcsim_platform'
  [armhf]=snmpextmibmodule
)
declare -A tests=(
  [asan]='--label-regex ^(unit|simulator|fuzz)$'
  [tsan]='--label-regex ^unit$'
  [armhf-clang]='--tests-regex ^((unit|host|library)_tests_|system_(walk|notifications)$)'
  [armhf]='--tests-regex ^(exports|module_size)$'
)
if [[ $long ]]; then
  others=(asan tsan armhf)
  targets[tsan]+=' simulator_test_programs'
  tests[tsan]='--label-regex ^(unit|simulator)$'
  targets[armhf]=all
  tests[armhf]='--label-exclude ^single$'
fi

build_other() {
  local target=()
  read -ra target <<<"${targets[$1]}"
  scripts/build "$1" --with-tests "${target[@]}"
}

# Prints each when it is built.
build_others() {
  local other
  for other in "${others[@]}"; do
    build_other "$other" || return
    echo "$other"
  done
}

if [[ $preset || ${#names[@]} -gt 0 ]]; then
  scripts/build "${preset:-release}" --with-tests
  filter=(--label-exclude '^single$')
  [[ ${#names[@]} -eq 0 ]] || filter=(--tests-regex "$(IFS='|'; echo "${names[*]}")")
  run_tests "${preset:-release}" "${filter[@]}"
else
  scripts/build release --with-tests system_test_programs table_walk_bench fault_record_bench
  if [[ $long ]]; then
    # A system test boots a machine with armhf's build, and nothing is to disturb the tests.
    exec {built}</dev/null
    build_others >/dev/null
  else
    # Most of these tests wait: the other builds take what they leave of the processors.
    exec {built}< <(chrt --idle --pid 0 "$BASHPID" && build_others 2> >(cat >&2))
    # To compile a bmcsim for Arm would take longer than all tests there.
    export TAVO_SERVER_BUILD_DIR=build/release
  fi
  run_tests release --label-exclude '^(unit|simulator|single)$' --exclude-regex '_NOT_BUILT$'
  for other in "${others[@]}"; do
    read -r -u "$built" || true
    build_other "$other"
    if [[ $other =~ ^arm ]] && ! scripts/emulate armhf true; then
      echo "Skipped: the tests of the build $other"
      continue
    fi
    read -ra options <<<"${tests[$other]}"
    run_tests "$other" "${options[@]}"
    if [[ $long && $other =~ ^(asan|tsan)$ ]]; then
      scripts/build "$other" --with-tests system_test_programs
      run_tests "$other" --tests-regex '^system_random_requests$'
    fi
  done
  if [[ $long ]]; then
    if scripts/fuzz --seconds 600; then passed=$((passed + 1)); else failed=$((failed + 1)); fi
  fi
fi

echo "$passed passed, $failed failed"
[[ $failed -eq 0 ]]
