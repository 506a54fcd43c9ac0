#!/usr/bin/env bash
# A re-entrant host under the sanitizers: every event, every public member called from inside
# its first occurrence, on the simulation, each case in a process of its own. Builds the
# simulation-only tests with AddressSanitizer and UndefinedBehaviorSanitizer in build-asan/.
set -euo pipefail
cd "$(dirname "$0")/.."

cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCORVID_NATIVE=OFF -DCORVID_BENCH=OFF \
  -DCORVID_SANITIZE=address,undefined
cmake --build build-asan --target corvid_tests
build-asan/tests/corvid_tests --gtest_filter='Events/ReentranceTest.*:ReentranceTable.*'
