// Where pppoeplusctl finds the daemon when it is not told: PPPOEPLUS_ROOT,
// else the installed unit's runtime directory when the daemon's socket is
// there, else /tmp.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "tools/ctl.h"

namespace {

TEST(CtlRoot, TheEnvironmentComesFirst) {
    std::vector<std::string> asked;
    auto probe = [&](const std::string& p) {
        asked.push_back(p);
        return true;
    };
    EXPECT_EQ("/srv/lab1", ctl::defaultRoot("/srv/lab1", probe));
    EXPECT_TRUE(asked.empty());
}

TEST(CtlRoot, TheInstalledDirectoryWhenTheDaemonsSocketIsThere) {
    std::vector<std::string> asked;
    auto there = [&](const std::string& p) {
        asked.push_back(p);
        return p == "/run/pppoeplus/pppoeplusNm.socket";
    };
    EXPECT_EQ("/run/pppoeplus", ctl::defaultRoot(nullptr, there));
    EXPECT_EQ("/run/pppoeplus", ctl::defaultRoot("", there));
    ASSERT_EQ(2u, asked.size());
    EXPECT_EQ("/run/pppoeplus/pppoeplusNm.socket", asked[0]);
}

TEST(CtlRoot, ElseTmp) {
    auto none = [](const std::string&) { return false; };
    EXPECT_EQ("", ctl::defaultRoot(nullptr, none));
}

TEST(CtlRoot, OnlyASocketCounts) {
    char dir[] = "/tmp/ctlroot-XXXXXX";
    ASSERT_NE(nullptr, ::mkdtemp(dir));
    std::string file = std::string(dir) + "/file";
    std::string sock = std::string(dir) + "/sock";
    ASSERT_EQ(0, std::system(("touch '" + file + "'").c_str()));
    int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    struct sockaddr_un a;
    std::memset(&a, 0, sizeof(a));
    a.sun_family = AF_UNIX;
    std::strncpy(a.sun_path, sock.c_str(), sizeof(a.sun_path) - 1);
    ASSERT_EQ(0, ::bind(fd, reinterpret_cast<struct sockaddr*>(&a), sizeof(a)));
    EXPECT_TRUE(ctl::isSocket(sock));
    EXPECT_FALSE(ctl::isSocket(file));
    EXPECT_FALSE(ctl::isSocket(dir));
    EXPECT_FALSE(ctl::isSocket(std::string(dir) + "/none"));
    ::close(fd);
    std::system(("rm -rf '" + std::string(dir) + "'").c_str());
}

}  // namespace
