# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors
# shellcheck shell=bash
#
# What the scripts share. Sourced from the root of the project.

# Number of parallel compilations and tests; TRESK_JOBS overrides it.
jobs_count() { echo "${TRESK_JOBS:-$(nproc)}"; }

# run_logged <log> <command...>: appends the output to the log, and shows its end only if the command fails.
run_logged() {
  local log=$1
  shift
  mkdir -p "$(dirname "$log")"
  if "$@" >>"$log" 2>&1 </dev/null; then return 0; fi
  echo "failed: $*   (whole log: $log)" >&2
  # The compiler's own words first; the tail of a parallel build is often something else.
  grep -nE 'error:|Error |FAILED:|undefined reference' "$log" | tail -n 30 >&2 || true
  tail -n 15 "$log" >&2
  return 1
}

# test_preset <preset> [ctest argument...]: configures, builds and tests one preset. Prints the output of the tests
# that fail or are skipped, and ctest's closing lines; everything stands in build/<preset>.log.
test_preset() {
  local preset=$1 log=build/$1.log launcher=()
  shift
  mkdir -p build
  : >"$log"
  echo "== preset $preset"
  run_logged "$log" cmake --preset "$preset" || return 1
  run_logged "$log" cmake --build --preset "$preset" --parallel "$(jobs_count)" || return 1

  # The sanitizers keep their tables at fixed addresses, which a kernel with much randomness in its layout may have taken
  # already.
  if [[ $preset = [at]san ]] && setarch "$(uname -m)" -R true 2>/dev/null; then launcher=(setarch "$(uname -m)" -R); fi

  local status=0
  ${launcher[@]+"${launcher[@]}"} ctest --preset "$preset" --parallel "$(jobs_count)" --no-tests=error "$@" \
    >"build/$preset-ctest.log" 2>&1 </dev/null || status=$?
  cat "build/$preset-ctest.log" >>"$log"
  grep -vE '^ +Start +[0-9]+: |^ *[0-9]+/[0-9]+ Test +#[0-9]+: .* Passed |^(Test project|Preset )' \
    "build/$preset-ctest.log" | cat -s || true
  return $status
}
