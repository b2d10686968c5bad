#!/bin/sh
# clang_format.sh SOURCE_DIR: fails when a tracked C or C++ file is not formatted as .clang-format says.
set -eu
cd "$1"
if ! command -v clang-format >/dev/null; then
  echo "skipped: clang-format is not installed"
  exit 77
fi
git ls-files -z -- '*.c' '*.cpp' '*.h' | xargs -0 clang-format --dry-run -Werror
