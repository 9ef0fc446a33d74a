#!/usr/bin/env bash
# How much of the code the tests run, and how much of the tree the tests are.
# Line coverage of apps/ and lib/: a --coverage Debug build in build/coverage, every suite but
# the guest's and the packages' (those run other builds), then gcovr. The test share: non-blank
# lines of tracked source (C, C++, Python, shell, CMake; fuzz corpora are data) under tests/
# over all of it.
source "$(dirname "$0")/common.sh"
bash "$ROOT/scripts/install-deps.sh" coverage

configure_and_build "$BUILD/coverage" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS=--coverage \
  -DCMAKE_C_FLAGS=--coverage -DCMAKE_EXE_LINKER_FLAGS=--coverage
find "$BUILD/coverage" -name '*.gcda' -delete
ctest --test-dir "$BUILD/coverage" -j2 --timeout 900 -LE 'guest|package' >/dev/null ||
  echo "coverage: some tests failed; the figures count what ran" >&2
cd "$ROOT"
gcovr -r . --object-directory "$BUILD/coverage" --filter apps/ --filter lib/ --print-summary \
  --txt "$BUILD/coverage/coverage.txt" 2>/dev/null | grep '^lines:'
git ls-files | grep -E '\.(c|cpp|h|py|sh|cmake)$|(^|/)CMakeLists\.txt$' | grep -v '/corpus/' |
  while read -r f; do printf '%s %s\n' "$(grep -cv '^[[:space:]]*$' "$f")" "$f"; done |
  awk '{ all += $1; if ($2 ~ /^tests\//) t += $1 }
       END { printf "tests: %.1f%% (%d of %d non-blank lines)\n", 100 * t / all, t, all }'
