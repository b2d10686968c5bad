#!/bin/sh
# codespell.sh SOURCE_DIR: fails when a tracked file has a word that codespell knows as misspelt.
set -eu
cd "$1"
if ! command -v codespell >/dev/null; then
  echo "skipped: codespell is not installed"
  exit 77
fi
# Without the fuzzers' inputs, which are garbage on purpose.
git ls-files -z -- . ':!fuzz/corpus' | xargs -0 codespell --ignore-words tests/lint/codespell-ignore.txt
