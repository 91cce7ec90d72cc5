// Runs a target of fuzz_target.h over the files named on the command line
// and every file inside the folders named there, without libFuzzer. Exit
// status 0 when every input went through cleanly, 1 when one reported a
// problem, 2 when no input could be read.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/fuzz_target.h"

namespace fs = std::filesystem;

static bool replayFile(const fs::path& path, int* failures) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    // An exact heap copy: the sanitizers see a read past the input.
    std::unique_ptr<uint8_t[]> exact(new uint8_t[bytes.empty() ? 1 : bytes.size()]);
    if (!bytes.empty()) std::copy(bytes.begin(), bytes.end(), exact.get());
    const std::string problems = pppoeplusfuzz::targetOne(exact.get(), bytes.size());
    if (!problems.empty()) {
        std::fprintf(stderr, "%s: %s\n", path.c_str(), problems.c_str());
        (*failures)++;
    }
    return true;
}

int main(int argc, char** argv) {
    pppoeplusfuzz::targetSetUp();
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
            for (const fs::path& f : files) inputs += replayFile(f, &failures) ? 1 : 0;
        } else {
            inputs += replayFile(arg, &failures) ? 1 : 0;
        }
    }
    std::printf("%s replay: %d inputs, %d with problems\n", pppoeplusfuzz::kTargetName, inputs, failures);
    if (inputs == 0) return 2;
    return failures == 0 ? 0 : 1;
}
