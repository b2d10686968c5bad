#!/bin/sh
# markdown.sh SOURCE_DIR: fails when a tracked Markdown file breaks a rule of markdown_style.rb.
set -eu
cd "$1"
if ! command -v mdl >/dev/null; then
  echo "skipped: mdl is not installed (Debian package ruby-mdl)"
  exit 77
fi
git ls-files -z -- '*.md' | LC_ALL=C.UTF-8 xargs -0 mdl --style tests/lint/markdown_style.rb
