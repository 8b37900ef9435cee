#!/usr/bin/env bash
# Provide the target (powerpc-linux-gnu, 32-bit big-endian) dependencies for
# the cross build on a Debian 12 (bookworm) host (system changes as root, or
# through sudo for a normal user):
#
#   * Debian packages: cross g++, qemu-user, dpkg-dev, make, cmake, googletest
#   * Tcl 8.6 built for the target from Debian's tcl8.6 source package
#     -> <cache>/tcl   (include/tcl.h, lib/libtcl8.6.so, lib/tcl8.6/...)
#   * GoogleTest + GoogleMock (static) built from /usr/src/googletest
#     -> <cache>/gtest (lib/cmake/GTest/GTestConfig.cmake, ...)
#   * for ./run bench: the plugin header of the installed qemu-user, taken
#     from Debian's qemu source package -> <cache>/qemu/include/qemu-plugin.h;
#     the spdlog and fmt headers of Debian's libspdlog-dev and libfmt-dev,
#     for header-only builds for the target -> <cache>/spdlog/include
#
# <cache> = ${DBG_PPC_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/dbg-ppc}
#
# Each dependency has a stamp file in <cache>/stamps; a second run only
# checks the stamps and returns in about a second. The cache prefix is the
# last (and only) line written to stdout; everything else goes to stderr:
#
#   prefix=$(scripts/ppc-deps.sh | tail -1)
#   cmake -S . -B build-ppc \
#     -DCMAKE_TOOLCHAIN_FILE=$PWD/cmake/toolchains/powerpc-linux-gnu.cmake \
#     -DDBG_PPC_SYSROOT_EXTRA="$prefix/tcl;$prefix/gtest"
#
# Environment:
#   DBG_PPC_CACHE   cache directory (see above)
#   DBG_PPC_JOBS    parallel build jobs (default 2)
#   DBG_PPC_FORCE   set to 1 to rebuild Tcl and GoogleTest even if stamped

set -euo pipefail
export DEBIAN_FRONTEND=noninteractive

# stdout is reserved for the final prefix line.
exec 3>&1 1>&2

TRIPLE=powerpc-linux-gnu
JOBS=${DBG_PPC_JOBS:-2}
SCRIPT_DIR=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
TOOLCHAIN_FILE=$(cd "$SCRIPT_DIR/.." && pwd)/cmake/toolchains/$TRIPLE.cmake
CACHE_DIR=${DBG_PPC_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/dbg-ppc}

# Bump when the build recipe below changes, to invalidate old stamps.
TCL_RECIPE=2
GTEST_RECIPE=1

log() { printf 'ppc-deps: %s\n' "$*"; }
die() { printf 'ppc-deps: error: %s\n' "$*"; exit 1; }

. "$SCRIPT_DIR/as-root.sh"

[ -f "$TOOLCHAIN_FILE" ] || die "toolchain file not found: $TOOLCHAIN_FILE"

mkdir -p "$CACHE_DIR"
CACHE_DIR=$(cd "$CACHE_DIR" && pwd)
STAMPS=$CACHE_DIR/stamps
LOGS=$CACHE_DIR/logs
mkdir -p "$STAMPS" "$LOGS"

# One run at a time per cache directory.
exec 9>"$CACHE_DIR/.lock"
if ! flock -n 9; then
  log "waiting for another ppc-deps.sh run on $CACHE_DIR"
  flock 9
fi

# Run a command with its output in a log file; show the tail on failure.
run_logged() {
  local name=$1; shift
  local logfile=$LOGS/$name.log
  log "  $name (log: $logfile)"
  if ! "$@" >"$logfile" 2>&1; then
    tail -n 40 "$logfile" || true
    die "$name failed, see $logfile"
  fi
}

stamp_ok() {   # stamp_ok <name> <key>
  [ "${DBG_PPC_FORCE:-0}" != 1 ] &&
    [ -f "$STAMPS/$1.stamp" ] &&
    [ "$(cat "$STAMPS/$1.stamp")" = "$2" ]
}
stamp_write() { printf '%s\n' "$2" >"$STAMPS/$1.stamp"; }

# ---------------------------------------------------------------------------
# Debian packages
# ---------------------------------------------------------------------------
pkg_installed() {
  dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q 'install ok installed'
}

APT_UPDATED=0
apt_update() {
  if [ "$APT_UPDATED" = 0 ]; then
    log "apt-get update"
    run_logged apt-get-update as_root apt-get update
    APT_UPDATED=1
  fi
}

ensure_packages() {
  local want=(g++-"$TRIPLE" dpkg-dev make cmake googletest xz-utils libspdlog-dev libfmt-dev)
  local missing=() p
  for p in "${want[@]}"; do
    pkg_installed "$p" || missing+=("$p")
  done
  # Either qemu-user (/usr/bin/qemu-ppc) or qemu-user-static
  # (/usr/bin/qemu-ppc-static) will do.
  if ! command -v qemu-ppc >/dev/null 2>&1 &&
     ! command -v qemu-ppc-static >/dev/null 2>&1; then
    missing+=(qemu-user)
  fi
  if [ ${#missing[@]} -gt 0 ]; then
    can_act_as_root "install the Debian packages ${missing[*]}" || die "missing packages: ${missing[*]}"
    apt_update
    log "apt-get install ${missing[*]}"
    run_logged apt-get-install \
      as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}"
  fi
}

# ---------------------------------------------------------------------------
# deb-src entries (needed for `apt-get source tcl8.6`)
# ---------------------------------------------------------------------------
DEB_SRC_FILE_BASE=/etc/apt/sources.list.d/dbg-ppc-deb-src

have_tcl_source_index() {
  apt-cache showsrc tcl8.6 2>/dev/null | grep -q '^Package: tcl8.6'
}

has_deb_src_entries() {
  local f
  for f in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
    [ -f "$f" ] && grep -Eq '^[[:space:]]*deb-src[[:space:]]' "$f" && return 0
  done
  for f in /etc/apt/sources.list.d/*.sources; do
    [ -f "$f" ] && grep -Eiq '^Types:.*\bdeb-src\b' "$f" && return 0
  done
  return 1
}

ensure_deb_src() {
  have_tcl_source_index && return 0
  if ! has_deb_src_entries; then
    can_act_as_root "add deb-src entries under /etc/apt/sources.list.d" || die "no deb-src entries for tcl8.6"
    local d822=/etc/apt/sources.list.d/debian.sources
    if [ -f "$d822" ] && grep -Eiq '^Types:.*\bdeb\b' "$d822"; then
      log "adding deb-src entries mirroring $d822 -> $DEB_SRC_FILE_BASE.sources"
      # Same stanzas (URIs, Suites, Components, Signed-By), source type only.
      sed -E 's/^Types:.*$/Types: deb-src/I' "$d822" | as_root tee "$DEB_SRC_FILE_BASE.sources" >/dev/null
    elif [ -f /etc/apt/sources.list ] &&
         grep -Eq '^[[:space:]]*deb[[:space:]]' /etc/apt/sources.list; then
      log "adding deb-src entries mirroring /etc/apt/sources.list -> $DEB_SRC_FILE_BASE.list"
      grep -E '^[[:space:]]*deb[[:space:]]' /etc/apt/sources.list |
        sed -E 's/^[[:space:]]*deb[[:space:]]/deb-src /' | as_root tee "$DEB_SRC_FILE_BASE.list" >/dev/null
    else
      log "no Debian apt source found; adding deb-src for deb.debian.org bookworm"
      as_root tee "$DEB_SRC_FILE_BASE.sources" >/dev/null <<'EOF'
Types: deb-src
URIs: http://deb.debian.org/debian
Suites: bookworm bookworm-updates
Components: main
Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg
EOF
    fi
  fi
  APT_UPDATED=0
  apt_update
  have_tcl_source_index || die "apt has no source index for tcl8.6 even after adding deb-src"
}

# ---------------------------------------------------------------------------
# Tcl 8.6 for the target
# ---------------------------------------------------------------------------
TCL_PREFIX=$CACHE_DIR/tcl
TCL_KEY="recipe=$TCL_RECIPE host=$TRIPLE prefix=$TCL_PREFIX"

build_tcl() {
  if stamp_ok tcl "$TCL_KEY" && [ -f "$TCL_PREFIX/lib/libtcl8.6.so" ] &&
     [ -f "$TCL_PREFIX/include/tcl.h" ]; then
    log "tcl: up to date ($TCL_PREFIX)"
    return 0
  fi
  log "tcl: building Tcl 8.6 for $TRIPLE (from Debian source package tcl8.6)"
  ensure_deb_src

  local src=$CACHE_DIR/src/tcl build=$CACHE_DIR/build/tcl
  rm -rf "$src" "$build" "$TCL_PREFIX" "$STAMPS/tcl.stamp"
  mkdir -p "$src" "$build"
  # apt-get source unpacks with dpkg-source (Debian patches applied).
  (cd "$src" && run_logged tcl-source \
     apt-get -o APT::Sandbox::User=root source tcl8.6)
  local tdir
  tdir=$(find "$src" -mindepth 1 -maxdepth 1 -type d -name 'tcl8.6-*' | head -n1)
  [ -n "$tdir" ] && [ -x "$tdir/unix/configure" ] || die "tcl8.6 source not unpacked in $src"
  log "tcl: source $(basename "$tdir")"

  local build_triple
  build_triple=$(dpkg-architecture -qDEB_BUILD_GNU_TYPE 2>/dev/null || gcc -dumpmachine)

  # TCL_SHLIB_LD_EXTRAS gives libtcl8.6.so a SONAME (as Debian's own build
  # does), so executables record NEEDED libtcl8.6.so rather than a full path.
  #
  # Results of configure checks that need to run a target program (they
  # cannot run while cross-compiling). Values are those of glibc on
  # 32-bit big-endian PowerPC.
  local cv=(
    ac_cv_c_bigendian=yes            # big-endian target
    ac_cv_func_memcmp_working=yes    # else compat memcmp.o would be used
    tcl_cv_strstr_unbroken=ok        # else compat strstr.o
    tcl_cv_strtoul_unbroken=ok       # else compat strtoul.o
    tcl_cv_putenv_copy=no            # glibc putenv() does not copy
  )

  (cd "$build" && run_logged tcl-configure env "${cv[@]}" \
     AR="$TRIPLE-ar" RANLIB="$TRIPLE-ranlib" STRIP="$TRIPLE-strip" \
     TCL_SHLIB_LD_EXTRAS='-Wl,-soname,${TCL_LIB_FILE}' \
     "$tdir/unix/configure" \
       --build="$build_triple" --host="$TRIPLE" \
       --prefix="$TCL_PREFIX" \
       --enable-shared --enable-threads --disable-symbols)
  # Refuse a configuration that silently fell back to guesses.
  if grep -q 'cannot run test program while cross compiling' "$build/config.log"; then
    die "tcl configure hit an unanswered run test; see $build/config.log"
  fi

  (cd "$build" && run_logged tcl-make make -j"$JOBS" binaries)
  # Not `make install`: that would also build docs and bundled packages.
  (cd "$build" && run_logged tcl-install make install-binaries \
     install-libraries install-msgs install-tzdata install-headers)
  [ -f "$TCL_PREFIX/lib/libtcl8.6.so" ] || die "tcl install produced no libtcl8.6.so"

  stamp_write tcl "$TCL_KEY"
  rm -rf "$build"
  log "tcl: installed in $TCL_PREFIX"
}

# ---------------------------------------------------------------------------
# GoogleTest / GoogleMock for the target
# ---------------------------------------------------------------------------
GTEST_PREFIX=$CACHE_DIR/gtest

build_gtest() {
  local gver tcsum key
  gver=$(dpkg-query -W -f='${Version}' googletest)
  tcsum=$(sha256sum "$TOOLCHAIN_FILE" | cut -c1-16)
  key="recipe=$GTEST_RECIPE googletest=$gver toolchain=$tcsum prefix=$GTEST_PREFIX"
  if stamp_ok gtest "$key" &&
     [ -f "$GTEST_PREFIX/lib/cmake/GTest/GTestConfig.cmake" ]; then
    log "gtest: up to date ($GTEST_PREFIX)"
    return 0
  fi
  log "gtest: building GoogleTest $gver (gtest+gmock, static) for $TRIPLE"
  [ -f /usr/src/googletest/CMakeLists.txt ] || die "/usr/src/googletest missing"

  local build=$CACHE_DIR/build/gtest
  rm -rf "$build" "$GTEST_PREFIX" "$STAMPS/gtest.stamp"
  run_logged gtest-configure cmake -S /usr/src/googletest -B "$build" \
    -DCMAKE_TOOLCHAIN_FILE="$TOOLCHAIN_FILE" \
    -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_INSTALL_PREFIX="$GTEST_PREFIX" \
    -DCMAKE_INSTALL_LIBDIR=lib \
    -DBUILD_GMOCK=ON -DINSTALL_GTEST=ON \
    -DBUILD_SHARED_LIBS=OFF \
    -DCMAKE_POSITION_INDEPENDENT_CODE=ON
  run_logged gtest-build cmake --build "$build" -j "$JOBS"
  run_logged gtest-install cmake --install "$build"
  [ -f "$GTEST_PREFIX/lib/cmake/GTest/GTestConfig.cmake" ] ||
    die "gtest install produced no GTestConfig.cmake"

  stamp_write gtest "$key"
  rm -rf "$build"
  log "gtest: installed in $GTEST_PREFIX"
}

# ---------------------------------------------------------------------------
# qemu's plugin header, of the version of the installed qemu-ppc
# ---------------------------------------------------------------------------
QEMU_PREFIX=$CACHE_DIR/qemu

fetch_qemu_plugin_header() {
  local version key
  # qemu-user-static, which the tests can use instead, loads no plugin.
  if ! pkg_installed qemu-user; then
    log "qemu plugin header: skipped, qemu-user is not installed (./run bench installs it)"
    return 0
  fi
  version=$(dpkg-query -W -f='${source:Version}' qemu-user)
  key="qemu=$version prefix=$QEMU_PREFIX"
  if stamp_ok qemu-plugin "$key" && [ -f "$QEMU_PREFIX/include/qemu-plugin.h" ]; then
    log "qemu plugin header: up to date ($QEMU_PREFIX)"
    return 0
  fi
  log "qemu plugin header: from Debian's source package qemu $version"
  ensure_deb_src
  local src=$CACHE_DIR/src/qemu
  rm -rf "$src" "$QEMU_PREFIX" "$STAMPS/qemu-plugin.stamp"
  mkdir -p "$src" "$QEMU_PREFIX/include"
  # Only the header is needed: download, take it from the upstream tarball,
  # drop the rest (Debian's patches leave this header alone).
  (cd "$src" && run_logged qemu-source \
     apt-get -o APT::Sandbox::User=root source --download-only "qemu=$version")
  local tarball
  tarball=$(find "$src" -maxdepth 1 -name 'qemu_*.orig.tar.*' | head -n1)
  [ -n "$tarball" ] || die "no qemu upstream tarball in $src"
  tar -xf "$tarball" --no-same-owner -C "$QEMU_PREFIX/include" --strip-components=3 --wildcards '*/include/qemu/qemu-plugin.h'
  [ -f "$QEMU_PREFIX/include/qemu-plugin.h" ] || die "qemu-plugin.h not found in $tarball"
  rm -rf "$src"
  stamp_write qemu-plugin "$key"
  log "qemu plugin header: installed in $QEMU_PREFIX/include"
}

# ---------------------------------------------------------------------------
# spdlog and fmt headers for header-only builds for the target
# ---------------------------------------------------------------------------
SPDLOG_PREFIX=$CACHE_DIR/spdlog

stage_spdlog_headers() {
  local key
  key="spdlog=$(dpkg-query -W -f='${Version}' libspdlog-dev) fmt=$(dpkg-query -W -f='${Version}' libfmt-dev)"
  if stamp_ok spdlog "$key" && [ -f "$SPDLOG_PREFIX/include/spdlog/spdlog.h" ] &&
     [ -f "$SPDLOG_PREFIX/include/fmt/format-inl.h" ]; then
    log "spdlog headers: up to date ($SPDLOG_PREFIX)"
    return 0
  fi
  # The host's /usr/include cannot be on the target's include path: copy the
  # two header trees alone.
  rm -rf "$SPDLOG_PREFIX" "$STAMPS/spdlog.stamp"
  mkdir -p "$SPDLOG_PREFIX/include"
  cp -a /usr/include/spdlog /usr/include/fmt "$SPDLOG_PREFIX/include/"
  stamp_write spdlog "$key"
  log "spdlog headers: copied to $SPDLOG_PREFIX/include"
}

# ---------------------------------------------------------------------------
ensure_packages
build_tcl
build_gtest
fetch_qemu_plugin_header
stage_spdlog_headers
rm -rf "$CACHE_DIR/build"

log "done. Configure with:"
log "  cmake -DCMAKE_TOOLCHAIN_FILE=$TOOLCHAIN_FILE -DDBG_PPC_SYSROOT_EXTRA=\"$TCL_PREFIX;$GTEST_PREFIX\" ..."
printf '%s\n' "$CACHE_DIR" >&3
