#!/usr/bin/env bash
# Fails (listing the files) when a C or C++ source that git tracks is not
# formatted as .clang-format says, with clang-format 14. Fix with:
#   git ls-files '*.cpp' '*.h' '*.c' | xargs clang-format-14 -i
set -euo pipefail
cd "$(dirname "$0")/.."

unformatted=()
while IFS= read -r -d '' file; do
  if ! clang-format-14 --dry-run --Werror "$file" >/dev/null 2>&1; then
    unformatted+=("$file")
  fi
done < <(git ls-files -z '*.cpp' '*.h' '*.c')

if ((${#unformatted[@]} > 0)); then
  echo "Not formatted as .clang-format says (clang-format-14 -i fixes them):" >&2
  printf '  %s\n' "${unformatted[@]}" >&2
  exit 1
fi
echo "All sources are formatted."
