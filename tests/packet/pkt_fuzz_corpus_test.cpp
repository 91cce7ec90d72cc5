// The packet-path fuzz target run over its seed corpus and over seeded
// random mutations of it, in this binary's sanitizer build: every input must
// go through without a problem report (and without a sanitizer finding).
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "fuzz/pkt_fuzz_target.h"
#include "support/fixture.h"

namespace {

namespace fs = std::filesystem;

// The seed corpus, found from this source file's place in the tree.
std::vector<std::vector<uint8_t>> seedCorpus() {
    std::vector<std::vector<uint8_t>> out;
    const fs::path dir = fs::path(__FILE__).parent_path() / ".." / ".." / "fuzz" / "corpus" / "pkt";
    std::error_code ec;
    std::vector<fs::path> files;
    for (const auto& e : fs::directory_iterator(dir, ec))
        if (e.is_regular_file()) files.push_back(e.path());
    std::sort(files.begin(), files.end());
    for (const fs::path& f : files) {
        std::ifstream in(f, std::ios::binary);
        out.emplace_back((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    }
    return out;
}

// One mutation of `input` the way a fuzzer would make it: flipped bits,
// bytes set to edge values, 16-bit lengths set to edge values, bytes
// inserted, removed or duplicated.
std::vector<uint8_t> mutate(std::vector<uint8_t> input, std::mt19937& rng) {
    auto pick = [&](size_t n) { return n == 0 ? size_t{0} : std::uniform_int_distribution<size_t>(0, n - 1)(rng); };
    const int steps = 1 + static_cast<int>(pick(4));
    for (int s = 0; s < steps; s++) {
        switch (pick(7)) {
            case 0:
                if (!input.empty()) input[pick(input.size())] ^= static_cast<uint8_t>(1u << pick(8));
                break;
            case 1:
                if (!input.empty()) {
                    static const uint8_t edges[] = {0x00, 0x01, 0x7F, 0x80, 0xFE, 0xFF, ' ', '%', '\'', ':', 0x05};
                    input[pick(input.size())] = edges[pick(sizeof(edges))];
                }
                break;
            case 2:
                if (input.size() >= 2) {
                    static const uint16_t edges[] = {0x0000, 0x0001, 0x0004, 0x0105, 0x00FF, 0x0574,
                                                     0xFFF8, 0xFFFA, 0xFFFB, 0xFFFC, 0xFFFF};
                    const size_t at = pick(input.size() - 1);
                    const uint16_t v = edges[pick(sizeof(edges) / sizeof(edges[0]))];
                    input[at] = static_cast<uint8_t>(v >> 8);
                    input[at + 1] = static_cast<uint8_t>(v);
                }
                break;
            case 3:
                input.insert(input.begin() + static_cast<std::ptrdiff_t>(pick(input.size() + 1)),
                             static_cast<uint8_t>(pick(256)));
                break;
            case 4:
                if (!input.empty()) input.erase(input.begin() + static_cast<std::ptrdiff_t>(pick(input.size())));
                break;
            case 5:
                if (!input.empty()) {
                    const size_t from = pick(input.size());
                    const size_t n = std::min<size_t>(1 + pick(64), input.size() - from);
                    std::vector<uint8_t> chunk(input.begin() + static_cast<std::ptrdiff_t>(from),
                                               input.begin() + static_cast<std::ptrdiff_t>(from + n));
                    input.insert(input.begin() + static_cast<std::ptrdiff_t>(pick(input.size() + 1)), chunk.begin(),
                                 chunk.end());
                }
                break;
            default:
                if (!input.empty()) input.resize(pick(input.size() + 1));
                break;
        }
    }
    return input;
}

class PktFuzzCorpusTest : public SimTest {
  protected:
    void SetUp() override {
        SimTest::SetUp();
        pppoeplusfuzz::pppoeplusFuzzSetUp();
    }
    void TearDown() override {
        gPppoeplusTestForward = 0;
        SimTest::TearDown();
    }
};

TEST_F(PktFuzzCorpusTest, SeedCorpusGoesThroughCleanly) {
    const auto corpus = seedCorpus();
    ASSERT_GE(corpus.size(), 50u) << "seed corpus missing (fuzz/corpus/pkt)";
    for (size_t i = 0; i < corpus.size(); i++)
        EXPECT_EQ("", pppoeplusfuzz::pppoeplusFuzzPacketOne(corpus[i].data(), corpus[i].size())) << "seed " << i;
}

TEST_F(PktFuzzCorpusTest, MutatedSeedsGoThroughCleanly) {
    const auto corpus = seedCorpus();
    ASSERT_FALSE(corpus.empty());
    std::mt19937 rng(20261121);
    int failures = 0;
    for (int round = 0; round < 240 && failures < 5; round++) {
        for (const auto& seed : corpus) {
            const std::vector<uint8_t> input = mutate(seed, rng);
            const std::string problems = pppoeplusfuzz::pppoeplusFuzzPacketOne(input.data(), input.size());
            if (!problems.empty()) {
                failures++;
                ADD_FAILURE() << problems << " on " << ::testing::PrintToString(input);
            }
        }
    }
}

TEST_F(PktFuzzCorpusTest, EmptyAndTinyInputs) {
    const uint8_t bytes[4] = {0x03, 0x00, 0x00, 0x11};
    for (size_t n = 0; n <= sizeof(bytes); n++) EXPECT_EQ("", pppoeplusfuzz::pppoeplusFuzzPacketOne(bytes, n)) << n;
}

}  // namespace
