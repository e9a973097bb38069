#!/usr/bin/env bash
# Fuzzes every parser of untrusted input with libFuzzer, built with clang-14,
# AddressSanitizer and UndefinedBehaviorSanitizer into build-fuzz/.
#
#   tools/fuzz.sh [seconds per target, default 60; 0: no time limit] [Name...]
#
# Names are those of fuzz/<Name>Fuzzer.cpp (all when none is given). Each
# target runs on one core over a copy of fuzz/corpus/<name>/; what it finds
# stays in build-fuzz/fuzz-runs/<name>/ (corpus/ for new inputs, crash-* and
# the like for failures), never in the checked-in corpus. More libFuzzer
# options go in ORVANE_FUZZ_ARGS, for instance ORVANE_FUZZ_ARGS=-runs=10000000.
# Fails when any target finds a crash, a hang or a broken property.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-60}
shift || true

tools/install-packages.sh clang-14 libfuzzer-14-dev

names=("$@")
if [ ${#names[@]} -eq 0 ]; then
  for source in fuzz/*Fuzzer.cpp; do
    base=$(basename "$source" .cpp)
    names+=("${base%Fuzzer}")
  done
fi

launcher=()
if command -v ccache >/dev/null; then
  launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
CC=clang-14 CXX=clang++-14 cmake -S . -B build-fuzz -DORVANE_FUZZ=ON -DORVANE_BUILD_TESTS=OFF \
  "${launcher[@]}" >/dev/null
targets=()
for name in "${names[@]}"; do targets+=("${name}Fuzzer"); done
nice cmake --build build-fuzz -j2 --target "${targets[@]}"

# ORVANE_FUZZ_ARGS is split into words on purpose.
# shellcheck disable=SC2206
extra=(${ORVANE_FUZZ_ARGS:-})
failed=()
for name in "${names[@]}"; do
  folder=$(echo "$name" | sed -E 's/([a-z0-9])([A-Z])/\1-\2/g' | tr '[:upper:]' '[:lower:]')
  scratch=build-fuzz/fuzz-runs/$folder
  rm -rf "$scratch"
  mkdir -p "$scratch/corpus"
  cp fuzz/corpus/"$folder"/* "$scratch/corpus/"
  echo "== $name: $seconds s"
  if ! nice build-fuzz/fuzz/"${name}Fuzzer" -max_total_time="$seconds" -timeout=10 -print_final_stats=1 \
      -artifact_prefix="$scratch/" "${extra[@]}" "$scratch/corpus" 2>"$scratch/log"; then
    failed+=("$name")
    tail -n 40 "$scratch/log"
  fi
  grep -E '^#[0-9]+.*(INITED|DONE)' "$scratch/log" || true
  echo "corpus: $(find "$scratch/corpus" -type f | wc -l) files"
done

if [ ${#failed[@]} -gt 0 ]; then
  echo "Findings in: ${failed[*]} (inputs in build-fuzz/fuzz-runs/)"
  exit 1
fi
echo "No findings in ${#names[@]} targets."
