#!/usr/bin/env bash
# scripts/check-layers on a small tree of its own: quiet and successful when
# every include points down, failing and naming the include otherwise.
# Usage: check_layers_test.sh SOURCE-DIR
set -euo pipefail
check=$1/scripts/check-layers
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
cd "$tree"

mkdir -p base agent format iftable packet mgmt diag daemon platform/sim platform/linux tools/tests
echo '#include <cstdint>' > base/list.h
printf '#include "base/list.h"\n#include "platform/os.h"\n' > agent/global.h
printf '#include "agent/global.h"\n#include <string_view>\n' > format/keywords.cpp
printf '#include "format/keywords.h"\n#include "agent/log.h"\n' > iftable/if_entry.cpp
printf '#include "iftable/if_entry.h"\n' > packet/pkt_recv.cpp
printf '#include "iftable/if_entry.h"\n' > mgmt/if_api.cpp
printf '#include "mgmt/scalar_api.h"\n#include "packet/pkt_recv.h"\n' > diag/diag.cpp
printf '#include "mgmt/func_map.h"\n#include "packet/pkt_recv.h"\n' > daemon/startup.cpp
printf '#include "platform/os.h"\n#include <sys/socket.h>\n' > platform/linux/os.cpp
printf '#include "platform/common/mem_pool.h"\n' > platform/sim/os.cpp
echo '#include <cstdint>' > platform/os.h
printf '#include "mgmt/mgmt_codes.h"\n#include "platform/types.h"\n#include "platform/linux/cmd_proto.h"\n' > tools/ctl.cpp
printf '#include "tools/ctl.h"\n#include <net/if.h>\n' > tools/pppoeplusctl.cpp
# The tool's tests link what they test against: no layer of their own.
printf '#include "diag/diag.h"\n#include "platform/sim/sim.h"\n#include <sys/socket.h>\n' > tools/tests/t.cpp

fail() { echo "FAIL: $*"; exit 1; }

out=$("$check" "$tree") || fail "a tree whose includes all point down was refused: $out"
[ -z "$out" ] || fail "a clean tree printed: $out"

expect_refused() {  # FILE LINE-TEXT EXPECTED-MESSAGE-PART
    local file=$1 text=$2 want=$3
    cp "$file" "$file.orig"
    echo "$text" >> "$file"
    if out=$("$check" "$tree"); then fail "$file with $text passed"; fi
    grep -qF "$want" <<<"$out" || fail "$file with $text: expected '$want' in: $out"
    mv "$file.orig" "$file"
}

expect_refused iftable/if_entry.cpp '#include "mgmt/if_api.h"' 'iftable/if_entry.cpp:3: iftable includes mgmt ("mgmt/if_api.h")'
expect_refused format/keywords.cpp '#include "packet/id_build.h"' 'format includes packet'
expect_refused agent/global.h '#include "format/keywords.h"' 'agent includes format'
expect_refused mgmt/if_api.cpp '#include "packet/pkt_recv.h"' 'mgmt includes packet'
expect_refused diag/diag.cpp '#include "daemon/startup.h"' 'diag includes daemon'
expect_refused platform/sim/os.cpp '#include "daemon/startup.h"' 'platform/sim includes daemon'
expect_refused platform/sim/os.cpp '#include "platform/linux/os_linux.h"' 'platform/sim includes platform/linux'
expect_refused packet/pkt_recv.cpp '#include <sys/socket.h>' 'operating-system header <sys/socket.h>'
expect_refused base/list.h '#include "tests/sim_fixture.h"' 'in no folder of the table'
expect_refused base/list.h '#include "tools/ctl.h"' 'base includes tools'
expect_refused tools/ctl.cpp '#include "mgmt/mgmt_types.h"' 'of mgmt only mgmt/mgmt_codes.h'
expect_refused tools/ctl.cpp '#include "format/keywords.h"' 'tools includes format'
expect_refused tools/ctl.cpp '#include <sys/stat.h>' 'operating-system header <sys/stat.h>'

out=$("$check" "$tree") || fail "the tree put back was refused: $out"
echo "check-layers: clean tree passes, 13 kinds of upward include refused"
