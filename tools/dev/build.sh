#!/usr/bin/env bash
# Sets up a Debian 12 machine for zq and builds it.
#   tools/dev/build.sh demo   build (release) and run the demonstration program
#   tools/dev/build.sh test   lint, then build (warnings as errors) and pass every test: dev preset,
#                             then asan, then tsan, then a short run of every fuzz target (fuzz
#                             preset, clang; fuzz/run.sh runs them longer)
# Missing Debian packages are installed with apt-get first; nothing is installed when all is there.
set -euo pipefail
cd "$(dirname "$0")/../.."

packages=(cmake ninja-build g++ pkg-config clang libclang-rt-14-dev clang-tidy clang-format
  libboost-dev libboost-thread-dev libboost-system-dev libboost-date-time-dev
  libboost-filesystem-dev libboost-regex-dev libboost-iostreams-dev
  libssl-dev openssl libcrypt-dev libcli11-dev libgtest-dev libgmock-dev libbenchmark-dev libspdlog-dev libcurl4-openssl-dev)

install_missing() {
  local missing=()
  for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  echo "== installing: ${missing[*]}"
  local sudo=""
  [ "$(id -u)" -ne 0 ] && sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}"
}

run_preset() {
  local preset=$1
  echo "== $preset: configure, build, test"
  cmake --preset "$preset" -DZQ_WERROR=ON >/dev/null
  cmake --build --preset "$preset"
  ctest --preset "$preset"
}

case "${1:-}" in
  demo)
    install_missing
    cmake --preset release >/dev/null
    cmake --build --preset release --target zq_demo
    cd build/release/examples && ./zq_demo
    ;;
  test)
    install_missing
    tools/dev/lint.sh
    run_preset dev
    run_preset asan
    run_preset tsan
    run_preset fuzz
    ;;
  *)
    echo "usage: $0 demo|test" >&2
    exit 2
    ;;
esac
