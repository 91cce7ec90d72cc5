#!/usr/bin/env bash
# scripts/deps, the one package list, with stand-ins for dpkg-query, id,
# apt-get and debconf-set-selections on PATH: nothing missing does nothing;
# as another user it prints the exact command and fails; as root it
# installs just what is missing and says so.
#
# Usage: deps_test.sh SOURCE_DIR
set -uo pipefail
deps=$1/scripts/deps
stub=$(mktemp -d)
trap 'rm -rf "$stub"' EXIT
failed=0
fail() { echo "FAIL: $*"; failed=1; }

cat >"$stub/dpkg-query" <<'STUB'
#!/usr/bin/env bash
# The last argument is the package; STUB_MISSING names the missing ones.
p=${!#}
for m in $STUB_MISSING; do [ "$m" = "$p" ] && { echo -n "unknown ok not-installed"; exit 1; }; done
echo -n "install ok installed"
STUB
cat >"$stub/id" <<'STUB'
#!/usr/bin/env bash
echo "$STUB_UID"
STUB
cat >"$stub/apt-get" <<'STUB'
#!/usr/bin/env bash
echo "apt-get $*" >>"$STUB_LOG"
STUB
cat >"$stub/debconf-set-selections" <<'STUB'
#!/usr/bin/env bash
cat >/dev/null
echo "debconf" >>"$STUB_LOG"
STUB
chmod +x "$stub"/*
export PATH="$stub:$PATH" STUB_LOG="$stub/log"

run() {  # run MISSING UID: sets out, rc
    : >"$STUB_LOG"
    out=$(STUB_MISSING="$1" STUB_UID="$2" "$deps" 2>&1)
    rc=$?
}

run "" 1000
[ "$rc" = 0 ] || fail "nothing missing: exit $rc"
[ -z "$out" ] || fail "nothing missing: said '$out'"
[ ! -s "$STUB_LOG" ] || fail "nothing missing: ran $(cat "$STUB_LOG")"

run "tshark pppoe" 1000
[ "$rc" = 1 ] || fail "missing as a user: exit $rc"
grep -qF "apt-get update && DEBIAN_FRONTEND=noninteractive apt-get install -y pppoe tshark" <<<"$out" ||
    fail "missing as a user: no exact command in: $out"
[ ! -s "$STUB_LOG" ] || fail "missing as a user: ran $(cat "$STUB_LOG")"

run "tshark" 0
[ "$rc" = 0 ] || fail "missing as root: exit $rc"
grep -qx "deps: installing tshark" <<<"$out" || fail "missing as root: said '$out'"
grep -qx "apt-get install -y -q tshark" "$STUB_LOG" || fail "missing as root: apt-get calls: $(cat "$STUB_LOG")"
grep -qx "apt-get update -q" "$STUB_LOG" || fail "missing as root: no apt-get update"

list=$("$deps" --list)
for p in cmake g++ libgtest-dev nftables pppoe tshark python3-scapy; do
    grep -qx "$p" <<<"$list" || fail "--list lacks $p"
done

[ "$failed" = 0 ] && echo "deps: nothing missing, missing as a user, missing as root, --list: all as expected"
exit "$failed"
