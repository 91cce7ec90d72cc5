// Where pppoeplusctl looks for the daemon's sockets when it is not told.
#include <filesystem>
#include <string>
#include <system_error>

#include "platform/linux/cmd_proto.h"
#include "tools/ctl.h"

namespace ctl {

bool isSocket(const std::string& path) {
    // Follows a symbolic link, as a connect() would; any failure is "no socket".
    std::error_code ec;
    return std::filesystem::is_socket(path, ec);
}

std::string defaultRoot(const char* envRoot, const std::function<bool(const std::string&)>& socketAt) {
    if (envRoot != nullptr && envRoot[0] != '\0') return envRoot;
    // The installed unit's runtime directory, when a daemon's command socket is there.
    std::string cmd = cmdp::CMD_SOCKET;
    if (socketAt(std::string(INSTALLED_ROOT) + cmd.substr(cmd.rfind('/')))) return INSTALLED_ROOT;
    return std::string();  // the sockets' own paths in /tmp
}

}  // namespace ctl
