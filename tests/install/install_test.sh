#!/usr/bin/env bash
# cmake --install puts every file where it belongs:
#  - this build (its own prefix), into a scratch DESTDIR: the binaries, the
#    man pages, the completion, the unit started from the installed daemon,
#    the example configuration and the documentation, and nothing in /etc;
#  - a build configured as the package is (prefix /usr, PPPOEPLUS_PACKAGE):
#    the configuration as /etc/pppoeplus.conf, marked as a conffile, and the
#    unit started from /usr/sbin/pppoeplusd;
#  - a build with another prefix: the unit follows it.
#
#   install_test.sh SOURCE-DIR BUILD-DIR CMAKE
set -uo pipefail
src=$1
build=$2
cmake=$3
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
ok() { echo "ok:   $*"; }
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

# has ROOT PATH...: every PATH exists below ROOT.
has() {
    local root=$1 p
    shift
    for p in "$@"; do
        if [ -e "$root$p" ]; then ok "installed $p"; else fail "not installed: $p"; fi
    done
}

# unit_starts UNIT SBINDIR: the unit's ExecStart runs SBINDIR/pppoeplusd.
unit_starts() {
    local line
    line=$(grep '^ExecStart=' "$1")
    if [[ $line =~ ^ExecStart=[-@:+!]*$2/pppoeplusd([[:space:]]|$) ]]; then ok "unit: $line"
    else fail "unit $1 does not start $2/pppoeplusd: '$line'"; fi
    if grep -E '(^|[ =])/[^ ]*/sbin/pppoeplus(d|ctl)' "$1" | grep -vF "$2/" | grep -v '^#'; then
        fail "unit $1 names a binary outside $2"
    fi
}

# ---- this build -----------------------------------------------------------------------------
prefix=$(sed -n 's/^CMAKE_INSTALL_PREFIX:PATH=//p' "$build/CMakeCache.txt")
dest=$tmp/plain
if DESTDIR=$dest "$cmake" --install "$build" >"$tmp/plain.log" 2>&1; then ok "cmake --install $build (prefix $prefix)"
else fail "cmake --install $build:"; cat "$tmp/plain.log"; fi
has "$dest" "$prefix/sbin/pppoeplusd" "$prefix/sbin/pppoeplusctl" \
    "$prefix/share/man/man8/pppoeplusd.8" "$prefix/share/man/man8/pppoeplusctl.8" \
    "$prefix/share/man/man5/pppoeplus.conf.5" \
    "$prefix/share/bash-completion/completions/pppoeplusctl" \
    "$prefix/lib/systemd/system/pppoeplusd.service" \
    "$prefix/share/doc/pppoeplus/README.md" "$prefix/share/doc/pppoeplus/linux-platform.md" \
    "$prefix/share/doc/pppoeplus/command-protocol.md" "$prefix/share/doc/pppoeplus/examples/pppoeplus.conf"
unit_starts "$dest$prefix/lib/systemd/system/pppoeplusd.service" "$prefix/sbin"
outside=$(cd "$dest" && find . -type f | grep -v "^\.$prefix/")
if [ -n "$outside" ]; then fail "files installed outside $prefix: $outside"; else ok "nothing outside $prefix"; fi
if cmp -s "$src/tools/completion/pppoeplusctl.bash" "$dest$prefix/share/bash-completion/completions/pppoeplusctl"; then
    ok "the completion is the source's"
else fail "the installed completion differs from tools/completion/pppoeplusctl.bash"; fi

# ---- configured as the package is, and with another prefix -----------------------------------
# Configured only: the files of component "data" need no build.
configure() {  # DIR ARGS...
    local dir=$1
    shift
    if "$cmake" -S "$src" -B "$dir" -DCMAKE_BUILD_TYPE=Release -DPPPOEPLUS_TESTS=OFF "$@" >"$dir.log" 2>&1; then
        ok "configured $*"
    else fail "configure $*:"; cat "$dir.log"; return 1; fi
}

if configure "$tmp/pkg" -DCMAKE_INSTALL_PREFIX=/usr -DPPPOEPLUS_PACKAGE=ON; then
    dest=$tmp/pkgroot
    DESTDIR=$dest "$cmake" --install "$tmp/pkg" --component data >"$tmp/pkg-install.log" 2>&1 ||
        { fail "cmake --install (package):"; cat "$tmp/pkg-install.log"; }
    has "$dest" /etc/pppoeplus.conf /usr/share/man/man8/pppoeplusd.8 /usr/share/man/man5/pppoeplus.conf.5 \
        /usr/share/bash-completion/completions/pppoeplusctl /usr/lib/systemd/system/pppoeplusd.service \
        /usr/share/doc/pppoeplus/examples/pppoeplus.conf
    cmp -s "$src/examples/pppoeplus.conf" "$dest/etc/pppoeplus.conf" && ok "/etc/pppoeplus.conf is the example" ||
        fail "/etc/pppoeplus.conf is not examples/pppoeplus.conf"
    unit_starts "$dest/usr/lib/systemd/system/pppoeplusd.service" /usr/sbin
    conffiles=$tmp/pkg/install/debian/conffiles
    [ "$(cat "$conffiles" 2>/dev/null)" = /etc/pppoeplus.conf ] && ok "conffiles: /etc/pppoeplus.conf" ||
        fail "conffiles does not hold exactly /etc/pppoeplus.conf"
    extra=$(sed -n 's/^set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA "\(.*\)")$/\1/p' "$tmp/pkg/CPackConfig.cmake")
    for f in conffiles postinst prerm postrm; do
        [[ ";$extra;" == *"/debian/$f;"* ]] && ok "control file $f" || fail "control file $f not in the package"
    done
    for f in postinst prerm postrm; do
        if [ -x "$tmp/pkg/install/debian/$f" ] && sh -n "$tmp/pkg/install/debian/$f"; then ok "$f: executable, valid sh"
        else fail "$f is not an executable, valid sh script"; fi
        # The service is never enabled or started by the package.
        if grep -vE '^\s*#' "$tmp/pkg/install/debian/$f" | grep -qE 'systemctl[^|;]*(enable|start|restart)'; then
            fail "$f enables or starts the service"
        fi
    done
    grep -q '^set(CPACK_DEBIAN_PACKAGE_DEPENDS "nftables")' "$tmp/pkg/CPackConfig.cmake" && ok "Depends: nftables" ||
        fail "the package does not depend on nftables"
fi

if configure "$tmp/opt" -DCMAKE_INSTALL_PREFIX=/opt/pp; then
    dest=$tmp/optroot
    DESTDIR=$dest "$cmake" --install "$tmp/opt" --component data >"$tmp/opt-install.log" 2>&1 ||
        { fail "cmake --install (/opt/pp):"; cat "$tmp/opt-install.log"; }
    unit_starts "$dest/opt/pp/lib/systemd/system/pppoeplusd.service" /opt/pp/sbin
    [ -e "$dest/etc" ] && fail "a plain install wrote into /etc" || ok "nothing in /etc without PPPOEPLUS_PACKAGE"
    grep -qF '/opt/pp/share/doc/pppoeplus/linux' "$dest/opt/pp/share/man/man8/pppoeplusd.8" &&
        ok "pppoeplusd(8) names the installed documentation" || fail "pppoeplusd(8) does not name /opt/pp/share/doc"
fi

if [ $failures -ne 0 ]; then
    echo "$failures install check(s) failed"
    exit 1
fi
echo "every install check passed"
