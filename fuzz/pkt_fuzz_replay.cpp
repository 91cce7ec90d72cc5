// Runs the packet-path fuzz target (see pkt_fuzz_target.h) over the files
// named on the command line and every file inside the folders named there,
// without libFuzzer, so that a corpus can be replayed with any compiler and
// sanitizer. Exit status 0 when every input went through cleanly, 1 when one
// reported a problem, 2 when no input could be read.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz/pkt_fuzz_target.h"

namespace fs = std::filesystem;

static bool pppoeplusReplayFile(const fs::path& path, int* failures) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const std::string problems = pppoeplusfuzz::pppoeplusFuzzPacketOne(bytes.data(), bytes.size());
    if (!problems.empty()) {
        std::fprintf(stderr, "%s: %s\n", path.c_str(), problems.c_str());
        (*failures)++;
    }
    return true;
}

int main(int argc, char** argv) {
    pppoeplusfuzz::pppoeplusFuzzSetUp();
    int inputs = 0;
    int failures = 0;
    for (int i = 1; i < argc; i++) {
        std::error_code ec;
        const fs::path arg(argv[i]);
        if (fs::is_directory(arg, ec)) {
            std::vector<fs::path> files;
            for (const auto& e : fs::recursive_directory_iterator(arg, ec))
                if (e.is_regular_file()) files.push_back(e.path());
            std::sort(files.begin(), files.end());
            for (const fs::path& f : files) inputs += pppoeplusReplayFile(f, &failures) ? 1 : 0;
        } else {
            inputs += pppoeplusReplayFile(arg, &failures) ? 1 : 0;
        }
    }
    std::printf("pkt_fuzz_replay: %d inputs, %d with problems\n", inputs, failures);
    if (inputs == 0) return 2;
    return failures == 0 ? 0 : 1;
}
