// Discovery frames with every field of the header and the tags at an edge
// value, through the whole receive path on the simulated device. Each row
// says what must happen: rejected and counted as an error with a message on
// the error channel, counted and not sent, ignored, or sent out of both
// uplinks with exactly the tags it must carry. In every case nothing else
// changes: not the global record, not the other entries, not the receiving
// entry's settings, not the counters that the row does not name.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "agent/global.h"
#include "iftable/if_entry.h"
#include "packet/pkt_parse.h"
#include "packet/pkt_recv.h"
#include "packet/pkt_test_util.h"
#include "support/fixture.h"

using namespace pkttest;

namespace {

enum class Outcome {
    Error,        // errorRcv + 1, nothing sent, a message on the error channel
    Ignored,      // an unknown code: nothing counted, nothing sent
    CountedOnly,  // the code's counter + 1, nothing sent
    Inserted,     // the agent's tag added before End-of-List or at the end
    Kept,         // sent as received
    Dropped,      // sent without its Vendor-Specific tag
    Replaced,     // its Vendor-Specific tag replaced by the agent's
};

const char* outcomeName(Outcome o) {
    switch (o) {
        case Outcome::Error: return "error";
        case Outcome::Ignored: return "ignored";
        case Outcome::CountedOnly: return "counted only";
        case Outcome::Inserted: return "inserted";
        case Outcome::Kept: return "kept";
        case Outcome::Dropped: return "dropped";
        case Outcome::Replaced: return "replaced";
    }
    return "?";
}

struct Row {
    std::string name;
    Bytes frame;
    Outcome outcome;
    uint32_t globalPolicy = 3;  // replace
    uint32_t portPolicy = 0;    // follow the global one
};

constexpr uint8_t PADI = 0x09, PADO = 0x07, PADR = 0x19, PADS = 0x65, PADT = 0xA7;

Bytes zeros(size_t n) { return Bytes(n, 0); }
Bytes clientVs() { return vsTag(3561, {{1, "cpe-7"}, {2, "rid"}}); }

// A frame of exactly `total` bytes: one Service-Name tag fills the payload,
// with `extra` tags before it.
Bytes frameOfSize(uint8_t code, size_t total, const Bytes& extra) {
    size_t fill = total - 6 - extra.size() - 4;
    return frame(code, 0, cat({extra, serviceName(std::string(fill, 's'))}));
}

std::vector<Row> rows() {
    const Bytes sn = serviceName("");
    const Bytes hu = hostUniq({1, 2, 3, 4});
    return {
        // ---- version and type ----
        {"version 0", frameLen(PADI, 0, 4, sn, 0x01), Outcome::Error},
        {"version 2", frameLen(PADI, 0, 4, sn, 0x21), Outcome::Error},
        {"version and type 15", frameLen(PADI, 0, 4, sn, 0xFF), Outcome::Error},
        {"type 0", frameLen(PADI, 0, 4, sn, 0x10), Outcome::Error},
        {"type 2", frameLen(PADI, 0, 4, sn, 0x12), Outcome::Error},
        // ---- code ----
        {"code 0", frame(0x00, 0, sn), Outcome::Ignored},
        {"code 0xFF", frame(0xFF, 0, sn), Outcome::Ignored},
        {"PADO from a client port", frame(PADO, 0, sn), Outcome::CountedOnly},
        {"PADS with a session", frame(PADS, 0x1234, sn), Outcome::CountedOnly},
        // ---- session id ----
        {"PADI with session 1", frame(PADI, 1, sn), Outcome::Error},
        {"PADI with session 0xFFFF", frame(PADI, 0xFFFF, sn), Outcome::Error},
        {"PADR with session 0xFFFF", frame(PADR, 0xFFFF, sn), Outcome::Error},
        {"PADO with session 1", frame(PADO, 1, sn), Outcome::Error},
        {"PADT with session 0xFFFF", frame(PADT, 0xFFFF, {}), Outcome::Error},
        {"PADT with a session and tags", frame(PADT, 0x1234, sn), Outcome::Inserted},
        {"PADT with a session, no tags", frame(PADT, 0x1234, {}), Outcome::Inserted},
        {"PADR", frame(PADR, 0, cat({sn, hu})), Outcome::Inserted},
        // ---- payload length ----
        {"payload length 0", frame(PADI, 0, {}), Outcome::Inserted},
        {"payload length 0 in a padded frame", frameLen(PADI, 0, 0, zeros(40)), Outcome::Inserted},
        {"odd payload length", frame(PADI, 0, hostUniq({1, 2, 3})), Outcome::Inserted},
        {"payload length one past the frame", frameLen(PADI, 0, 9, cat({sn, hu})), Outcome::Error},
        {"payload length past the frame", frameLen(PADI, 0, 1000, cat({sn, hu})), Outcome::Error},
        {"payload length 0xFFFF", frameLen(PADI, 0, 0xFFFF, sn), Outcome::Error},
        {"payload length 0xFFFA, wrapping to 0", frameLen(PADI, 0, 0xFFFA, sn), Outcome::Error},
        {"payload length short of the tags", frameLen(PADI, 0, 6, cat({sn, hu})), Outcome::Error},
        {"payload length shorter than the frame (padding)", frameLen(PADI, 0, 8, cat({hu, zeros(30)})),
         Outcome::Inserted},
        // ---- tag lengths ----
        {"tag of length 0", frame(PADI, 0, sn), Outcome::Inserted},
        {"tag of odd length", frame(PADI, 0, hostUniq({9, 8, 7, 6, 5})), Outcome::Inserted},
        {"tag running past the payload", frame(PADI, 0, tagRaw(0x0101, 10, str("abcd"))), Outcome::Error},
        {"tag of length 0xFFFF", frame(PADI, 0, tagRaw(0x0101, 0xFFFF, {})), Outcome::Error},
        {"tag of length 0xFFFF after another", frame(PADI, 0, cat({sn, tagRaw(0x0103, 0xFFFF, {})})), Outcome::Error},
        {"tag header cut short", frame(PADI, 0, cat({sn, Bytes{0x01, 0x01}})), Outcome::Error},
        {"unknown tag type 0xFFFF", frame(PADI, 0, cat({tag(0xFFFF, {}), sn})), Outcome::Inserted},
        // ---- End-of-List ----
        {"End-of-List last", frame(PADI, 0, cat({sn, hu, eol()})), Outcome::Inserted},
        {"End-of-List alone", frame(PADI, 0, eol()), Outcome::Inserted},
        {"End-of-List not last", frame(PADI, 0, cat({eol(), sn})), Outcome::Error},
        {"two End-of-List tags", frame(PADI, 0, cat({sn, eol(), eol()})), Outcome::Error},
        {"End-of-List of length 2", frame(PADI, 0, cat({sn, tagRaw(0x0000, 2, {0, 0})})), Outcome::Error},
        // ---- duplicate and nested tags ----
        {"duplicate Service-Name and Host-Uniq", frame(PADI, 0, cat({serviceName("a"), serviceName("b"), hu, hu})),
         Outcome::Inserted},
        {"two Vendor-Specific tags", frame(PADI, 0, cat({clientVs(), sn, clientVs()})), Outcome::Error},
        {"two Vendor-Specific tags, keep", frame(PADI, 0, cat({clientVs(), clientVs()})), Outcome::Error, 1},
        {"Vendor-Specific inside a Vendor-Specific",
         frame(PADI, 0, cat({sn, tag(0x0105, cat({vsValue(3561, {{1, "x"}}), clientVs()}))})), Outcome::Replaced},
        // ---- the Vendor-Specific tag at its edges, by policy ----
        {"Vendor-Specific, keep", frame(PADI, 0, cat({sn, clientVs(), hu})), Outcome::Kept, 1},
        {"Vendor-Specific, drop", frame(PADI, 0, cat({sn, clientVs(), hu})), Outcome::Dropped, 2},
        {"Vendor-Specific, replace", frame(PADI, 0, cat({sn, clientVs(), hu})), Outcome::Replaced, 3},
        {"Vendor-Specific before End-of-List, replace", frame(PADI, 0, cat({sn, clientVs(), eol()})),
         Outcome::Replaced, 3},
        {"Vendor-Specific, no policy anywhere", frame(PADI, 0, cat({sn, clientVs()})), Outcome::CountedOnly, 0},
        {"Vendor-Specific, port policy over no global one", frame(PADI, 0, cat({sn, clientVs()})), Outcome::Dropped,
         0, 2},
        {"Vendor-Specific of length 0, keep", frame(PADI, 0, cat({sn, tag(0x0105, {})})), Outcome::Kept, 1},
        {"Vendor-Specific of length 0, drop", frame(PADI, 0, cat({sn, tag(0x0105, {})})), Outcome::Dropped, 2},
        {"Vendor-Specific of length 0, replace", frame(PADI, 0, cat({sn, tag(0x0105, {})})), Outcome::Replaced, 3},
        {"Vendor-Specific shorter than a vendor id, replace", frame(PADI, 0, cat({tag(0x0105, {0, 0, 0x0d}), sn})),
         Outcome::Replaced, 3},
        {"Vendor-Specific with a sub-option running past it, replace",
         frame(PADI, 0, cat({tag(0x0105, Bytes{0, 0, 0x0d, 0xe9, 1, 200, 'x'}), sn})), Outcome::Replaced, 3},
        // ---- large frames ----
        {"1300-byte PADI takes the tag", frameOfSize(PADI, 1300, {}), Outcome::Inserted},
        {"1400-byte PADI cannot take the tag", frameOfSize(PADI, 1400, {}), Outcome::CountedOnly},
        {"1390-byte PADI cannot take the tag", frameOfSize(PADI, 1390, {}), Outcome::CountedOnly},
        {"1400-byte PADI with a Vendor-Specific tag, keep", frameOfSize(PADI, 1400, clientVs()), Outcome::Kept, 1},
        {"1400-byte PADI with a Vendor-Specific tag, drop", frameOfSize(PADI, 1400, clientVs()), Outcome::Dropped, 2},
        {"1500-byte PADI, cut to 1400", frameOfSize(PADI, 1500, {}), Outcome::Error},
    };
}

// The tags of a frame's payload, each as its bytes, read without checks
// (the rows that reach this are well formed).
std::vector<Bytes> tagsOf(const Bytes& f) {
    std::vector<Bytes> out;
    if (f.size() < 6) return out;
    size_t end = 6 + ((f[4] << 8) | f[5]);
    for (size_t off = 6; off + 4 <= end && off + 4 <= f.size();) {
        size_t len = (f[off + 2] << 8) | f[off + 3];
        size_t next = std::min(off + 4 + len, f.size());
        out.emplace_back(f.begin() + static_cast<std::ptrdiff_t>(off), f.begin() + static_cast<std::ptrdiff_t>(next));
        off += 4 + len;
    }
    return out;
}

bool isVs(const Bytes& t) { return t.size() >= 2 && t[0] == 0x01 && t[1] == 0x05; }
bool isEol(const Bytes& t) { return t.size() >= 2 && t[0] == 0 && t[1] == 0; }

// The tags a sent frame must carry.
std::vector<Bytes> expectedTags(const Bytes& in, Outcome o, const Bytes& agent) {
    std::vector<Bytes> tags = tagsOf(in);
    if (o == Outcome::Kept) return tags;
    if (o == Outcome::Dropped || o == Outcome::Replaced) {
        for (auto it = tags.begin(); it != tags.end(); ++it)
            if (isVs(*it)) {
                tags.erase(it);
                break;
            }
    }
    if (o == Outcome::Inserted || o == Outcome::Replaced) {
        auto at = tags.end();
        if (!tags.empty() && isEol(tags.back())) at = tags.end() - 1;
        tags.insert(at, agent);
    }
    return tags;
}

// What the daemon holds: the global record and every entry, as bytes.
struct Snapshot {
    Bytes global;
    std::vector<std::pair<uint32_t, Bytes>> entries;
};

Snapshot snapshot() {
    Snapshot s;
    const auto* g = reinterpret_cast<const uint8_t*>(&gPppoeplus);
    s.global.assign(g, g + sizeof(gPppoeplus));
    for (auto* e = static_cast<tPppoePlusIfEntry*>(avl_first(&gPppoeplus.ifTree)); e != nullptr;
         e = static_cast<tPppoePlusIfEntry*>(avl_walk(&gPppoeplus.ifTree, e, AVL_AFTER))) {
        const auto* p = reinterpret_cast<const uint8_t*>(e);
        s.entries.emplace_back(e->ifUnit, Bytes(p, p + sizeof(*e)));
    }
    return s;
}

// Adds `by` to the counter at `offset` of the entry of `unit` in a snapshot.
void bump(Snapshot& s, uint32_t unit, size_t offset, uint32_t by = 1) {
    for (auto& [u, bytes] : s.entries)
        if (u == unit) {
            uint32_t v;
            std::memcpy(&v, bytes.data() + offset, 4);
            v += by;
            std::memcpy(bytes.data() + offset, &v, 4);
        }
}

size_t counterOf(uint8_t code) {
    switch (code) {
        case PADI: return offsetof(tPppoePlusIfEntry, padiRcv);
        case PADR: return offsetof(tPppoePlusIfEntry, padrRcv);
        case PADT: return offsetof(tPppoePlusIfEntry, padtRcv);
        case PADO: return offsetof(tPppoePlusIfEntry, padoRcv);
        case PADS: return offsetof(tPppoePlusIfEntry, padsRcv);
        default: return 0;
    }
}

class BadInputTest : public SimTest {
  protected:
    void SetUp() override {
        SimTest::SetUp();
        gPppoeplusTestForward = 0;
        pppoeplusTestStart(1, 0);
        sim::setScalarBytes(ZEL_SCALAR_SYS_MAC, kSysMac);
        client = addPort(1, "eth0/1");
        addPort(2, "eth0/2");
        trust(addPort(10, "eth0/10"));
        trust(addPort(11, "eth0/11"));
        std::memcpy(client->mac, kPortMac.data(), 6);
        // Error messages on: a refused frame must say why.
        pppoeplusDebugSwitchSet(0x8);
    }

    // The agent's tag for the client port with the default formats.
    Bytes agentTag() {
        std::string circuitId = "eth0/1:100.200";
        Bytes b = {0x01, 0x05};
        put16(b, static_cast<uint16_t>(8 + circuitId.size() + 17));
        put32(b, gPppoeplus.vendorId);
        b.push_back(1);
        b.push_back(static_cast<uint8_t>(circuitId.size()));
        return cat({b, str(circuitId), Bytes{2, 17}, str("00:11:22:33:44:55")});
    }

    tPppoePlusIfEntry* client = nullptr;
};

TEST_F(BadInputTest, EveryEdgeValueGivesItsDefinedResultAndChangesNothingElse) {
    int checked = 0;
    for (const Row& row : rows()) {
        SCOPED_TRACE(row.name + " (" + outcomeName(row.outcome) + ")");
        pppoeplusPolicySet(row.globalPolicy);
        pppoeplusIfPolicySet(client, row.portPolicy);
        sim::g.logs.clear();
        sim::g.sent.clear();
        Snapshot before = snapshot();

        sim::Frame f{};
        f.bytes = row.frame;
        f.ifUnit = 1;
        f.withInfo = true;
        f.info = rxInfo(kClient, kBroadcast, 100, 200, 5, 3);
        sim::pushFrame(gPppoeplus.pktFd, f);
        pppoeplusPktRecv();

        const uint8_t code = row.frame.size() > 1 ? row.frame[1] : 0;
        const bool sent = row.outcome != Outcome::Error && row.outcome != Outcome::Ignored &&
                          row.outcome != Outcome::CountedOnly;
        if (row.outcome == Outcome::Error) bump(before, 1, offsetof(tPppoePlusIfEntry, errorRcv));
        else if (row.outcome != Outcome::Ignored) bump(before, 1, counterOf(code));
        if (sent) {
            bump(before, 10, offsetof(tPppoePlusIfEntry, totalSend));
            bump(before, 11, offsetof(tPppoePlusIfEntry, totalSend));
        }
        Snapshot after = snapshot();
        EXPECT_TRUE(before.global == after.global) << "the global record changed";
        ASSERT_EQ(before.entries.size(), after.entries.size());
        for (size_t i = 0; i < before.entries.size(); i++)
            EXPECT_TRUE(before.entries[i] == after.entries[i]) << "entry " << before.entries[i].first << " changed";

        // A refused frame says why on the error channel; nothing else does
        // (the error trace also describes every frame's header: not counted).
        std::vector<std::string> said;
        for (const std::string& t : logsOf(kErrorModule))
            if (!(t.compare(0, 14, "Packet length ") == 0 && t.size() > 14 && t[14] >= '0' && t[14] <= '9'))
                said.push_back(t);
        const size_t errors = said.size();
        if (row.outcome == Outcome::Error) {
            EXPECT_GE(errors, 1u);
        } else if (code != PADT) {
            EXPECT_EQ(0u, errors) << (errors ? said[0] : "");
        }

        if (!sent) {
            EXPECT_TRUE(sim::g.sent.empty());
            continue;
        }
        ASSERT_EQ(2u, sim::g.sent.size());
        EXPECT_EQ(10, sim::g.sent[0].addr.sll_ifindex);
        EXPECT_EQ(11, sim::g.sent[1].addr.sll_ifindex);
        const Bytes& out = sim::g.sent[0].bytes;
        EXPECT_EQ(out, sim::g.sent[1].bytes);
        EXPECT_LE(out.size(), static_cast<size_t>(PPPOEPLUS_PKT_BUF_LEN));
        ASSERT_GE(out.size(), 6u);
        // Header as received, but for the payload length, which covers
        // exactly the tags it must carry.
        EXPECT_TRUE(std::equal(out.begin(), out.begin() + 4, row.frame.begin()));
        const std::vector<Bytes> want = expectedTags(row.frame, row.outcome, agentTag());
        EXPECT_EQ(want, tagsOf(out));
        size_t payload = 0;
        for (const Bytes& t : want) payload += t.size();
        EXPECT_EQ(payload, static_cast<size_t>((out[4] << 8) | out[5]));
        if (row.outcome == Outcome::Kept) {
            const auto n = static_cast<std::ptrdiff_t>(std::min(row.frame.size(), out.size()));
            EXPECT_TRUE(std::equal(row.frame.begin(), row.frame.begin() + n, out.begin()));
        }
        checked++;
    }
    EXPECT_GT(checked, 20);
}

// The same frames with the test-forward switch on: every frame from an
// enabled port goes out unchanged, nothing is counted on the receiving port.
TEST_F(BadInputTest, WithTestForwardEveryFrameGoesOutUnchanged) {
    gPppoeplusTestForward = 1;
    for (const Row& row : rows()) {
        SCOPED_TRACE(row.name);
        sim::g.sent.clear();
        Snapshot before = snapshot();
        sim::Frame f{};
        f.bytes = row.frame;
        f.ifUnit = 1;
        f.withInfo = true;
        f.info = rxInfo(kClient, kBroadcast, 100, 200, 5, 3);
        sim::pushFrame(gPppoeplus.pktFd, f);
        pppoeplusPktRecv();
        bump(before, 10, offsetof(tPppoePlusIfEntry, totalSend));
        bump(before, 11, offsetof(tPppoePlusIfEntry, totalSend));
        Snapshot after = snapshot();
        EXPECT_TRUE(before.global == after.global);
        for (size_t i = 0; i < before.entries.size() && i < after.entries.size(); i++)
            EXPECT_TRUE(before.entries[i] == after.entries[i]) << "entry " << before.entries[i].first;
        ASSERT_EQ(2u, sim::g.sent.size());
        const size_t held = std::min(row.frame.size(), static_cast<size_t>(PPPOEPLUS_PKT_BUF_LEN));
        EXPECT_EQ(Bytes(row.frame.begin(), row.frame.begin() + static_cast<std::ptrdiff_t>(held)), sim::g.sent[0].bytes);
    }
    gPppoeplusTestForward = 0;
}

}  // namespace
