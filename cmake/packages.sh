# Read by ./run, ./test and ./bench (bash). Before the first package is there
# nothing may be assumed but bash, dpkg and apt.

packages_native="g++ make cmake ninja-build python3 libre2-dev libcli11-dev
  nlohmann-json3-dev musl-tools libgtest-dev libgmock-dev libbenchmark-dev"
packages_clang="$packages_native clang clang-tidy clang-tools"
packages_fuzz="$packages_native clang-14 libclang-rt-14-dev llvm-14"
packages_windows="$packages_native g++-mingw-w64-x86-64-posix wine wine64 googletest
  dpkg-dev perl unicode-data python3-six"

# need_packages NAME ...: installs those that are missing, and says so.
need_packages() {
  local missing
  missing=$(comm -23 <(printf '%s\n' "$@" | sort -u) \
    <(dpkg-query -W -f '${db:Status-Status} ${Package}\n' "$@" 2>/dev/null |
      sed -n 's/^installed //p' | sort -u))
  [ -n "$missing" ] || return 0

  local sudo=
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null ||
      { echo "These packages are needed; install them as root:" $missing >&2; return 1; }
    sudo="sudo"
  fi
  echo "Installing missing packages:" $missing
  mkdir -p build
  # shellcheck disable=SC2086
  { $sudo apt-get -q -o Acquire::Retries=3 update &&
    $sudo env DEBIAN_FRONTEND=noninteractive apt-get -q -y -o Acquire::Retries=3 \
      --no-install-recommends install $missing
  } >build/packages.log 2>&1 </dev/null || {
    tail -n 30 build/packages.log >&2
    echo "The packages could not be installed; the whole output is in build/packages.log" >&2
    return 1
  }
}

# build_preset PRESET [TARGET ...]: configures the first time, then builds.
# Quiet when all is well; else shows what went wrong.
build_preset() {
  local preset=$1 log=build/$1.log
  shift
  mkdir -p build
  if [ ! -e "build/$preset/build.ninja" ]; then
    cmake --preset "$preset" >"$log" 2>&1 ||
      { tail -n 40 "$log" >&2; echo "Configuring $preset failed; see $log" >&2; return 1; }
  fi
  cmake --build "build/$preset" ${1:+--target "$@"} >"$log" 2>&1 ||
    { grep -v '^\[[0-9]*/[0-9]*\]' "$log" | tail -n 100 >&2
      echo "Building $preset failed; see $log" >&2; return 1; }
}
