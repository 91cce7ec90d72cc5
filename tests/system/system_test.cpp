// The whole agent against real PPPoE peers. Each test builds its own lab
// (namespaces client, agent and server, a bridge in the agent, pppoeplusd
// serving the bridge's ports), drives it with pppoe, pppoe-server, scapy and
// pppoeplusctl, and checks what the server side received as tshark decodes
// it, byte for byte where bytes matter.
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "lab.h"
#include "lab_test.h"

namespace {

using st::Capture;
using st::Decoded;
using st::Frame;
using st::Lab;
using st::Result;

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

std::string hexOf(const std::vector<uint8_t>& b) {
    static const char* const digits = "0123456789abcdef";
    std::string s;
    for (uint8_t c : b) {
        s += digits[c >> 4];
        s += digits[c & 0xF];
    }
    return s;
}

std::string hexOf(const std::string& text) { return hexOf(std::vector<uint8_t>(text.begin(), text.end())); }

// Addresses the tests give their crafted frames.
std::string clientMac(int n) {
    char buf[18];
    std::snprintf(buf, sizeof(buf), "02:00:00:00:0c:%02x", n);
    return buf;
}

// A Vendor-Specific tag value a client might send itself: vendor 3561,
// Circuit-ID "client-cid", Remote-ID "client-rid".
const std::string CLIENT_VS = "00000de9" "010a" + hexOf(std::string("client-cid")) + "020a" +
                              hexOf(std::string("client-rid"));

// The agent's tag for an untagged frame on Ethernet port `port` with the
// default formats: vendor 3561, "<port>:0.0", the port's MAC.
std::string agentVs(const std::string& circuit, const std::string& remote) {
    std::string v = "00000de9";
    char len[3];
    std::snprintf(len, sizeof(len), "%02x", static_cast<unsigned>(circuit.size()));
    v += std::string("01") + len + hexOf(circuit);
    std::snprintf(len, sizeof(len), "%02x", static_cast<unsigned>(remote.size()));
    v += std::string("02") + len + hexOf(remote);
    return v;
}

// A PON port's tag value: vendor 3561 and the Circuit-ID sub-option alone.
std::string circuitOnlyVs(const std::string& circuit) {
    char len[3];
    std::snprintf(len, sizeof(len), "%02x", static_cast<unsigned>(circuit.size()));
    return "00000de9" "01" + std::string(len) + hexOf(circuit);
}

// A lab whose agent runs as an OLT ("ponolt") or ONU ("pononu") with one
// G-PON port p1 at the given place.
st::Lab::Options ponLab(const std::string& device, const std::string& place) {
    st::Lab::Options o;
    o.conf = "pppoeplus.poncommontype = " + device + "\npppoeplus.gponifenable = true\nport.p1 = kind=gpon " + place +
             "\n";
    return o;
}

class SystemTest : public st::LabTest {
  protected:
    // Crafted frames from a client-side interface.
    void craft(const std::string& iface, const std::vector<std::string>& frames) {
        Result r = lab_->craft(iface, frames);
        ASSERT_EQ(0, r.status) << r.all();
    }

    // The received discovery frames of `cap` from `src`, as tshark decodes them.
    std::vector<Decoded> decode(Capture& cap, const std::string& src, std::vector<Frame>* raw = nullptr) {
        std::vector<Frame> frames = cap.received(src);
        if (raw != nullptr) *raw = frames;
        std::vector<Decoded> d = tshark(cap, frames);
        EXPECT_EQ(frames.size(), d.size());
        return d;
    }

    // Waits until `cap` has received `count` discovery frames from `src`.
    bool waitCount(Capture& cap, const std::string& src, size_t count, int ms = 10000) {
        return cap.waitFor(
            [&](const std::vector<Frame>&) { return cap.received(src).size() >= count; }, ms);
    }
};

// ---- default formats -----------------------------------------------------------------------------

// What the Prometheus client's parser reads in `text`: "FAMILY TYPE SAMPLE
// {LABELS} VALUE" lines (tools/tests/parse_metrics.py).
std::string parsedMetrics(const std::string& text) {
    char path[] = "/tmp/pppoeplus-metrics-XXXXXX";
    const int fd = ::mkstemp(path);
    if (fd < 0) return "mkstemp failed";
    const bool written = ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    ::close(fd);
    const std::string script = std::string(PPPOEPLUS_SYSTEM_TEST_DIR) + "/../../tools/tests/parse_metrics.py";
    Result r = st::exec({"sh", "-c", "exec /usr/bin/python3 \"$0\" < \"$1\"", script, path});
    ::unlink(path);
    if (!written || r.status != 0) return "parse failed: " + r.all();
    return r.out;
}

TEST_F(SystemTest, ARealClientsDiscoveryReachesTheServerTaggedWithTheDefaultFormats) {
    ST_NEED(true, false);
    LAB_UP(Lab::Options());
    ASSERT_TRUE(lab.startServer()) << lab.why();
    Capture cap(lab.server(), "s0");
    ASSERT_TRUE(cap.ok());

    // Discovery only: PADI, PADO, PADR, PADS, then the session id and the
    // server's MAC address.
    Result client = lab.in(lab.client(), {"timeout", "30", "pppoe", "-I", "c0", "-d"}, 40);
    ASSERT_EQ(0, client.status) << client.all();
    EXPECT_EQ("1:" + Lab::macOf("s0") + "\n", client.out);

    const std::string c0 = Lab::macOf("c0");
    ASSERT_TRUE(waitCount(cap, c0, 2));
    std::vector<Frame> raw;
    std::vector<Decoded> d = decode(cap, c0, &raw);
    // The server received the PADI and the PADR once each, untagged, each
    // with the agent's Vendor-Specific tag: vendor 3561, Circuit-ID
    // "<port>:<svlan>.<cvlan>", Remote-ID the port's MAC address.
    ASSERT_EQ(2u, d.size());
    const char* codes[] = {"0x09", "0x19"};
    for (size_t i = 0; i < 2; i++) {
        SCOPED_TRACE(codes[i]);
        EXPECT_EQ(codes[i], d[i].code);
        EXPECT_EQ("", d[i].vlan);
        EXPECT_EQ("3561", d[i].vendorId);
        EXPECT_EQ("p1:0.0", d[i].circuitId);
        EXPECT_EQ("02:00:00:00:A0:01", d[i].remoteId);
        EXPECT_EQ(hexOf(std::string("p1:0.0")), d[i].circuitHex);
        auto vs = st::pppoeTag(raw[i], 0x0105);
        ASSERT_TRUE(vs.has_value());
        EXPECT_EQ(agentVs("p1:0.0", "02:00:00:00:A0:01"), hexOf(*vs));
        EXPECT_TRUE(st::view(raw[i]).tags.empty());
    }

    EXPECT_EQ("p1 (unit " + std::to_string(lab.unit("p1")) +
                  ") counters\n"
                  "  error-rcv:   0\n"
                  "  error-send:  0\n"
                  "  padi-rcv:    1\n"
                  "  padr-rcv:    1\n"
                  "  pado-rcv:    0\n"
                  "  pads-rcv:    0\n"
                  "  padt-rcv:    0\n"
                  "  total-send:  0\n",
              ctl({"if", "p1", "counters"}));
    EXPECT_EQ("total-send: 2\n", ctl({"if", "p2", "get", "total-send"}));
    EXPECT_EQ("padi-rcv: 0\n", ctl({"if", "p2", "get", "padi-rcv"}));

    // The same counters as metrics, read back by the Prometheus client's parser.
    const std::string metrics = ctl({"metrics"});
    const std::string parsed = parsedMetrics(metrics);
    const std::string p1 = "{interface=p1,unit=" + std::to_string(lab.unit("p1")) + "} ";
    const std::string p2 = "{interface=p2,unit=" + std::to_string(lab.unit("p2")) + "} ";
    for (const std::string& sample :
         std::vector<std::string>{"pppoeplus_up {} 1", "pppoeplus_enabled {} 1", "pppoeplus_vendor_id {} 3561",
          "pppoeplus_interface_padi_received_total " + p1 + "1",
          "pppoeplus_interface_padr_received_total " + p1 + "1",
          "pppoeplus_interface_sent_total " + p1 + "0", "pppoeplus_interface_sent_total " + p2 + "2",
          "pppoeplus_interface_trusted " + p1 + "0", "pppoeplus_interface_trusted " + p2 + "1",
          "pppoeplus_interface_policed_total " + p1 + "0", "pppoeplus_interface_error_disabled " + p1 + "0"})
        EXPECT_TRUE(contains(parsed, " " + sample + "\n")) << sample << "\n" << parsed << metrics;

    EXPECT_EQ(0, lab.stopDaemon());
    // Without a daemon: nothing on stdout, exit 3.
    Result gone = lab.ctl({"metrics"});
    EXPECT_EQ(3, gone.status) << gone.all();
    EXPECT_EQ("", gone.out);
    // Stopped, the agent leaves the client port's rule (fail closed).
    EXPECT_TRUE(contains(lab.in(lab.agent(), {"nft", "list", "set", "bridge", "pppoeplus", "ports"}).out, "\"p1\""));
}

TEST_F(SystemTest, TaggedClientsGetTheirVlanIdsInTheCircuitIdAndKeepTheirTags) {
    ST_NEED(false, true);
    LAB_UP(Lab::Options());
    Capture cap(lab.server(), "s0");
    ASSERT_TRUE(cap.ok());
    craft("c0", {"src=" + clientMac(0x10), "src=" + clientMac(0x11) + ",outer=100:5",
                 "src=" + clientMac(0x12) + ",outer=200:3,inner=300:1"});
    ASSERT_TRUE(waitCount(cap, clientMac(0x12), 1));
    struct Expect {
        int mac;
        const char* svid;
        const char* vlan;
        const char* pri;
        const char* circuit;
        std::vector<std::pair<uint16_t, uint16_t>> tags;
    };
    const Expect expects[] = {
        {0x10, "", "", "", "p1:0.0", {}},
        {0x11, "", "100", "5", "p1:100.0", {{0x8100, (5 << 13) | 100}}},
        {0x12, "200", "300", "1", "p1:200.300", {{0x88a8, (3 << 13) | 200}, {0x8100, (1 << 13) | 300}}},
    };
    for (const Expect& e : expects) {
        SCOPED_TRACE(e.circuit);
        std::vector<Frame> raw;
        std::vector<Decoded> d = decode(cap, clientMac(e.mac), &raw);
        ASSERT_EQ(1u, d.size());
        EXPECT_EQ("0x09", d[0].code);
        EXPECT_EQ(e.svid, d[0].svid);
        EXPECT_EQ(e.vlan, d[0].vlan);
        EXPECT_EQ(e.pri, d[0].vlanPri);
        EXPECT_EQ("3561", d[0].vendorId);
        EXPECT_EQ(e.circuit, d[0].circuitId);
        EXPECT_EQ("02:00:00:00:A0:01", d[0].remoteId);
        EXPECT_EQ(e.tags, st::view(raw[0]).tags);
        EXPECT_EQ("ff:ff:ff:ff:ff:ff", st::view(raw[0]).dst);
        EXPECT_EQ(agentVs(e.circuit, "02:00:00:00:A0:01"), hexOf(*st::pppoeTag(raw[0], 0x0105)));
    }
    EXPECT_EQ("padi-rcv: 3\n", ctl({"if", "p1", "get", "padi-rcv"}));
    EXPECT_EQ("total-send: 3\n", ctl({"if", "p2", "get", "total-send"}));
}

// ---- policies --------------------------------------------------------------------------------------

TEST_F(SystemTest, TheGlobalPolicyKeepsDropsReplacesOrStopsAClientsOwnTag) {
    ST_NEED(false, true);
    LAB_UP(Lab::Options());
    Capture cap(lab.server(), "s0");
    ASSERT_TRUE(cap.ok());
    const char* policies[] = {"keep", "drop", "replace", "default"};
    for (int i = 0; i < 4; i++) {
        // Set and sync differ only in what the hardware layer is told.
        const char* verb = i < 2 ? "set" : "sync";
        EXPECT_EQ(std::string("policy ") + (i < 2 ? "set" : "synced") + " to " + policies[i] + "\n",
                  ctl({verb, "policy", policies[i]}));
        EXPECT_EQ(std::string("policy: ") + policies[i] + "\n", ctl({"get", "policy"}));
        // The tagged frame, then a plain PADI that always goes through: once
        // that one is at the server, the first would be too.
        craft("c0", {"src=" + clientMac(0x20 + i) + ",vs=" + CLIENT_VS, "src=" + clientMac(0x30 + i)});
        ASSERT_TRUE(waitCount(cap, clientMac(0x30 + i), 1)) << policies[i];
    }
    // keep: the client's tag as it was.
    std::vector<Frame> raw;
    std::vector<Decoded> d = decode(cap, clientMac(0x20), &raw);
    ASSERT_EQ(1u, d.size());
    EXPECT_EQ("3561", d[0].vendorId);
    EXPECT_EQ("client-cid", d[0].circuitId);
    EXPECT_EQ("client-rid", d[0].remoteId);
    EXPECT_EQ(CLIENT_VS, hexOf(*st::pppoeTag(raw[0], 0x0105)));
    // drop: no Vendor-Specific tag at all, the rest of the frame intact.
    d = decode(cap, clientMac(0x21), &raw);
    ASSERT_EQ(1u, d.size());
    EXPECT_EQ("", d[0].vendorId);
    EXPECT_EQ("", d[0].circuitId);
    EXPECT_FALSE(st::pppoeTag(raw[0], 0x0105).has_value());
    EXPECT_TRUE(st::pppoeTag(raw[0], 0x0101).has_value());
    // replace: the agent's own.
    d = decode(cap, clientMac(0x22), &raw);
    ASSERT_EQ(1u, d.size());
    EXPECT_EQ("p1:0.0", d[0].circuitId);
    EXPECT_EQ("02:00:00:00:A0:01", d[0].remoteId);
    EXPECT_EQ(agentVs("p1:0.0", "02:00:00:00:A0:01"), hexOf(*st::pppoeTag(raw[0], 0x0105)));
    // default at the global level: nothing is sent.
    EXPECT_EQ(0u, cap.received(clientMac(0x23)).size());
    // The plain PADIs got the agent's tag under every policy.
    for (int i = 0; i < 4; i++) {
        d = decode(cap, clientMac(0x30 + i));
        ASSERT_EQ(1u, d.size());
        EXPECT_EQ("p1:0.0", d[0].circuitId);
    }
    EXPECT_EQ("padi-rcv: 8\n", ctl({"if", "p1", "get", "padi-rcv"}));
    EXPECT_EQ("total-send: 7\n", ctl({"if", "p2", "get", "total-send"}));
}

TEST_F(SystemTest, AnInterfacesOwnPolicyWinsOverTheGlobalOneUnlessItIsDefault) {
    ST_NEED(false, true);
    Lab::Options o;
    o.clientPorts = 2;  // p1 (c0) and p3 (c1)
    LAB_UP(o);
    Capture cap(lab.server(), "s0");
    ASSERT_TRUE(cap.ok());
    struct Round {
        const char* global;
        const char* p1;
        const char* p3;
    };
    const Round rounds[] = {{"drop", "keep", "default"}, {"default", "replace", "default"}, {"keep", "drop", "replace"}};
    for (int i = 0; i < 3; i++) {
        ctl({"set", "policy", rounds[i].global});
        EXPECT_EQ(std::string("p1: policy set to ") + rounds[i].p1 + "\n", ctl({"if", "p1", "set", "policy", rounds[i].p1}));
        EXPECT_EQ(std::string("p3: policy synced to ") + rounds[i].p3 + "\n",
                  ctl({"if", "p3", "sync", "policy", rounds[i].p3}));
        EXPECT_EQ(std::string("policy: ") + rounds[i].p3 + "\n", ctl({"if", "p3", "get", "policy"}));
        craft("c0", {"src=" + clientMac(0x40 + i) + ",vs=" + CLIENT_VS, "src=" + clientMac(0x50 + i)});
        craft("c1", {"src=" + clientMac(0x60 + i) + ",vs=" + CLIENT_VS, "src=" + clientMac(0x70 + i)});
        ASSERT_TRUE(waitCount(cap, clientMac(0x50 + i), 1));
        ASSERT_TRUE(waitCount(cap, clientMac(0x70 + i), 1));
    }
    auto circuitOf = [&](int mac) {
        std::vector<Frame> raw;
        std::vector<Decoded> d = decode(cap, clientMac(mac), &raw);
        if (d.empty()) return std::string("(not sent)");
        EXPECT_EQ(1u, d.size());
        return d[0].vendorId.empty() ? std::string("(no tag)") : d[0].circuitId + " " + d[0].remoteId;
    };
    // Round 1: p1 keeps; p3 follows the global drop.
    EXPECT_EQ("client-cid client-rid", circuitOf(0x40));
    EXPECT_EQ("(no tag)", circuitOf(0x60));
    // Round 2: p1 replaces; p3 follows the global default: not sent.
    EXPECT_EQ("p1:0.0 02:00:00:00:A0:01", circuitOf(0x41));
    EXPECT_EQ("(not sent)", circuitOf(0x61));
    // Round 3: p1 drops, p3 replaces, whatever the global keep says.
    EXPECT_EQ("(no tag)", circuitOf(0x42));
    EXPECT_EQ("p3:0.0 02:00:00:00:A0:03", circuitOf(0x62));
    EXPECT_EQ("padi-rcv: 6\n", ctl({"if", "p3", "get", "padi-rcv"}));
    EXPECT_EQ("total-send: 11\n", ctl({"if", "p2", "get", "total-send"}));
}

// ---- user-defined formats -----------------------------------------------------------------------------

TEST_F(SystemTest, UserDefinedAsciiAndHexFormatsSetWithTheToolReachTheServerByteForByte) {
    ST_NEED(false, true);
    Lab::Options o;
    o.clientPorts = 2;
    o.conf = "platform.devicename = lab-olt\n";
    LAB_UP(o);
    // p1: its own formats, typed with keywords; the Remote-ID in hex form.
    EXPECT_EQ("p1: circuit-id-type set to userdefine\n", ctl({"if", "p1", "set", "circuit-id-type", "userdefine"}));
    ctl({"if", "p1", "set", "circuit-id-format", "'%devicename/%portname/%010svlan.%cvlan'"});
    ctl({"if", "p1", "set", "remote-id-type", "userdefine"});
    ctl({"if", "p1", "set", "remote-id-format", "0x01 %16svlan %cvlan 0x0a0b 300"});
    // The global Circuit-ID as plain text, which p3 uses.
    ctl({"set", "circuit-id-type", "ascii"});
    EXPECT_EQ("circuit-id-format set to lab line 7\n", ctl({"set", "circuit-id-format", "lab line 7"}));
    // What was typed is what is read back.
    EXPECT_EQ("circuit-id-format: '%devicename/%portname/%010svlan.%cvlan'\n",
              ctl({"if", "p1", "get", "circuit-id-format"}));
    EXPECT_EQ("remote-id-format: 0x01 %16svlan %cvlan 0x0a0b 300\n", ctl({"if", "p1", "get", "remote-id-format"}));
    EXPECT_EQ("circuit-id-format: lab line 7\n", ctl({"if", "p3", "get", "circuit-id-format"}));
    // A keyword that does not exist, and a format too long, are refused by name.
    Result bad = lab.ctl({"if", "p1", "set", "circuit-id-format", "'%nosuchword'"});
    EXPECT_EQ(1, bad.status);
    EXPECT_EQ("pppoeplusctl: if p1 set circuit-id-format: ZEL_EINVAL (22): invalid value or format\n", bad.err);
    Result tooLong = lab.ctl({"set", "circuit-id-format", std::string(256, 'x')});
    EXPECT_EQ(1, tooLong.status);
    EXPECT_TRUE(contains(tooLong.err, "ZEL_ERR_TOO_LONG (0x3E8000D)")) << tooLong.err;
    EXPECT_EQ("circuit-id-format: lab line 7\n", ctl({"get", "circuit-id-format"}));

    Capture cap(lab.server(), "s0");
    ASSERT_TRUE(cap.ok());
    craft("c0", {"src=" + clientMac(0x80) + ",outer=100,inner=200"});
    craft("c1", {"src=" + clientMac(0x81)});
    ASSERT_TRUE(waitCount(cap, clientMac(0x80), 1));
    ASSERT_TRUE(waitCount(cap, clientMac(0x81), 1));

    std::vector<Frame> raw;
    std::vector<Decoded> d = decode(cap, clientMac(0x80), &raw);
    ASSERT_EQ(1u, d.size());
    EXPECT_EQ("3561", d[0].vendorId);
    // The zero pad, once asked for, holds for the rest of the segment.
    EXPECT_EQ("lab-olt/p1/0000000100.200", d[0].circuitId);
    EXPECT_EQ(hexOf(std::string("lab-olt/p1/0000000100.200")), d[0].circuitHex);
    // 0x01, S-VLAN 100 in 16 bits, C-VLAN 200 in 16 bits, 0x0a0b, 300.
    EXPECT_EQ("01006400c80a0b012c", d[0].remoteHex);
    EXPECT_EQ("00000de9" "0119" + hexOf(std::string("lab-olt/p1/0000000100.200")) + "0209" "01006400c80a0b012c",
              hexOf(*st::pppoeTag(raw[0], 0x0105)));

    d = decode(cap, clientMac(0x81), &raw);
    ASSERT_EQ(1u, d.size());
    EXPECT_EQ("lab line 7", d[0].circuitId);
    EXPECT_EQ("02:00:00:00:A0:03", d[0].remoteId);
    EXPECT_EQ(agentVs("lab line 7", "02:00:00:00:A0:03"), hexOf(*st::pppoeTag(raw[0], 0x0105)));
}

// ---- uplinks, trust and server frames ------------------------------------------------------------------

TEST_F(SystemTest, EachUplinkGetsOneCopyAndNothingLeaksPastTheAgent) {
    ST_NEED(false, true);
    Lab::Options o;
    o.clientPorts = 2;  // p1 (c0), p3 (c1)
    o.uplinks = 2;      // p2 (s0), p4 (s1)
    LAB_UP(o);
    Capture s0(lab.server(), "s0");
    Capture s1(lab.server(), "s1");
    Capture c1(lab.client(), "c1");
    ASSERT_TRUE(s0.ok() && s1.ok() && c1.ok());

    // Both uplinks trusted: one tagged copy on each.
    craft("c0", {"src=" + clientMac(0x90)});
    ASSERT_TRUE(waitCount(s0, clientMac(0x90), 1));
    ASSERT_TRUE(waitCount(s1, clientMac(0x90), 1));
    EXPECT_EQ("total-send: 1\n", ctl({"if", "p2", "get", "total-send"}));
    EXPECT_EQ("total-send: 1\n", ctl({"if", "p4", "get", "total-send"}));
    for (Capture* cap : {&s0, &s1}) {
        std::vector<Decoded> d = decode(*cap, clientMac(0x90));
        ASSERT_EQ(1u, d.size());
        EXPECT_EQ("p1:0.0", d[0].circuitId);
    }

    // p4 no longer trusted: it is a served port like a client port; the
    // untagged PADI reaches it neither from the agent nor through the bridge.
    EXPECT_EQ("p4: trust set to off\n", ctl({"if", "p4", "set", "trust", "off"}));
    EXPECT_TRUE(lab.waitForRuleSet({"p1", "p3", "p4"})) << ::testing::PrintToString(lab.ruleSet());
    craft("c0", {"src=" + clientMac(0x91), "src=" + clientMac(0x92) + ",code=marker"});
    ASSERT_TRUE(waitCount(s0, clientMac(0x91), 1));
    ASSERT_TRUE(s1.waitForMarker(clientMac(0x92)));
    ASSERT_TRUE(s0.waitForMarker(clientMac(0x92)));
    EXPECT_EQ(0u, s1.received(clientMac(0x91)).size());
    std::vector<Decoded> d = decode(s0, clientMac(0x91));
    ASSERT_EQ(1u, d.size()) << "the server got the untagged original too";
    EXPECT_EQ("3561", d[0].vendorId);
    EXPECT_EQ("p1:0.0", d[0].circuitId);
    EXPECT_EQ("total-send: 2\n", ctl({"if", "p2", "get", "total-send"}));
    EXPECT_EQ("total-send: 1\n", ctl({"if", "p4", "get", "total-send"}));

    // A PADO from a client port is counted and reaches nobody: not the
    // servers, not the other client port.
    craft("c0", {"src=" + clientMac(0x93) + ",code=pado,dst=" + Lab::macOf("s0"),
                 "src=" + clientMac(0x93) + ",code=pado", "src=" + clientMac(0x94) + ",code=marker"});
    for (Capture* cap : {&s0, &s1, &c1}) ASSERT_TRUE(cap->waitForMarker(clientMac(0x94)));
    for (Capture* cap : {&s0, &s1, &c1}) EXPECT_EQ(0u, cap->received(clientMac(0x93)).size());
    EXPECT_EQ("pado-rcv: 2\n", ctl({"if", "p1", "get", "pado-rcv"}));
    EXPECT_EQ("padi-rcv: 2\n", ctl({"if", "p1", "get", "padi-rcv"}));
    // The other client port saw no PADI either.
    EXPECT_EQ(0u, c1.received(clientMac(0x90)).size());
    EXPECT_EQ(0u, c1.received(clientMac(0x91)).size());
}

// ---- PON ports ------------------------------------------------------------------------------------------

TEST_F(SystemTest, APonPortSendsTheOltLineIdAsItsOnlySubOption) {
    ST_NEED(false, true);
    LAB_UP(ponLab("ponolt", "slot=2 port=5"));
    const uint32_t p1 = lab.unit("p1");
    Result r = lab.ctl({"shell", "pppoeplusPonTest", "p1", "7"});
    EXPECT_EQ(0, r.status) << r.all();
    // The test ONU record: the unit, the ONU number in bits 8-19 of a host
    // order word with the serial number's length 8 below it, the serial number.
    char unitBytes[12];
    std::snprintf(unitBytes, sizeof(unitBytes), "%02x %02x %02x %02x", p1 & 0xFF, (p1 >> 8) & 0xFF,
                  (p1 >> 16) & 0xFF, p1 >> 24);
    EXPECT_EQ("gTestOnuInfo = " + std::string(unitBytes) + " 08 07 00 00 57 55 50 4f 1b d8 0a 9a\n",
              ctl({"shell", "gTestOnuInfo"}));
    EXPECT_EQ("pon-circuit-id-format: '0 0/0/0:0.0 %accessnode/%rack/%frame/%slot/0/%port/%onuid %accesstype'\n",
              ctl({"get", "pon-circuit-id-format"}));
    EXPECT_EQ("circuit-id-format: '0 0/0/0:0.0 %accessnode/%rack/%frame/%slot/0/%port/%onuid %accesstype'\n",
              ctl({"if", "p1", "get", "circuit-id-format"}));
    EXPECT_TRUE(contains(ctl({"shell", "pppoeplusShow"}), "phyInfo.ondType:11 PON\n"));

    Capture cap(lab.server(), "s0");
    ASSERT_TRUE(cap.ok());
    craft("c0", {"src=" + clientMac(0xa0)});
    ASSERT_TRUE(waitCount(cap, clientMac(0xa0), 1));
    std::vector<Frame> raw;
    std::vector<Decoded> d = decode(cap, clientMac(0xa0), &raw);
    ASSERT_EQ(1u, d.size());
    const std::string lineId = "0 0/0/0:0.0 02:00:00:00:00:01/0/0/2/0/5/7 GP";
    EXPECT_EQ("3561", d[0].vendorId);
    EXPECT_EQ(lineId, d[0].circuitId);
    EXPECT_EQ("", d[0].remoteId);
    // Vendor id, then the Circuit-ID sub-option alone.
    EXPECT_EQ(circuitOnlyVs(lineId), hexOf(*st::pppoeTag(raw[0], 0x0105)));
    // The %accessnode keyword fetched the system MAC.
    EXPECT_TRUE(contains(ctl({"shell", "pppoeplusShow"}), "sys mac:02:00:00:00:00:01\n"));
    EXPECT_EQ("padi-rcv: 1\n", ctl({"if", "p1", "get", "padi-rcv"}));
}

TEST_F(SystemTest, AnOltRepeatsTheLineIdThatAnOnusAgentWroteIntoTheClientsTag) {
    ST_NEED(false, true);
    LAB_UP(ponLab("ponolt", "slot=2 port=5"));
    ASSERT_EQ(0, lab.ctl({"shell", "pppoeplusPonTest", "p1", "7"}).status);
    Capture cap(lab.server(), "s0");
    ASSERT_TRUE(cap.ok());
    // The tag an ONU's agent put in: its line id is the word with ":eth". A
    // word with ":atm" counts too; one without either gives no line id.
    craft("c0", {"src=" + clientMac(0xb0) + ",vs=" + circuitOnlyVs("ONU-9 olt-a/1/2:eth 0/3"),
                 "src=" + clientMac(0xb1) + ",vs=" + circuitOnlyVs("x olt-b/4:atm"),
                 "src=" + clientMac(0xb2) + ",vs=" + circuitOnlyVs("ONU-9 olt-a/1/2:pon 0/3")});
    ASSERT_TRUE(waitCount(cap, clientMac(0xb2), 1));
    ASSERT_TRUE(waitCount(cap, clientMac(0xb0), 1));
    ASSERT_TRUE(waitCount(cap, clientMac(0xb1), 1));
    // The policy is replace: the OLT's own line id, with the ONU's word after
    // the ONU number.
    std::vector<Decoded> d = decode(cap, clientMac(0xb0));
    ASSERT_EQ(1u, d.size());
    EXPECT_EQ("0 0/0/0:0.0 02:00:00:00:00:01/0/0/2/0/5/7 olt-a/1/2:eth GP", d[0].circuitId);
    EXPECT_EQ("", d[0].remoteId);
    d = decode(cap, clientMac(0xb1));
    ASSERT_EQ(1u, d.size());
    EXPECT_EQ("0 0/0/0:0.0 02:00:00:00:00:01/0/0/2/0/5/7 olt-b/4:atm GP", d[0].circuitId);
    d = decode(cap, clientMac(0xb2));
    ASSERT_EQ(1u, d.size());
    EXPECT_EQ("0 0/0/0:0.0 02:00:00:00:00:01/0/0/2/0/5/7 GP", d[0].circuitId);
    EXPECT_EQ("padi-rcv: 3\n", ctl({"if", "p1", "get", "padi-rcv"}));
}

TEST_F(SystemTest, AnOnuPortSendsTheOnuLineIdWithItsEmptyKeywords) {
    ST_NEED(false, true);
    LAB_UP(ponLab("pononu", "slot=1 port=1"));
    ASSERT_EQ(0, lab.ctl({"shell", "pppoeplusPonTest", "p1", "3"}).status);
    EXPECT_EQ("pon-circuit-id-format: '0/0/0:0.0 0/0/0/0/0/0/0 %onuslot/%onusubslot/%onuport 0'\n",
              ctl({"get", "pon-circuit-id-format"}));
    EXPECT_TRUE(contains(ctl({"shell", "pppoeplusShow"}), "ponDefaultType:2 pon-onu"));

    Capture cap(lab.server(), "s0");
    ASSERT_TRUE(cap.ok());
    // A client tag with an ":eth" word: an ONU does not take line ids over.
    craft("c0", {"src=" + clientMac(0xc0), "src=" + clientMac(0xc1) + ",vs=" + circuitOnlyVs("up olt-a/1/2:eth")});
    ASSERT_TRUE(waitCount(cap, clientMac(0xc0), 1));
    ASSERT_TRUE(waitCount(cap, clientMac(0xc1), 1));
    const std::string lineId = "0/0/0:0.0 0/0/0/0/0/0/0 // 0";
    for (int n : {0xc0, 0xc1}) {
        std::vector<Frame> raw;
        std::vector<Decoded> d = decode(cap, clientMac(n), &raw);
        ASSERT_EQ(1u, d.size());
        EXPECT_EQ("3561", d[0].vendorId);
        EXPECT_EQ(lineId, d[0].circuitId);
        EXPECT_EQ("", d[0].remoteId);
        EXPECT_EQ(circuitOnlyVs(lineId), hexOf(*st::pppoeTag(raw[0], 0x0105)));
    }
}

// ---- interface events ------------------------------------------------------------------------------------

TEST_F(SystemTest, PortsThatComeAndGoGetAndLoseTheirEntriesAndAResetPortClearsOne) {
    ST_NEED(false, true);
    LAB_UP(Lab::Options());
    // A client port created now, while every port is served by default.
    ASSERT_EQ(0, st::exec({"ip", "-n", lab.agent(), "link", "add", "p5", "address", Lab::macOf("p5"), "type", "veth",
                           "peer", "name", "c5", "address", Lab::macOf("c5"), "netns", lab.client()})
                     .status);
    ASSERT_EQ(0, st::exec({"ip", "-n", lab.agent(), "link", "set", "p5", "master", "br0", "up"}).status);
    ASSERT_EQ(0, st::exec({"ip", "-n", lab.client(), "link", "set", "c5", "up"}).status);
    ASSERT_TRUE(lab.waitForEntry("p5")) << lab.ctl({"if", "list"}).all();
    const uint32_t p5 = lab.unit("p5");
    EXPECT_EQ("enable: on\n", ctl({"if", "p5", "get", "enable"}));
    EXPECT_EQ("trust: off\n", ctl({"if", "p5", "get", "trust"}));
    EXPECT_TRUE(lab.waitForRuleSet({"p1", "p5"})) << ::testing::PrintToString(lab.ruleSet());

    Capture cap(lab.server(), "s0");
    ASSERT_TRUE(cap.ok());
    craft("c5", {"src=" + clientMac(0xb0)});
    ASSERT_TRUE(waitCount(cap, clientMac(0xb0), 1));
    std::vector<Decoded> d = decode(cap, clientMac(0xb0));
    ASSERT_EQ(1u, d.size());
    EXPECT_EQ("p5:0.0", d[0].circuitId);
    EXPECT_EQ("02:00:00:00:A0:05", d[0].remoteId);

    // Deleted: the entry goes with it.
    ASSERT_EQ(0, st::exec({"ip", "-n", lab.agent(), "link", "del", "p5"}).status);
    Result gone;
    for (int i = 0; i < 200; i++) {
        gone = lab.ctl({"if", std::to_string(p5), "get", "enable"});
        if (gone.status != 0) break;
        ::usleep(50000);
    }
    EXPECT_EQ(1, gone.status);
    EXPECT_EQ("pppoeplusctl: if " + std::to_string(p5) +
                  " get enable: ZEL_ERR_NOT_FOUND (0x3E80002): no such entry (an interface the agent does not serve "
                  "yet: 'if IF set enable on' creates its entry)\n",
              gone.err);
    EXPECT_TRUE(lab.waitForRuleSet({"p1"})) << ::testing::PrintToString(lab.ruleSet());
    Result list = lab.ctl({"--json", "if", "list"});
    EXPECT_FALSE(contains(list.out, "\"unit\":" + std::to_string(p5) + ",")) << list.out;

    // A reset of p1's configuration: p1 is served by default, so its entry
    // stays with default settings and zero counters.
    ctl({"if", "p1", "set", "policy", "keep"});
    ctl({"if", "p1", "set", "circuit-id-type", "ascii"});
    ctl({"if", "p1", "set", "circuit-id-format", "mine"});
    craft("c0", {"src=" + clientMac(0xb1)});
    ASSERT_TRUE(waitCount(cap, clientMac(0xb1), 1));
    d = decode(cap, clientMac(0xb1));
    ASSERT_EQ(1u, d.size());
    EXPECT_EQ("mine", d[0].circuitId);
    EXPECT_EQ("padi-rcv: 1\n", ctl({"if", "p1", "get", "padi-rcv"}));
    EXPECT_EQ("reset-port p1 (unit " + std::to_string(lab.unit("p1")) + "): delivered to 1 route socket\n",
              ctl({"event", "reset-port", "p1"}));
    for (int i = 0; i < 100 && lab.ctl({"if", "p1", "get", "policy"}).out != "policy: default\n"; i++) ::usleep(50000);
    EXPECT_EQ("policy: default\n", ctl({"if", "p1", "get", "policy"}));
    EXPECT_EQ("circuit-id-type: default\n", ctl({"if", "p1", "get", "circuit-id-type"}));
    EXPECT_EQ("padi-rcv: 0\n", ctl({"if", "p1", "get", "padi-rcv"}));
    EXPECT_EQ("enable: on\n", ctl({"if", "p1", "get", "enable"}));
    craft("c0", {"src=" + clientMac(0xb2)});
    ASSERT_TRUE(waitCount(cap, clientMac(0xb2), 1));
    d = decode(cap, clientMac(0xb2));
    ASSERT_EQ(1u, d.size());
    EXPECT_EQ("p1:0.0", d[0].circuitId);
}

// ---- the agent as a whole ----------------------------------------------------------------------------------

TEST_F(SystemTest, TheAgentIsSwitchedOffAndOnResetAndInspectedThroughTheTool) {
    ST_NEED(false, true);
    LAB_UP(Lab::Options());
    const std::string p1 = std::to_string(lab.unit("p1"));
    const std::string p2 = std::to_string(lab.unit("p2"));
    Capture cap(lab.server(), "s0");
    ASSERT_TRUE(cap.ok());
    craft("c0", {"src=" + clientMac(0xc0)});
    ASSERT_TRUE(waitCount(cap, clientMac(0xc0), 1));

    // Counters and the daemon's own show.
    EXPECT_EQ("p1 (unit " + p1 +
                  ") counters\n"
                  "  error-rcv:   0\n"
                  "  error-send:  0\n"
                  "  padi-rcv:    1\n"
                  "  padr-rcv:    0\n"
                  "  pado-rcv:    0\n"
                  "  pads-rcv:    0\n"
                  "  padt-rcv:    0\n"
                  "  total-send:  0\n",
              ctl({"if", "p1", "counters"}));
    EXPECT_EQ("{\"ok\":true,\"scope\":\"interface\",\"unit\":" + p2 +
                  ",\"interface\":\"p2\",\"counters\":{\"error-rcv\":0,\"error-send\":0,\"padi-rcv\":0,"
                  "\"padr-rcv\":0,\"pado-rcv\":0,\"pads-rcv\":0,\"padt-rcv\":0,\"total-send\":1}}\n",
              ctl({"--json", "if", "p2", "counters"}));
    // Policed in the kernel, nothing dropped.
    EXPECT_EQ("UNIT  NAME  ENABLE  TRUST  POLICY   IGNORE  ERR-RCV  ERR-SEND  PADI  PADR  PADO  PADS  PADT  SENT  "
              "POLICED  STATE\n"
              "   " + p1 + "  p1    on      off    default  unset         0         0     1     0     0     0     0     0"
              "        0  served\n"
              "   " + p2 + "  p2    on      on     default  unset         0         0     0     0     0     0     0     1"
              "        0  served\n",
              ctl({"if", "list"}));
    std::string show = ctl({"shell", "pppoeplusShow"});
    for (const std::string& line :
         {std::string("------------------------PPPOEPLUS INFOMATION-----------------------\n"),
          std::string("enable:1 ZEL_TRUE, isAllPortEnableSupport:1 ZEL_TRUE, maxSubSysNum:9, ifMaxNum:180, "
                      "ponDefaultType:1 pon-olt, vendorId:3561\n"),
          // Fetched only when a format needs it.
          std::string("sys mac:00:00:00:00:00:00\n"), std::string("dfltVendorId:3561, policy:3 replace\n"),
          std::string("circuitIdFormat.formatLen:10, circuitIdFormat.format:'%N:%s.%c'\n"),
          ", ifUnit:" + p1 +
              " p1, trust:2 ZEL_FALSE, enable:1 ZEL_TRUE, protoEnable:1 ZEL_TRUE, protoDfltEnable:1 ZEL_TRUE\n",
          ", ifUnit:" + p2 +
              " p2, trust:1 ZEL_TRUE, enable:1 ZEL_TRUE, protoEnable:1 ZEL_TRUE, protoDfltEnable:1 ZEL_TRUE\n",
          std::string("errorRcv:0, errorSend:0, padiRcv:1, padrRcv:0, padtRcv:0, padoRcv:0, padsRcv:0, totalSend:0\n"),
          std::string("errorRcv:0, errorSend:0, padiRcv:0, padrRcv:0, padtRcv:0, padoRcv:0, padsRcv:0, totalSend:1\n")})
        EXPECT_TRUE(contains(show, line)) << line << "\nin:\n" << show;
    EXPECT_FALSE(contains(show, "\r")) << "the tool gives plain lines";
    EXPECT_EQ("p1 (unit " + p1 + "): counters cleared\n", ctl({"if", "p1", "clear"}));
    EXPECT_EQ("padi-rcv: 0\n", ctl({"if", "p1", "get", "padi-rcv"}));

    // Off: no entry, no hardware rule; the bridge forwards the client's frame
    // as it is, once, without a tag.
    EXPECT_EQ("enable set to off\n", ctl({"set", "enable", "off"}));
    EXPECT_EQ("enable: off\n", ctl({"get", "enable"}));
    EXPECT_EQ("no interface is served\n", ctl({"if", "list"}));
    EXPECT_TRUE(lab.waitForRuleSet({})) << ::testing::PrintToString(lab.ruleSet());
    craft("c0", {"src=" + clientMac(0xc1), "src=" + clientMac(0xc2) + ",code=marker"});
    ASSERT_TRUE(cap.waitForMarker(clientMac(0xc2)));
    std::vector<Decoded> d = decode(cap, clientMac(0xc1));
    ASSERT_EQ(1u, d.size());
    EXPECT_EQ("", d[0].vendorId);

    // On again: every port has a fresh entry; the uplink must be trusted again.
    EXPECT_EQ("enable set to on\n", ctl({"set", "enable", "on"}));
    ASSERT_TRUE(lab.waitForEntry("p1"));
    ASSERT_TRUE(lab.waitForEntry("p2"));
    EXPECT_EQ("trust: off\n", ctl({"if", "p2", "get", "trust"}));
    ctl({"if", "p2", "set", "trust", "on"});
    EXPECT_TRUE(lab.waitForRuleSet({"p1"})) << ::testing::PrintToString(lab.ruleSet());
    craft("c0", {"src=" + clientMac(0xc3)});
    ASSERT_TRUE(waitCount(cap, clientMac(0xc3), 1));
    d = decode(cap, clientMac(0xc3));
    ASSERT_EQ(1u, d.size());
    EXPECT_EQ("p1:0.0", d[0].circuitId);

    // A protocol configuration reset brings the global settings back and
    // resets the entries.
    ctl({"set", "vendor-id", "9"});
    ctl({"set", "policy", "keep"});
    ctl({"set", "circuit-id-type", "userdefine"});
    ctl({"set", "circuit-id-format", "'%portname'"});
    EXPECT_EQ("{\"ok\":true,\"scope\":\"global\",\"name\":\"vendor-id\",\"code\":4,\"value\":9}\n",
              ctl({"--json", "get", "vendor-id"}));
    EXPECT_EQ("reset-proto 141: delivered to 1 route socket\n", ctl({"event", "reset-proto"}));
    for (int i = 0; i < 100 && lab.ctl({"get", "vendor-id"}).out != "vendor-id: 3561\n"; i++) ::usleep(50000);
    EXPECT_EQ("vendor-id: 3561\n", ctl({"get", "vendor-id"}));
    EXPECT_EQ("policy: replace\n", ctl({"get", "policy"}));
    EXPECT_EQ("circuit-id-type: default\n", ctl({"get", "circuit-id-type"}));
    EXPECT_EQ("circuit-id-format: '%portname:%svlan.%cvlan'\n", ctl({"get", "circuit-id-format"}));
    EXPECT_EQ("enable: on\n", ctl({"if", "p1", "get", "enable"}));
    EXPECT_EQ("trust: off\n", ctl({"if", "p2", "get", "trust"}));

    // Results are named with their values.
    struct Refusal {
        std::vector<std::string> args;
        std::string err;
    };
    const Refusal refusals[] = {
        {{"if", "99999", "get", "enable"}, "ZEL_ERR_NOT_FOUND (0x3E80002)"},
        {{"set", "version", "x"}, "ZEL_ERR_UNSUPPORTED (0x3E80010)"},
        {{"get", "19"}, "ZEL_ERR_UNSUPPORTED (0x3E80010)"},
        {{"set", "circuit-id-type", "3"}, "ZEL_EINVAL (22)"},
        {{"set", "remote-id-format", std::string(300, 'r')}, "ZEL_ERR_TOO_LONG (0x3E8000D)"},
        {{"shell", "system"}, "ERR_DENIED (0x3E80030)"},
        {{"shell", "pppoeplusNoSuchThing"}, "ERR_DENIED (0x3E80030)"},
        {{"shell", "pppoeplusIfEntryShow", "0x7ffd12345678"}, "ERR_DENIED (0x3E80030)"},
    };
    for (const Refusal& f : refusals) {
        Result r = lab.ctl(f.args);
        EXPECT_EQ(1, r.status) << r.all();
        EXPECT_TRUE(contains(r.err, f.err)) << r.all();
    }
    Result json = lab.ctl({"--json", "if", "99999", "get", "policy"});
    EXPECT_EQ(1, json.status);
    EXPECT_EQ("{\"ok\":false,\"command\":\"if 99999 get policy\",\"scope\":\"interface\",\"unit\":99999,"
              "\"interface\":null,\"name\":\"policy\",\"code\":3,\"result\":65536002,"
              "\"resultName\":\"ZEL_ERR_NOT_FOUND\",\"resultValue\":\"0x3E80002\",\"error\":\"ZEL_ERR_NOT_FOUND "
              "(0x3E80002): no such entry (an interface the agent does not serve yet: 'if IF set enable on' creates "
              "its entry)\"}\n",
              json.out);

    EXPECT_EQ(0, lab.stopDaemon());
    EXPECT_TRUE(contains(lab.in(lab.agent(), {"nft", "list", "tables"}).out, "table bridge pppoeplus"));
    Result after = lab.ctl({"get", "enable"});
    EXPECT_EQ(3, after.status) << after.all();
}

}  // namespace
