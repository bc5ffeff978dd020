#!/usr/bin/env bash
# Cross-builds the third-party libraries of the Windows build as static
# libraries, from the source packages of this machine's own Debian mirror.
#
#   windows-thirdparty.sh LIBRARY ...      (re2, openssl)
#
# Prints one folder a library, with include/ and lib/ in it. What was built once
# is kept in $RUVO_CACHE (default: ~/.cache/ruvo-sysroot), keyed by everything
# that goes into it. Nothing outside that folder and the temporary one changes.
set -euo pipefail

target=x86_64-w64-mingw32
cxx=$target-g++-posix
flags="-O2 -g0 -D_WIN32_WINNT=0x0A00"
jobs=$(nproc)
cache=${RUVO_CACHE:-${XDG_CACHE_HOME:-${HOME:-/tmp}/.cache}/ruvo-sysroot}

fail() { echo "windows-thirdparty: $*" >&2; exit 1; }

# Lists the source packages of the distribution's main archive, in a list and a
# state folder of our own.
prepare_apt() {
  [ -e "$work/sources.list" ] && return
  mkdir -p "$work/lists/partial"
  local format='$(REPO_URI) $(RELEASE) $(COMPONENT) $(ORIGIN)'
  apt-get indextargets --format "$format" 'Created-By: Packages' |
    awk '$4 == "Debian" && $3 == "main" && $2 !~ /-security$/ {
           print "deb-src " $1 " " $2 " " $3 }' | sort -u >"$work/sources.list"
  [ -s "$work/sources.list" ] || fail "no package lists of the distribution: run apt-get update"
  apt "update" >&2
}

apt() {
  apt-get -qq \
    -o Dir::Etc::SourceList="$work/sources.list" -o Dir::Etc::SourceParts=/dev/null \
    -o Dir::State::Lists="$work/lists" -o Dir::Cache::srcpkgcache= -o Dir::Cache::pkgcache= \
    -o APT::Sandbox::User=root "$@"
}

# Unpacks the source package $1 into $work/$1, the distribution's patches applied.
fetch() {
  mkdir -p "$work/download-$1"
  prepare_apt
  (cd "$work/download-$1" && apt source --download-only "$1" >&2)
  dpkg-source --no-check -x "$work/download-$1"/*.dsc "$work/$1" >/dev/null
}

# The package lacks the tables that its own scripts make of the Unicode data.
build_re2() {
  fetch re2
  cd "$work/re2"
  (cd re2 && perl make_perl_groups.pl >perl_groups.cc &&
    /usr/bin/python3 make_unicode_casefold.py >unicode_casefold.cc &&
    /usr/bin/python3 make_unicode_groups.py >unicode_groups.cc)
  mkdir objects
  printf '%s\n' re2/*.cc util/rune.cc util/strutil.cc |
    xargs -P "$jobs" -I{} sh -c \
      "$cxx -std=c++17 $flags -DNDEBUG -I. -c {} -o objects/\$(basename {} .cc).o"
  mkdir -p "$1/lib" "$1/include/re2"
  $target-ar rcs "$1/lib/libre2.a" objects/*.o
  cp re2/filtered_re2.h re2/re2.h re2/set.h re2/stringpiece.h "$1/include/re2/"
}

build_openssl() {
  fetch openssl
  cd "$work/openssl"
  local prefix=/openssl
  ./Configure mingw64 --cross-compile-prefix=$target- --prefix=$prefix --libdir=lib \
    no-shared no-tests no-module no-dso no-engine no-legacy no-comp \
    no-ssl3 no-dtls no-weak-ssl-ciphers $flags
  make -j"$jobs" build_libs
  make install_dev DESTDIR="$work/openssl-installed"
  mkdir -p "$1"
  cp -r "$work/openssl-installed$prefix/include" "$work/openssl-installed$prefix/lib" "$1/"
}

key_of() {
  { sed '/^#/d' "$0"
    $cxx -dumpfullversion
    dpkg-query -W -f '${source:Version}\n' unicode-data "$cxx" g++-mingw-w64-x86-64-posix 2>/dev/null || true
    apt-cache policy "$2" | sed -n 's/^ *Candidate: //p'
  } | sha256sum | cut -c1-16
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$cache" || fail "cannot write to $cache: set RUVO_CACHE"

for library in "$@"; do
  case $library in
    re2) package=libre2-dev ;;
    openssl) package=libssl-dev ;;
    *) fail "unknown library $library" ;;
  esac
  place=$cache/$library-$(key_of "$library" "$package")
  if [ ! -d "$place" ]; then
    echo "windows-thirdparty: building $library for Windows (kept in $cache)" >&2
    staging=$(mktemp -d "$cache/.$library-XXXXXX")
    log=$work/$library.log
    # Not as a condition: there the first failing command would not end it.
    set +e
    (set -e; "build_$library" "$staging/root") >"$log" 2>&1
    status=$?
    set -e
    if [ $status -ne 0 ]; then
      tail -n 40 "$log" >&2
      rm -rf "$staging"
      fail "$library could not be built"
    fi
    # Whole or not at all: somebody else may be building the same one.
    mv -T "$staging/root" "$place" 2>/dev/null || [ -d "$place" ] || fail "cannot write $place"
    rm -rf "$staging"
  fi
  echo "$place"
done
