// The tool's list of shell functions against the daemon's shell table: the
// tool cannot ask the daemon for its table, so the two are compared here.
#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "diag/shell_table.h"
#include "tools/ctl.h"

namespace {

// The function lines of 'help shell': name -> argument placeholders
// ("pppoeplusPonTest IF ONU      treat IF ..." -> {"IF", "ONU"}).
std::map<std::string, std::vector<std::string>> helpFunctions() {
    std::map<std::string, std::vector<std::string>> out;
    std::istringstream in(ctl::helpText("shell"));
    bool inList = false;
    for (std::string line; std::getline(in, line);) {
        if (line == "Functions:") {
            inList = true;
            continue;
        }
        if (!inList) continue;
        if (line.empty()) break;
        if (line.rfind("  pppoeplus", 0) != 0) continue;  // a continued line, the variables
        // The usage ends where the description starts, at two blanks.
        std::string usage = line.substr(2, line.find("  ", 2) - 2);
        std::istringstream words(usage);
        std::string name, word;
        words >> name;
        std::vector<std::string> args;
        while (words >> word) args.push_back(word);
        out[name] = args;
    }
    return out;
}

TEST(ShellHelpTest, TheToolListsEveryFunctionOfTheShellTableWithItsArguments) {
    std::map<std::string, std::vector<std::string>> listed = helpFunctions();
    EXPECT_EQ(PPPOEPLUS_SHELL_FUNC_NUM, listed.size()) << "the help lists the table's functions, no others";
    for (const tProcShellFunc& f : gPppoeplusShellFuncs) {
        auto it = listed.find(f.name);
        ASSERT_NE(listed.end(), it) << f.name << " is missing from 'pppoeplusctl help shell'";
        ASSERT_EQ(f.argCount, it->second.size()) << f.name;
        for (uint32_t i = 0; i < f.argCount; i++) {
            // Interfaces are IF, by name or unit; numbers have names of their own.
            if (f.argKinds[i] == PROC_SHELL_ARG_IFUNIT) EXPECT_EQ("IF", it->second[i]) << f.name;
            else EXPECT_NE("IF", it->second[i]) << f.name;
        }
    }
}

}  // namespace
