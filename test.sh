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
under ThreadSanitizer.

With NAMEs, runs only the tests in the optimised build whose names match one of these regular expressions (ctest -N
lists the names). With --preset, runs the tests of that build instead: release, asan, tsan, clang, armhf or arm64.

--long is for releases: tests with a long form run in that form (CONTRIBUTING.md lists them), and only one test runs at
a time, so that its figures mean something. Without NAMEs the sanitizer builds get the random requests as well, and each
fuzzer runs for ten minutes (docs/fuzzing.md); the unit tests of the simulated and the real server also run under
ThreadSanitizer, and all of them on 32-bit Arm (docs/small-machines.md).
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
      if [[ ! ${2-} =~ ^(release|asan|tsan|clang|armhf|arm64)$ ]]; then
        echo "test.sh: --preset takes release, asan, tsan, clang, armhf or arm64" >&2
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
  local log=build/$1-tests.log summary emulated=()
  [[ ! -f cmake/toolchains/$1.cmake ]] || emulated=(scripts/emulate "$1")
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
[[ ! $preset =~ ^arm && ! $long ]] || scripts/install-packages cross
if [[ $long ]]; then
  for set in browser packaging; do
    scripts/install-packages "$set"
  done
fi

sanitizers=(asan tsan)
# What a sanitizer's build runs: labels of tests.
declare -A labels=([asan]='unit simulator fuzz' [tsan]=unit)
[[ ! $long ]] || labels[tsan]+=' simulator'
declare -A targets=([unit]=unit_test_programs [simulator]=simulator_test_programs [fuzz]=fuzzers)
build_sanitizer() {
  local label wanted=()
  for label in ${labels[$1]}; do
    wanted+=("${targets[$label]}")
  done
  scripts/build "$1" --with-tests "${wanted[@]}"
}

build_the_rest() {
  for sanitizer in "${sanitizers[@]}"; do
    build_sanitizer "$sanitizer"
  done
}

if [[ $preset || ${#names[@]} -gt 0 ]]; then
  scripts/build "${preset:-release}" --with-tests
  filter=(--label-exclude '^single$')
  [[ ${#names[@]} -eq 0 ]] || filter=(--tests-regex "$(IFS='|'; echo "${names[*]}")")
  run_tests "${preset:-release}" "${filter[@]}"
else
  [[ -z $long ]] || scripts/build armhf --with-tests  # one of the system tests boots a machine with it
  scripts/build release --with-tests system_test_programs table_walk_bench fault_record_bench
  builder=
  if [[ -z $long ]]; then
    # Most of these tests wait: the other builds take what they leave of the processors.
    (chrt --idle --pid 0 "$BASHPID" && build_the_rest 2> >(cat >&2)) &
    builder=$!
  fi
  run_tests release --label-exclude '^(unit|simulator|single)$' --exclude-regex '_NOT_BUILT$'
  [[ -z $builder ]] || wait "$builder"
  for sanitizer in "${sanitizers[@]}"; do
    build_sanitizer "$sanitizer"
    run_tests "$sanitizer" --label-regex "^(${labels[$sanitizer]// /|})$"
    if [[ $long ]]; then
      scripts/build "$sanitizer" --with-tests system_test_programs
      run_tests "$sanitizer" --tests-regex '^system_random_requests$'
    fi
  done
  if [[ $long ]]; then
    run_tests armhf --label-exclude '^single$'
    if scripts/fuzz --seconds 600; then passed=$((passed + 1)); else failed=$((failed + 1)); fi
  fi
fi

echo "$passed passed, $failed failed"
[[ $failed -eq 0 ]]
